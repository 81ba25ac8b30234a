#include "webview/runtime_search.h"

#include "platform/path.h"

namespace webview {
namespace {

struct Channel {
  std::wstring_view id;
  const wchar_t* name;
};
// The channels' GUIDs below EdgeUpdate\ClientState, the most stable one first.
constexpr Channel kChannels[] = {
    {L"{F3017226-FE2A-4295-8BDF-00C3A9A7E4C5}", L"stable"},
    {L"{2CD8A007-E189-409D-A2C8-9AF4EF3C72AA}", L"beta"},
    {L"{0D50BFEC-CD6A-4F9A-964C-C7416E3ACB10}", L"dev"},
    {L"{65C35B14-6C1D-4122-AC46-7148CC9D6497}", L"canary"},
    {L"{BE59E8FD-089A-411B-A3B0-051D9E417818}", L"internal"},
};

// The program is built for x64 only, and the library must fit the process.
constexpr std::wstring_view kLibrary = L"EBWebView\\x64\\EmbeddedBrowserWebView.dll";

// Reads the decimal number at the start of `text` and removes it; at most nine digits.
std::optional<std::uint32_t> TakeNumber(std::wstring_view& text) {
  const auto isDigit = [](wchar_t unit) { return unit >= L'0' && unit <= L'9'; };
  std::uint32_t number = 0;
  std::size_t digits = 0;
  // Nine digits always fit 32 bits; a tenth makes the version unreadable.
  while (digits < text.size() && digits < 9 && isDigit(text[digits])) {
    number = number * 10 + static_cast<std::uint32_t>(text[digits] - L'0');
    ++digits;
  }
  if (digits == 0) return std::nullopt;
  text.remove_prefix(digits);
  return number;
}

std::wstring_view LastPart(std::wstring_view path) {
  // The registered path may end in a separator.
  while (!path.empty() && (path.back() == L'\\' || path.back() == L'/')) path.remove_suffix(1);
  const std::size_t slash = path.find_last_of(L"\\/");
  return slash == std::wstring_view::npos ? path : path.substr(slash + 1);
}

bool IsUsable(std::wstring_view runtimeFolder) {
  const std::optional<RuntimeVersion> version = ParseRuntimeVersion(runtimeFolder);
  return version && *version >= kOldestRuntime;
}

}  // namespace

std::optional<RuntimeVersion> ParseRuntimeVersion(std::wstring_view runtimeFolder) {
  std::wstring_view rest = LastPart(runtimeFolder);
  RuntimeVersion version{};
  for (std::size_t part = 0; part < version.size(); ++part) {
    if (part != 0) {
      if (rest.empty() || rest.front() != L'.') return std::nullopt;
      rest.remove_prefix(1);
    }
    const std::optional<std::uint32_t> number = TakeNumber(rest);
    if (!number) return std::nullopt;
    version[part] = *number;
  }
  if (!rest.empty()) return std::nullopt;
  return version;
}

std::wstring RuntimeLibraryPath(std::wstring_view runtimeFolder) {
  return platform::JoinPath(runtimeFolder, kLibrary);
}

std::optional<std::wstring> FindInstalledRuntime(const RegisteredRuntime& registered,
                                                 const FileExists& fileExists) {
  // All channels of one root before the other root: a user could otherwise put a runtime ahead of
  // one that an administrator has installed.
  for (const RuntimeRoot root : {RuntimeRoot::AllUsers, RuntimeRoot::CurrentUser}) {
    for (const Channel& channel : kChannels) {
      const std::optional<std::wstring> folder = registered(root, channel.id);
      // A half-removed or outdated runtime may still be registered; the search continues.
      if (!folder || !IsUsable(*folder)) continue;
      std::wstring library = RuntimeLibraryPath(*folder);
      if (fileExists(library)) return library;
    }
  }
  return std::nullopt;
}

std::vector<ListedRuntime> ListInstalledRuntimes(const RegisteredRuntime& registered,
                                                 const FileExists& fileExists) {
  std::vector<ListedRuntime> listed;
  for (const RuntimeRoot root : {RuntimeRoot::AllUsers, RuntimeRoot::CurrentUser}) {
    for (const Channel& channel : kChannels) {
      const std::optional<std::wstring> folder = registered(root, channel.id);
      if (!folder) continue;
      const bool isUsable = IsUsable(*folder) && fileExists(RuntimeLibraryPath(*folder));
      listed.push_back({root, channel.name, *folder, isUsable});
    }
  }
  return listed;
}

}  // namespace webview
