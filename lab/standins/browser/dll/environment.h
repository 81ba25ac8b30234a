#pragma once

#include <memory>

#include "abi_environment.h"
#include "com.h"
#include "dispatcher.h"

namespace browser {

class Environment final : public ComObject<ICoreWebView2Environment, &kIidEnvironment> {
 public:
  explicit Environment(std::shared_ptr<Dispatcher> dispatcher)
      : dispatcher_(std::move(dispatcher)) {}

  // The child window exists when this returns; the handler is called later, from the message pump
  // (or with E_ABORT from inside the destruction of `parent`).
  HRESULT STDMETHODCALLTYPE
  CreateCoreWebView2Controller(HWND parent, ControllerCompletedHandler* handler) override;
  HRESULT STDMETHODCALLTYPE get_BrowserVersionString(LPWSTR* version) override;

 private:
  ~Environment() = default;
  void Destroy() override { delete this; }

  const std::shared_ptr<Dispatcher> dispatcher_;
};

}  // namespace browser
