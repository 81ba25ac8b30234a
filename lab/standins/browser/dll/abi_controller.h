#pragma once

#include "abi_types.h"

namespace browser {

struct ICoreWebView2Controller : public IUnknown {
  virtual HRESULT STDMETHODCALLTYPE get_IsVisible(BOOL* visible) = 0;                      // 3
  virtual HRESULT STDMETHODCALLTYPE put_IsVisible(BOOL visible) = 0;                       // 4
  virtual HRESULT STDMETHODCALLTYPE get_Bounds(RECT* bounds) = 0;                          // 5
  virtual HRESULT STDMETHODCALLTYPE put_Bounds(RECT bounds) = 0;                           // 6
  LAB_NOT_SERVED(get_ZoomFactor, double*)                                                  // 7
  LAB_NOT_SERVED(put_ZoomFactor, double)                                                   // 8
  LAB_EVENT_NOT_SERVED(ZoomFactorChanged)                                                  // 9, 10
  LAB_NOT_SERVED(SetBoundsAndZoomFactor, RECT, double)                                     // 11
  virtual HRESULT STDMETHODCALLTYPE MoveFocus(COREWEBVIEW2_MOVE_FOCUS_REASON reason) = 0;  // 12
  LAB_EVENT_NOT_SERVED(MoveFocusRequested)                                                 // 13, 14
  LAB_EVENT_NOT_SERVED(GotFocus)                                                           // 15, 16
  LAB_EVENT_NOT_SERVED(LostFocus)                                                          // 17, 18
  LAB_EVENT_NOT_SERVED(AcceleratorKeyPressed)                                              // 19, 20
  virtual HRESULT STDMETHODCALLTYPE get_ParentWindow(HWND* parent) = 0;                    // 21
  LAB_NOT_SERVED(put_ParentWindow, HWND)                                                   // 22
  virtual HRESULT STDMETHODCALLTYPE NotifyParentWindowPositionChanged() = 0;               // 23
  virtual HRESULT STDMETHODCALLTYPE Close() = 0;                                           // 24
  virtual HRESULT STDMETHODCALLTYPE get_CoreWebView2(ICoreWebView2** webview) = 0;         // 25

 protected:
  ~ICoreWebView2Controller() = default;
};

struct ICoreWebView2Controller2 : public ICoreWebView2Controller {
  virtual HRESULT STDMETHODCALLTYPE
  get_DefaultBackgroundColor(COREWEBVIEW2_COLOR* color) = 0;                                   // 26
  virtual HRESULT STDMETHODCALLTYPE put_DefaultBackgroundColor(COREWEBVIEW2_COLOR color) = 0;  // 27

 protected:
  ~ICoreWebView2Controller2() = default;
};

}  // namespace browser
