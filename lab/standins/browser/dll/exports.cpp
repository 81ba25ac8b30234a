// The DLL's one exported function.
#include <windows.h>

#include <objbase.h>
#include <shlobj.h>

#include <exception>
#include <memory>
#include <string>

#include "environment.h"
#include "module.h"
#include "options.h"
#include "text.h"

namespace browser {
namespace {

// The calling thread must be a single-threaded apartment: it has to pump messages.
HRESULT CheckApartment() {
  APTTYPE type = APTTYPE_CURRENT;
  APTTYPEQUALIFIER qualifier = APTTYPEQUALIFIER_NONE;
  if (FAILED(::CoGetApartmentType(&type, &qualifier))) return CO_E_NOTINITIALIZED;
  // A thread that never initialised COM counts as multi-threaded once another thread did.
  if (qualifier == APTTYPEQUALIFIER_IMPLICIT_MTA) return CO_E_NOTINITIALIZED;
  const bool single = type == APTTYPE_STA || type == APTTYPE_MAINSTA;
  return single ? S_OK : RPC_E_CHANGED_MODE;
}

std::wstring DefaultUserDataFolder() {
  std::wstring path(32768, L'\0');
  path.resize(::GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size())));
  return path + L".WebView2";
}

// Makes the folder and the browser's own folder in it.
HRESULT MakeUserDataFolder(const std::wstring& folder) {
  const int code = ::SHCreateDirectoryExW(nullptr, (folder + L"\\EBWebView").c_str(), nullptr);
  if (code == ERROR_SUCCESS || code == ERROR_ALREADY_EXISTS) return S_OK;
  const DWORD attributes = ::GetFileAttributesW(folder.c_str());
  const bool isFile =
      attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) == 0;
  return isFile ? HRESULT_FROM_WIN32(ERROR_FILE_EXISTS) : E_ACCESSDENIED;
}

HRESULT CreateEnvironment(PCWSTR userDataFolder, EnvironmentCompletedHandler* handler) {
  const HRESULT apartment = CheckApartment();
  if (FAILED(apartment)) return apartment;
  if (handler == nullptr) return E_POINTER;
  if (const auto failure = FailureAt(L"create", E_FAIL)) return *failure;
  StayLoaded();
  HRESULT result = FailureAt(L"environment", E_FAIL).value_or(S_OK);
  if (SUCCEEDED(result)) {
    const bool given = userDataFolder != nullptr && *userDataFolder != L'\0';
    result = MakeUserDataFolder(given ? std::wstring(userDataFolder) : DefaultUserDataFolder());
  }
  const auto dispatcher = std::make_shared<Dispatcher>();
  const ComPtr<EnvironmentCompletedHandler> completed(handler);
  dispatcher->Post([dispatcher, completed, result] {
    if (FAILED(result)) {
      completed->Invoke(result, nullptr);
      return;
    }
    const auto environment = ComPtr<Environment>::Adopt(new Environment(dispatcher));
    completed->Invoke(S_OK, environment.Get());
  });
  return S_OK;
}

}  // namespace
}  // namespace browser

// What the public loader calls. `checkRunningInstance`, `runtimeType` and `options` change nothing
// here.
extern "C" __declspec(dllexport) HRESULT STDAPICALLTYPE CreateWebViewEnvironmentWithOptionsInternal(
    bool checkRunningInstance, int runtimeType, PCWSTR userDataFolder, IUnknown* options,
    browser::EnvironmentCompletedHandler* handler) noexcept {
  browser::Log("CreateWebViewEnvironmentWithOptionsInternal %d %d %s", checkRunningInstance ? 1 : 0,
               runtimeType, options != nullptr ? "options" : "no options");
  try {
    return browser::CreateEnvironment(userDataFolder, handler);
  } catch (const std::exception& error) {
    browser::Log("creation failed: %s", error.what());
    return E_FAIL;
  }
}
