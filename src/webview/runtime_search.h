#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

// Chooses among the WebView2 runtimes of a computer. Pure: registry and disk are function
// parameters.
namespace webview {

using RuntimeVersion = std::array<std::uint32_t, 4>;

// The oldest runtime with all interfaces that the program uses.
inline constexpr RuntimeVersion kOldestRuntime = {86, 0, 616, 0};

// The version in the last part of a runtime folder's path ("...\121.0.2277.106"); nothing when that
// part is not four numbers.
std::optional<RuntimeVersion> ParseRuntimeVersion(std::wstring_view runtimeFolder);

enum class RuntimeRoot { AllUsers, CurrentUser };

// Returns the folder registered for a release channel (its GUID in braces) under a root.
using RegisteredRuntime =
    std::function<std::optional<std::wstring>(RuntimeRoot root, std::wstring_view channel)>;
using FileExists = std::function<bool(const std::wstring& path)>;

// The runtime's library inside its versioned folder.
std::wstring RuntimeLibraryPath(std::wstring_view runtimeFolder);

// The library of the first usable runtime: stable before beta, dev, canary and internal. The user's
// own runtimes count only when none is installed for all users: no administrator has installed
// them, and this process has an administrator's rights. Skips a runtime that is too old or whose
// library is missing.
std::optional<std::wstring> FindInstalledRuntime(const RegisteredRuntime& registered,
                                                 const FileExists& fileExists);

// One registered runtime.
struct ListedRuntime {
  RuntimeRoot root = RuntimeRoot::AllUsers;
  std::wstring channel;  // "stable", "beta", "dev", "canary", "internal"
  std::wstring folder;
  bool isUsable = false;  // new enough, and its library exists
};

// All registered runtimes, in the order of FindInstalledRuntime().
std::vector<ListedRuntime> ListInstalledRuntimes(const RegisteredRuntime& registered,
                                                 const FileExists& fileExists);

// Reads the registry. Windows only; any thread.
std::optional<std::wstring> RegisteredRuntimeFolder(RuntimeRoot root, std::wstring_view channel);

}  // namespace webview
