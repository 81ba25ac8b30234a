#include "webview.h"

#include <utility>

#include "com.h"
#include "json_text.h"
#include "options.h"
#include "session.h"
#include "text.h"

namespace browser {
namespace {

// The real control passes the text as a base64 data URL, which must stay below 2 MiB: measured, it
// loads 1572834 bytes but not one more.
constexpr size_t kMaxUrlBytes = 2 * 1024 * 1024;
constexpr size_t kUrlHeadBytes = 36;  // data:text/html;charset=utf-8;base64,

bool FitsAsUrl(size_t textBytes) {
  return kUrlHeadBytes + (textBytes + 2) / 3 * 4 < kMaxUrlBytes;
}

class WebMessageArgs final
    : public ComObject<ICoreWebView2WebMessageReceivedEventArgs, &kIidWebMessageArgs> {
 public:
  explicit WebMessageArgs(const PostedMessage& message) : message_(message) {}

  HRESULT STDMETHODCALLTYPE get_Source(LPWSTR* source) override;
  HRESULT STDMETHODCALLTYPE get_WebMessageAsJson(LPWSTR* json) override;
  // E_INVALIDARG if the page did not post a string.
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

}  // namespace

WebView::WebView(std::shared_ptr<Session> session)
    : session_(std::move(session)), settings_(ComPtr<Settings>::Adopt(new Settings(session_))) {
  session_->SetEvents(this);
}

void WebView::Detach() {
  session_->SetEvents(nullptr);
  navigationCompleted_.Clear();
  processFailed_.Clear();
  messageReceived_.Clear();
}

HRESULT WebView::get_Settings(ICoreWebView2Settings** settings) {
  const HRESULT refused = session_->Check();
  if (FAILED(refused)) return refused;
  if (settings == nullptr) return E_POINTER;
  *settings = settings_.Share();
  return S_OK;
}

HRESULT WebView::get_Source(LPWSTR* uri) {
  const HRESULT refused = session_->Check();
  return FAILED(refused) ? refused : CopyForCaller(source_, uri);
}

HRESULT WebView::CheckNavigation(LPCWSTR argument) const {
  const HRESULT refused = session_->Check();
  if (FAILED(refused)) return refused;
  if (argument == nullptr) return E_POINTER;
  return FailureAt(L"navigate", E_INVALIDARG).value_or(S_OK);
}

HRESULT WebView::Navigate(LPCWSTR uri) {
  const HRESULT refused = CheckNavigation(uri);
  Log("Navigate: %08lx", static_cast<unsigned long>(refused));
  if (FAILED(refused)) return refused;
  const std::wstring_view address(uri);
  if (address.find(L':') == std::wstring_view::npos) return E_INVALIDARG;  // not absolute
  source_ = address;
  session_->Send(FromHost::LoadUrl, BodyWriter().U64(++lastNavigation_).Text(address));
  return S_OK;
}

HRESULT WebView::NavigateToString(LPCWSTR html) {
  const HRESULT refused = CheckNavigation(html);
  Log("NavigateToString: %08lx", static_cast<unsigned long>(refused));
  if (FAILED(refused)) return refused;
  BodyWriter body;
  body.U64(lastNavigation_ + 1).Text(html);
  if (!FitsAsUrl(body.Bytes().size() - sizeof(uint64_t))) return E_INVALIDARG;
  // Only an accepted text uses up a navigation id.
  ++lastNavigation_;
  source_ = L"about:blank";
  session_->Send(FromHost::LoadText, body);
  return S_OK;
}

HRESULT WebView::add_NavigationCompleted(NavigationCompletedHandler* handler,
                                         EventRegistrationToken* token) {
  const HRESULT refused = session_->Check();
  return FAILED(refused) ? refused : navigationCompleted_.Add(handler, token);
}

HRESULT WebView::remove_NavigationCompleted(EventRegistrationToken token) {
  const HRESULT refused = session_->Check();
  return FAILED(refused) ? refused : navigationCompleted_.Remove(token);
}

HRESULT WebView::add_ProcessFailed(ProcessFailedHandler* handler, EventRegistrationToken* token) {
  const HRESULT refused = session_->Check();
  Log("add_ProcessFailed: %08lx", static_cast<unsigned long>(refused));
  return FAILED(refused) ? refused : processFailed_.Add(handler, token);
}

HRESULT WebView::remove_ProcessFailed(EventRegistrationToken token) {
  const HRESULT refused = session_->Check();
  return FAILED(refused) ? refused : processFailed_.Remove(token);
}

HRESULT WebView::add_WebMessageReceived(WebMessageReceivedHandler* handler,
                                        EventRegistrationToken* token) {
  const HRESULT refused = session_->Check();
  Log("add_WebMessageReceived: %08lx", static_cast<unsigned long>(refused));
  return FAILED(refused) ? refused : messageReceived_.Add(handler, token);
}

HRESULT WebView::remove_WebMessageReceived(EventRegistrationToken token) {
  const HRESULT refused = session_->Check();
  return FAILED(refused) ? refused : messageReceived_.Remove(token);
}

HRESULT WebView::PostWebMessageAsJson(LPCWSTR json) {
  const HRESULT refused = CheckPost(json);
  if (FAILED(refused)) return refused;
  if (!IsJsonText(json)) return E_INVALIDARG;
  session_->Send(FromHost::PostJson, BodyWriter().Text(json));
  return S_OK;
}

HRESULT WebView::PostWebMessageAsString(LPCWSTR text) {
  const HRESULT refused = CheckPost(text);
  if (FAILED(refused)) return refused;
  session_->Send(FromHost::PostText, BodyWriter().Text(text));
  return S_OK;
}

HRESULT WebView::CheckPost(LPCWSTR text) const {
  const HRESULT refused = session_->Check();
  if (FAILED(refused)) return refused;
  if (text == nullptr) return E_POINTER;
  return settings_->IsOn(Settings::kWebMessage) ? S_OK : E_ACCESSDENIED;
}

void WebView::OnPosted(const PostedMessage& message) {
  if (!settings_->IsOn(Settings::kWebMessage)) return;
  // Here and below: a handler may release the program's last reference to this object.
  const ComPtr<WebView> self(this);
  const auto arguments = ComPtr<WebMessageArgs>::Adopt(new WebMessageArgs(message));
  messageReceived_.Invoke(static_cast<ICoreWebView2*>(this), arguments.Get());
}

void WebView::OnProcessFailed(COREWEBVIEW2_PROCESS_FAILED_KIND kind) {
  Log("ProcessFailed %d", static_cast<int>(kind));
  const ComPtr<WebView> self(this);
  const auto arguments = ComPtr<ProcessFailedArgs>::Adopt(new ProcessFailedArgs(kind));
  processFailed_.Invoke(static_cast<ICoreWebView2*>(this), arguments.Get());
}

void WebView::OnNavigated(const FinishedNavigation& navigation) {
  const ComPtr<WebView> self(this);
  const auto arguments =
      ComPtr<NavigationCompletedArgs>::Adopt(new NavigationCompletedArgs(navigation));
  navigationCompleted_.Invoke(static_cast<ICoreWebView2*>(this), arguments.Get());
}

HRESULT Settings::Get(Switch which, BOOL* on) const {
  const HRESULT refused = session_->Check();
  if (FAILED(refused)) return refused;
  if (on == nullptr) return E_POINTER;
  *on = values_[which];
  return S_OK;
}

HRESULT Settings::Put(Switch which, BOOL on) {
  const HRESULT refused = session_->Check();
  if (FAILED(refused)) return refused;
  values_[which] = on != FALSE ? TRUE : FALSE;
  return S_OK;
}

HRESULT WebMessageArgs::get_Source(LPWSTR* source) {
  return CopyForCaller(message_.source, source);
}

HRESULT WebMessageArgs::get_WebMessageAsJson(LPWSTR* json) {
  return CopyForCaller(message_.json, json);
}

HRESULT WebMessageArgs::TryGetWebMessageAsString(LPWSTR* text) {
  if (text == nullptr) return E_POINTER;
  *text = nullptr;
  return message_.isText ? CopyForCaller(message_.text, text) : E_INVALIDARG;
}

HRESULT NavigationCompletedArgs::get_IsSuccess(BOOL* success) {
  if (success == nullptr) return E_POINTER;
  *success = navigation_.success ? TRUE : FALSE;
  return S_OK;
}

HRESULT NavigationCompletedArgs::get_WebErrorStatus(COREWEBVIEW2_WEB_ERROR_STATUS* status) {
  if (status == nullptr) return E_POINTER;
  *status = navigation_.status;
  return S_OK;
}

HRESULT NavigationCompletedArgs::get_NavigationId(UINT64* id) {
  if (id == nullptr) return E_POINTER;
  *id = navigation_.id;
  return S_OK;
}

HRESULT ProcessFailedArgs::get_ProcessFailedKind(COREWEBVIEW2_PROCESS_FAILED_KIND* kind) {
  if (kind == nullptr) return E_POINTER;
  *kind = kind_;
  return S_OK;
}

}  // namespace browser
