#pragma once

#include <memory>

#include "abi.h"
#include "com.h"
#include "session.h"
#include "webview.h"

namespace browser {

// The window side of one page: bounds, visibility, focus, background, end. Closes the session on
// Close() and on the last Release().
class Controller final
    : public ComObject<ICoreWebView2Controller2, &kIidController, &kIidController2> {
 public:
  Controller(std::shared_ptr<Session> session, HWND parent);

  HRESULT STDMETHODCALLTYPE get_IsVisible(BOOL* visible) override;
  HRESULT STDMETHODCALLTYPE put_IsVisible(BOOL visible) override;
  HRESULT STDMETHODCALLTYPE get_Bounds(RECT* bounds) override;
  HRESULT STDMETHODCALLTYPE put_Bounds(RECT bounds) override;
  // E_INVALIDARG while the control is hidden or its window minimised.
  HRESULT STDMETHODCALLTYPE MoveFocus(COREWEBVIEW2_MOVE_FOCUS_REASON reason) override;
  HRESULT STDMETHODCALLTYPE get_ParentWindow(HWND* parent) override;
  HRESULT STDMETHODCALLTYPE NotifyParentWindowPositionChanged() override;
  HRESULT STDMETHODCALLTYPE Close() override;
  HRESULT STDMETHODCALLTYPE get_CoreWebView2(ICoreWebView2** webview) override;
  HRESULT STDMETHODCALLTYPE get_DefaultBackgroundColor(COREWEBVIEW2_COLOR* color) override;
  // E_INVALIDARG for partly transparent colours.
  HRESULT STDMETHODCALLTYPE put_DefaultBackgroundColor(COREWEBVIEW2_COLOR color) override;

 private:
  ~Controller();
  void Destroy() override { delete this; }
  // The session's refusal, or E_POINTER for a missing out argument.
  HRESULT Check(const void* out) const;

  const std::shared_ptr<Session> session_;
  const ComPtr<WebView> webview_;
  const HWND parent_;
  bool visible_ = true;
  COREWEBVIEW2_COLOR background_{255, 255, 255, 255};
};

}  // namespace browser
