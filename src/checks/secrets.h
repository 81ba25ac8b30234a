#pragma once

#include <set>
#include <string>
#include <string_view>

namespace checks {

// What stands in the report in the place of a key, a password or an id.
inline constexpr std::wstring_view kHidden = L"【已隐去】";

// The keys, passwords and ids of this computer, and how a text loses them.
//
// Threads: none inside.
class Secrets {
 public:
  // Learns every value of a member that is secret (access keys, device numbers, engineer and
  // connection ids, RustDesk's id and password) from a settings text: JSON as the program writes
  // it, or what is left of a damaged file.
  void LearnFrom(std::wstring_view settingsText);

  // `text` with kHidden for whatever was learned, in any letter case, as it is, percent-encoded or
  // escaped as in JSON; and for whatever looks like "KEY-...", "DEV-...", "CONN-..." or "ENG-...",
  // and for the sign-on in an address. A value of fewer than six units goes only where no letter or
  // digit touches it.
  [[nodiscard]] std::wstring BlackOut(std::wstring_view text) const;

 private:
  void Add(std::wstring_view value);

  std::set<std::wstring> values_;  // folded; none empty
};

}  // namespace checks
