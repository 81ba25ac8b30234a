#include "controller.h"

#include <utility>

#include "options.h"

namespace browser {

Controller::Controller(std::shared_ptr<Session> session, HWND parent)
    : session_(std::move(session)),
      webview_(ComPtr<WebView>::Adopt(new WebView(session_))),
      parent_(parent) {}

Controller::~Controller() {
  webview_->Detach();
  session_->Close();
}

HRESULT Controller::Check(const void* out) const {
  const HRESULT refused = session_->Check();
  if (FAILED(refused)) return refused;
  return out == nullptr ? E_POINTER : S_OK;
}

HRESULT Controller::get_IsVisible(BOOL* visible) {
  const HRESULT refused = Check(visible);
  if (FAILED(refused)) return refused;
  *visible = visible_ ? TRUE : FALSE;
  return S_OK;
}

HRESULT Controller::put_IsVisible(BOOL visible) {
  const HRESULT refused = session_->Check();
  Log("put_IsVisible %d: %08lx", visible, static_cast<unsigned long>(refused));
  if (FAILED(refused)) return refused;
  visible_ = visible != FALSE;
  session_->Window().SetVisible(visible_);
  return S_OK;
}

HRESULT Controller::get_Bounds(RECT* bounds) {
  const HRESULT refused = Check(bounds);
  if (FAILED(refused)) return refused;
  *bounds = session_->Window().Bounds();
  return S_OK;
}

HRESULT Controller::put_Bounds(RECT bounds) {
  const HRESULT refused = session_->Check();
  Log("put_Bounds %ld %ld %ld %ld: %08lx", bounds.left, bounds.top, bounds.right, bounds.bottom,
      static_cast<unsigned long>(refused));
  if (FAILED(refused)) return refused;
  session_->Window().SetBounds(bounds);
  return S_OK;
}

HRESULT Controller::MoveFocus(COREWEBVIEW2_MOVE_FOCUS_REASON reason) {
  const HRESULT refused = session_->Check();
  Log("MoveFocus %d: %08lx", static_cast<int>(reason), static_cast<unsigned long>(refused));
  if (FAILED(refused)) return refused;
  const bool known = reason >= kMoveFocusProgrammatic && reason <= kMoveFocusPrevious;
  const bool minimised = ::IsIconic(::GetAncestor(parent_, GA_ROOT)) != FALSE;
  if (!known || !visible_ || minimised) return E_INVALIDARG;
  ::SetFocus(session_->Window().Handle());
  return S_OK;
}

HRESULT Controller::get_ParentWindow(HWND* parent) {
  const HRESULT refused = Check(parent);
  if (FAILED(refused)) return refused;
  *parent = parent_;
  return S_OK;
}

HRESULT Controller::NotifyParentWindowPositionChanged() {
  const HRESULT refused = session_->Check();
  Log("NotifyParentWindowPositionChanged: %08lx", static_cast<unsigned long>(refused));
  return refused;  // no screen coordinates are used here
}

HRESULT Controller::Close() {
  const HRESULT refused = session_->Check();
  Log("Close: %08lx", static_cast<unsigned long>(refused));
  // Unlike other calls, closing again or after the browser's exit succeeds.
  if (refused == RPC_E_WRONG_THREAD) return refused;
  webview_->Detach();
  session_->Close();
  return S_OK;
}

HRESULT Controller::get_CoreWebView2(ICoreWebView2** webview) {
  const HRESULT refused = Check(webview);
  if (FAILED(refused)) return refused;
  *webview = webview_.Share();
  return S_OK;
}

HRESULT Controller::get_DefaultBackgroundColor(COREWEBVIEW2_COLOR* color) {
  const HRESULT refused = Check(color);
  if (FAILED(refused)) return refused;
  *color = background_;
  return S_OK;
}

HRESULT Controller::put_DefaultBackgroundColor(COREWEBVIEW2_COLOR color) {
  const HRESULT refused = session_->Check();
  if (FAILED(refused)) return refused;
  if (color.A != 0 && color.A != 255) return E_INVALIDARG;
  background_ = color;
  session_->Window().SetBackground(color);
  return S_OK;
}

}  // namespace browser
