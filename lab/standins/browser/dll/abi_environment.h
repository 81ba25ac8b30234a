#pragma once

#include "abi_types.h"

namespace browser {

struct ICoreWebView2Environment : public IUnknown {
  virtual HRESULT STDMETHODCALLTYPE
  CreateCoreWebView2Controller(HWND parent, ControllerCompletedHandler* handler) = 0;  // 3
  LAB_NOT_SERVED(CreateWebResourceResponse, IUnknown*, int, LPCWSTR, LPCWSTR, IUnknown**)
  virtual HRESULT STDMETHODCALLTYPE get_BrowserVersionString(LPWSTR* version) = 0;  // 5
  LAB_EVENT_NOT_SERVED(NewBrowserVersionAvailable)                                  // 6, 7

 protected:
  ~ICoreWebView2Environment() = default;
};

struct ICoreWebView2Settings : public IUnknown {
  virtual HRESULT STDMETHODCALLTYPE get_IsScriptEnabled(BOOL* on) = 0;  // 3
  virtual HRESULT STDMETHODCALLTYPE put_IsScriptEnabled(BOOL on) = 0;
  virtual HRESULT STDMETHODCALLTYPE get_IsWebMessageEnabled(BOOL* on) = 0;  // 5
  virtual HRESULT STDMETHODCALLTYPE put_IsWebMessageEnabled(BOOL on) = 0;
  virtual HRESULT STDMETHODCALLTYPE get_AreDefaultScriptDialogsEnabled(BOOL* on) = 0;  // 7
  virtual HRESULT STDMETHODCALLTYPE put_AreDefaultScriptDialogsEnabled(BOOL on) = 0;
  virtual HRESULT STDMETHODCALLTYPE get_IsStatusBarEnabled(BOOL* on) = 0;  // 9
  virtual HRESULT STDMETHODCALLTYPE put_IsStatusBarEnabled(BOOL on) = 0;
  virtual HRESULT STDMETHODCALLTYPE get_AreDevToolsEnabled(BOOL* on) = 0;  // 11
  virtual HRESULT STDMETHODCALLTYPE put_AreDevToolsEnabled(BOOL on) = 0;
  virtual HRESULT STDMETHODCALLTYPE get_AreDefaultContextMenusEnabled(BOOL* on) = 0;  // 13
  virtual HRESULT STDMETHODCALLTYPE put_AreDefaultContextMenusEnabled(BOOL on) = 0;
  virtual HRESULT STDMETHODCALLTYPE get_AreHostObjectsAllowed(BOOL* on) = 0;  // 15
  virtual HRESULT STDMETHODCALLTYPE put_AreHostObjectsAllowed(BOOL on) = 0;
  virtual HRESULT STDMETHODCALLTYPE get_IsZoomControlEnabled(BOOL* on) = 0;  // 17
  virtual HRESULT STDMETHODCALLTYPE put_IsZoomControlEnabled(BOOL on) = 0;
  virtual HRESULT STDMETHODCALLTYPE get_IsBuiltInErrorPageEnabled(BOOL* on) = 0;  // 19
  virtual HRESULT STDMETHODCALLTYPE put_IsBuiltInErrorPageEnabled(BOOL on) = 0;

 protected:
  ~ICoreWebView2Settings() = default;
};

}  // namespace browser
