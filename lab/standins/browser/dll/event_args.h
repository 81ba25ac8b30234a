#pragma once

#include "com.h"
#include "session.h"

namespace browser {

class WebMessageArgs final
    : public ComObject<ICoreWebView2WebMessageReceivedEventArgs, &kIidWebMessageArgs> {
 public:
  explicit WebMessageArgs(const PostedMessage& message) : message_(message) {}

  HRESULT STDMETHODCALLTYPE get_Source(LPWSTR* source) override;
  HRESULT STDMETHODCALLTYPE get_WebMessageAsJson(LPWSTR* json) override;
  // E_INVALIDARG when the page posted something other than a string.
  HRESULT STDMETHODCALLTYPE TryGetWebMessageAsString(LPWSTR* text) override;

 private:
  ~WebMessageArgs() = default;
  void Destroy() override { delete this; }

  const PostedMessage message_;
};

class NavigationCompletedArgs final
    : public ComObject<ICoreWebView2NavigationCompletedEventArgs, &kIidNavigationCompletedArgs> {
 public:
  explicit NavigationCompletedArgs(const FinishedNavigation& navigation)
      : navigation_(navigation) {}

  HRESULT STDMETHODCALLTYPE get_IsSuccess(BOOL* success) override;
  HRESULT STDMETHODCALLTYPE get_WebErrorStatus(COREWEBVIEW2_WEB_ERROR_STATUS* status) override;
  HRESULT STDMETHODCALLTYPE get_NavigationId(UINT64* id) override;

 private:
  ~NavigationCompletedArgs() = default;
  void Destroy() override { delete this; }

  const FinishedNavigation navigation_;
};

class ProcessFailedArgs final
    : public ComObject<ICoreWebView2ProcessFailedEventArgs, &kIidProcessFailedArgs> {
 public:
  explicit ProcessFailedArgs(COREWEBVIEW2_PROCESS_FAILED_KIND kind) : kind_(kind) {}

  HRESULT STDMETHODCALLTYPE get_ProcessFailedKind(COREWEBVIEW2_PROCESS_FAILED_KIND* kind) override;

 private:
  ~ProcessFailedArgs() = default;
  void Destroy() override { delete this; }

  const COREWEBVIEW2_PROCESS_FAILED_KIND kind_;
};

}  // namespace browser
