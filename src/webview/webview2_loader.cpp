#include <optional>

#include "platform/files.h"
#include "platform/handles_win.h"
#include "platform/modules_win.h"
#include "webview/runtime_search.h"
#include "webview/web_create.h"

namespace webview {
namespace {

constexpr wchar_t kClientStateKey[] = L"Software\\Microsoft\\EdgeUpdate\\ClientState\\";
constexpr wchar_t kFolderValue[] = L"EBWebView";

// Informs the library how the runtime was chosen: it is an installed one.
constexpr int kInstalledRuntime = 0;

// The library's only export that is used here. The first argument asks it to hand over to another
// version that already runs on the same user data folder.
using CreateEnvironmentFunction = HRESULT(STDMETHODCALLTYPE*)(
    bool checkRunningInstance, int runtimeType, PCWSTR userDataFolder, IUnknown* options,
    ICoreWebView2CreateCoreWebView2EnvironmentCompletedHandler* handler);

// Reads a string value of any length, with or without a terminator.
std::optional<std::wstring> ReadRegistryString(HKEY key, const wchar_t* name) {
  std::wstring value(MAX_PATH, L'\0');
  for (;;) {
    DWORD type = REG_NONE;
    auto sizeBytes = static_cast<DWORD>(value.size() * sizeof(wchar_t));
    const LSTATUS status = ::RegQueryValueExW(key, name, nullptr, &type,
                                              reinterpret_cast<BYTE*>(value.data()), &sizeBytes);
    if (status != ERROR_SUCCESS && status != ERROR_MORE_DATA) return std::nullopt;
    if (type != REG_SZ) return std::nullopt;
    // Rounded up: the buffer for a value that ends in half a unit would stay one byte short
    // forever.
    value.resize((sizeBytes + sizeof(wchar_t) - 1) / sizeof(wchar_t));
    if (status == ERROR_MORE_DATA) continue;
    value.resize(std::wstring_view(value).find_last_not_of(L'\0') + 1);
    return value;
  }
}

}  // namespace

// The runtime's installer is a 32-bit program and writes to that view of the registry.
std::optional<std::wstring> RegisteredRuntimeFolder(RuntimeRoot root, std::wstring_view channel) {
  const std::wstring path = kClientStateKey + std::wstring(channel);
  HKEY opened = nullptr;
  const LSTATUS status =
      ::RegOpenKeyExW(root == RuntimeRoot::AllUsers ? HKEY_LOCAL_MACHINE : HKEY_CURRENT_USER,
                      path.c_str(), 0, KEY_READ | KEY_WOW64_32KEY, &opened);
  if (status != ERROR_SUCCESS) return std::nullopt;
  const platform::RegistryKey key(opened);
  return ReadRegistryString(key.Get(), kFolderValue);
}

HRESULT CreateCoreWebView2EnvironmentWithOptions(
    const std::wstring& userDataFolder,
    ICoreWebView2CreateCoreWebView2EnvironmentCompletedHandler* handler) {
  const auto path = FindInstalledRuntime(RegisteredRuntimeFolder, platform::IsFile);
  if (!path) return HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND);

  // The library's own dependencies lie beside it or belong to Windows.
  constexpr DWORD kSearch = LOAD_LIBRARY_SEARCH_DLL_LOAD_DIR | LOAD_LIBRARY_SEARCH_SYSTEM32;
  platform::Module library(::LoadLibraryExW(path->c_str(), nullptr, kSearch));
  const DWORD loadError = ::GetLastError();
  if (!library) return HRESULT_FROM_WIN32(loadError);
  const auto create = platform::GetProcAddressAs<CreateEnvironmentFunction>(
      library.Get(), "CreateWebViewEnvironmentWithOptionsInternal");
  const DWORD findError = ::GetLastError();
  if (create == nullptr) return HRESULT_FROM_WIN32(findError);
  // Never unloaded: once called, the library has threads and windows of its own.
  static_cast<void>(library.Release());
  return create(true, kInstalledRuntime, userDataFolder.c_str(), nullptr, handler);
}

}  // namespace webview
