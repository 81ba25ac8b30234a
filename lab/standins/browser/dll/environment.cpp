// The DLL's one exported function, and the environment that it creates.
#include <windows.h>

#include <objbase.h>
#include <shlobj.h>

#include <exception>
#include <memory>
#include <string>

#include "abi.h"
#include "com.h"
#include "controller.h"
#include "dispatcher.h"
#include "options.h"
#include "session.h"
#include "text.h"

namespace browser {
namespace {

class Environment final : public ComObject<ICoreWebView2Environment, &kIidEnvironment> {
 public:
  explicit Environment(std::shared_ptr<Dispatcher> dispatcher)
      : dispatcher_(std::move(dispatcher)) {}

  // Creates the child window at once; the handler is called later from the message pump, or with
  // E_ABORT during the destruction of `parent`.
  HRESULT STDMETHODCALLTYPE
  CreateCoreWebView2Controller(HWND parent, ControllerCompletedHandler* handler) override;
  HRESULT STDMETHODCALLTYPE get_BrowserVersionString(LPWSTR* version) override;

 private:
  ~Environment() = default;
  void Destroy() override { delete this; }

  const std::shared_ptr<Dispatcher> dispatcher_;
};

// The calling thread must be a single-threaded apartment because it has to pump messages.
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

// Creates the folder and the browser's own folder in it.
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

HRESULT Environment::CreateCoreWebView2Controller(HWND parent,
                                                  ControllerCompletedHandler* handler) {
  Log("CreateCoreWebView2Controller");
  if (!dispatcher_->IsOwnThread()) return RPC_E_WRONG_THREAD;
  if (handler == nullptr) return E_POINTER;
  ComPtr<ControllerCompletedHandler> completed(handler);
  if (const auto failure = FailureAt(L"controller", E_FAIL)) {
    dispatcher_->Post([completed, result = *failure] { completed->Invoke(result, nullptr); });
    return S_OK;
  }
  const auto session = std::make_shared<Session>(dispatcher_);
  return session->Open(parent, [completed, parent, link = std::weak_ptr(session)](HRESULT result) {
    const auto ready = link.lock();
    if (FAILED(result) || !ready) {
      completed->Invoke(result, nullptr);
      return;
    }
    const auto controller = ComPtr<Controller>::Adopt(new Controller(ready, parent));
    completed->Invoke(S_OK, controller.Get());
  });
}

HRESULT Environment::get_BrowserVersionString(LPWSTR* version) {
  if (!dispatcher_->IsOwnThread()) return RPC_E_WRONG_THREAD;
  return CopyForCaller(L"120.0.0.0", version);
}

}  // namespace browser

// Called by the public loader. `checkRunningInstance`, `runtimeType` and `options` have no effect
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
