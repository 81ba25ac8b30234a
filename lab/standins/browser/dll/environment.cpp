#include "environment.h"

#include "controller.h"
#include "options.h"
#include "session.h"
#include "text.h"

namespace browser {

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
