#pragma once

#include <array>
#include <memory>
#include <string>

#include "abi.h"
#include "com.h"
#include "session.h"

namespace browser {

// The switches of one page. All can be read and set, but only IsWebMessageEnabled has an effect.
class Settings final : public ComObject<ICoreWebView2Settings, &kIidSettings> {
 public:
  enum Switch : size_t {
    kScript,
    kWebMessage,
    kScriptDialogs,
    kStatusBar,
    kDevTools,
    kContextMenus,
    kHostObjects,
    kZoomControl,
    kErrorPage,
    kSwitches,
  };

  explicit Settings(std::shared_ptr<Session> session) : session_(std::move(session)) {
    values_.fill(TRUE);
  }
  [[nodiscard]] bool IsOn(Switch which) const { return values_[which] != FALSE; }

#define LAB_SWITCH(name, which)                             \
  HRESULT STDMETHODCALLTYPE get_##name(BOOL* on) override { \
    return Get(which, on);                                  \
  }                                                         \
  HRESULT STDMETHODCALLTYPE put_##name(BOOL on) override {  \
    return Put(which, on);                                  \
  }
  LAB_SWITCH(IsScriptEnabled, kScript)
  LAB_SWITCH(IsWebMessageEnabled, kWebMessage)
  LAB_SWITCH(AreDefaultScriptDialogsEnabled, kScriptDialogs)
  LAB_SWITCH(IsStatusBarEnabled, kStatusBar)
  LAB_SWITCH(AreDevToolsEnabled, kDevTools)
  LAB_SWITCH(AreDefaultContextMenusEnabled, kContextMenus)
  LAB_SWITCH(AreHostObjectsAllowed, kHostObjects)
  LAB_SWITCH(IsZoomControlEnabled, kZoomControl)
  LAB_SWITCH(IsBuiltInErrorPageEnabled, kErrorPage)
#undef LAB_SWITCH

 private:
  ~Settings() = default;
  void Destroy() override {
    delete this;
  }
  HRESULT Get(Switch which, BOOL* on) const;
  HRESULT Put(Switch which, BOOL on);

  const std::shared_ptr<Session> session_;
  std::array<BOOL, kSwitches> values_{};
};

// The page of one controller. The program may keep it longer; it then refuses every call.
class WebView final : public ComObject<ICoreWebView2, &kIidWebView>, private SessionEvents {
 public:
  explicit WebView(std::shared_ptr<Session> session);

  // Called when the controller closes: drops all handlers, as the real control does.
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
  // The session's refusal, E_POINTER, or the failure requested by LAB_WEBVIEW_FAIL.
  HRESULT CheckNavigation(LPCWSTR argument) const;
  // For every message: the session's refusal, E_POINTER, or E_ACCESSDENIED with messages off.
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
