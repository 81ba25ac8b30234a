#pragma once

#include <set>
#include <string>
#include <string_view>

namespace checks {

// Replaces a key, a password or an id.
inline constexpr std::wstring_view kHidden = L"【已隐去】";

// Collects keys, passwords and ids and removes them from a text.
//
// Threads: none inside.
class Secrets {
 public:
  // Learns the values of all secret members (access keys, device numbers, engineer and connection
  // ids, RustDesk's id and password) from a settings text, which may be damaged JSON.
  void LearnFrom(std::wstring_view settingsText);

  // Replaces by kHidden: every learned value in any letter case, plain, percent-encoded or escaped
  // as in JSON; everything of the form "KEY-...", "DEV-...", "CONN-..." or "ENG-..."; the sign-on
  // in an address. Values of fewer than six units are replaced only between other characters than
  // letters and digits, so that words stay readable.
  [[nodiscard]] std::wstring BlackOut(std::wstring_view text) const;

 private:
  void Add(std::wstring_view value);

  std::set<std::wstring> values_;  // folded; none empty
};

}  // namespace checks
