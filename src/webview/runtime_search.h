#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

// Choosing among the WebView2 runtimes that a computer has. Pure; the registry and the disk are
// reached through the two functions handed in.
namespace webview {

using RuntimeVersion = std::array<std::uint32_t, 4>;

// The oldest runtime that speaks the interfaces the program uses.
inline constexpr RuntimeVersion kOldestRuntime = {86, 0, 616, 0};

// The version that is the last part of a runtime folder's path ("...\121.0.2277.106"); nothing when
// that part is not four numbers.
std::optional<RuntimeVersion> ParseRuntimeVersion(std::wstring_view runtimeFolder);

enum class RuntimeRoot { AllUsers, CurrentUser };

// What is registered for one release channel (its GUID in braces) under one root.
using RegisteredRuntime =
    std::function<std::optional<std::wstring>(RuntimeRoot root, std::wstring_view channel)>;
using FileExists = std::function<bool(const std::wstring& path)>;

// The runtime's library inside its versioned folder.
std::wstring RuntimeLibraryPath(std::wstring_view runtimeFolder);

// The library of the first usable installed runtime: stable before beta, dev, canary and internal.
// The user's own runtimes, which no administrator has installed, are looked at only when the
// computer has none for all users: this process has an administrator's rights. One that is too old,
// or whose library is missing, is passed over.
std::optional<std::wstring> FindInstalledRuntime(const RegisteredRuntime& registered,
                                                 const FileExists& fileExists);

// One registered runtime and what speaks against it.
struct ListedRuntime {
  RuntimeRoot root = RuntimeRoot::AllUsers;
  std::wstring channel;  // "stable", "beta", "dev", "canary", "internal"
  std::wstring folder;
  bool isUsable = false;  // new enough, and its library is there
};

// All that are registered, in the order in which FindInstalledRuntime() looks.
std::vector<ListedRuntime> ListInstalledRuntimes(const RegisteredRuntime& registered,
                                                 const FileExists& fileExists);

// What the registry holds. Windows only; any thread.
std::optional<std::wstring> RegisteredRuntimeFolder(RuntimeRoot root, std::wstring_view channel);

}  // namespace webview
