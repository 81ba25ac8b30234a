#pragma once

#include <memory>
#include <string>

#include "abi_webview.h"
#include "com.h"
#include "handler_list.h"
#include "session.h"
#include "settings.h"

namespace browser {

// The page of one controller. Outlives it if the program keeps a reference, and refuses calls then.
class WebView final : public ComObject<ICoreWebView2, &kIidWebView>, private SessionEvents {
 public:
  explicit WebView(std::shared_ptr<Session> session);

  // Called when the controller closes: handlers are dropped, as the real control does.
  void Detach();

  HRESULT STDMETHODCALLTYPE get_Settings(ICoreWebView2Settings** settings) override;
  HRESULT STDMETHODCALLTYPE get_Source(LPWSTR* uri) override;
  HRESULT STDMETHODCALLTYPE Navigate(LPCWSTR uri) override;
  HRESULT STDMETHODCALLTYPE NavigateToString(LPCWSTR html) override;
  HRESULT STDMETHODCALLTYPE add_NavigationCompleted(NavigationCompletedHandler* handler,
                                                    EventRegistrationToken* token) override;
  HRESULT STDMETHODCALLTYPE remove_NavigationCompleted(EventRegistrationToken token) override;
  HRESULT STDMETHODCALLTYPE add_ProcessFailed(ProcessFailedHandler* handler,
                                              EventRegistrationToken* token) override;
  HRESULT STDMETHODCALLTYPE remove_ProcessFailed(EventRegistrationToken token) override;
  HRESULT STDMETHODCALLTYPE PostWebMessageAsJson(LPCWSTR json) override;
  HRESULT STDMETHODCALLTYPE PostWebMessageAsString(LPCWSTR text) override;
  HRESULT STDMETHODCALLTYPE add_WebMessageReceived(WebMessageReceivedHandler* handler,
                                                   EventRegistrationToken* token) override;
  HRESULT STDMETHODCALLTYPE remove_WebMessageReceived(EventRegistrationToken token) override;

 private:
  ~WebView() { Detach(); }
  void Destroy() override { delete this; }
  void OnPosted(const PostedMessage& message) override;
  void OnNavigated(const FinishedNavigation& navigation) override;
  void OnProcessFailed(COREWEBVIEW2_PROCESS_FAILED_KIND kind) override;
  // The session's refusal, else a missing argument, else what LAB_WEBVIEW_FAIL asks for.
  HRESULT CheckNavigation(LPCWSTR argument) const;
  // What holds for every message: the session's refusal, a missing text, messages switched off.
  HRESULT CheckPost(LPCWSTR text) const;

  const std::shared_ptr<Session> session_;
  const ComPtr<Settings> settings_;
  std::wstring source_ = L"about:blank";
  uint64_t lastNavigation_ = 0;
  HandlerList<NavigationCompletedHandler> navigationCompleted_;
  HandlerList<ProcessFailedHandler> processFailed_;
  HandlerList<WebMessageReceivedHandler> messageReceived_;
};

}  // namespace browser
