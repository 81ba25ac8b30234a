#pragma once

#include "platform/windows_sdk.h"
// clang-format off
#include <eventtoken.h>
#include <unknwn.h>
// clang-format on

#include "webview/browser_failures.h"

// The part of WebView2's binary interface that the program uses: interface ids, and methods in the
// order of the function tables. A numbered placeholder keeps the slot of a method that is not
// called (slots 0-2 are IUnknown's); each interface ends at the last method called. COM's usual
// contract applies: HRESULTs, borrowed arguments, AddRef'd results, everything on the thread that
// created the environment.
//
// -Wnon-virtual-dtor: COM objects are destroyed through Release. A virtual destructor would add a
// slot to the function table and move the others.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wnon-virtual-dtor"

#define WEBVIEW2_UNUSED_SLOT(number) virtual HRESULT STDMETHODCALLTYPE Slot##number() = 0

namespace webview {

struct ICoreWebView2;
struct ICoreWebView2Controller;
struct ICoreWebView2Environment;
struct ICoreWebView2ProcessFailedEventArgs;
struct ICoreWebView2WebMessageReceivedEventArgs;

inline constexpr GUID kIidEnvironment = {
    0xb96d755e, 0x0319, 0x4e92, {0xa2, 0x96, 0x23, 0x43, 0x6f, 0x46, 0xa1, 0xfc}};
inline constexpr GUID kIidController = {
    0x4d00c0d1, 0x9434, 0x4eb6, {0x80, 0x78, 0x86, 0x97, 0xa5, 0x60, 0x33, 0x4f}};
inline constexpr GUID kIidWebView = {
    0x76eceacb, 0x0462, 0x4d94, {0xac, 0x83, 0x42, 0x3a, 0x67, 0x93, 0x77, 0x5e}};
inline constexpr GUID kIidWebMessageReceivedEventArgs = {
    0x0f99a40c, 0xe962, 0x4207, {0x9e, 0x92, 0xe3, 0xd5, 0x42, 0xef, 0xf8, 0x49}};
inline constexpr GUID kIidProcessFailedEventArgs = {
    0x8155a9a4, 0x1474, 0x4a86, {0x8c, 0xae, 0x15, 0x1b, 0x0f, 0xa6, 0xb8, 0xca}};
inline constexpr GUID kIidEnvironmentCompletedHandler = {
    0x4e8a3389, 0xc9d8, 0x4bd2, {0xb6, 0xb5, 0x12, 0x4f, 0xee, 0x6c, 0xc1, 0x4d}};
inline constexpr GUID kIidControllerCompletedHandler = {
    0x6c4819f3, 0xc9b7, 0x4260, {0x81, 0x27, 0xc9, 0xf5, 0xbd, 0xe7, 0xf6, 0x8c}};
inline constexpr GUID kIidWebMessageReceivedHandler = {
    0x57213f19, 0x00e6, 0x49fa, {0x8e, 0x07, 0x89, 0x8e, 0xa0, 0x1e, 0xcb, 0xd2}};
inline constexpr GUID kIidProcessFailedHandler = {
    0x79e0aea4, 0x990b, 0x42d9, {0xaa, 0x1d, 0x0f, 0xcc, 0x2e, 0x5b, 0xc7, 0xf1}};

// Returned by a control whose browser has exited, whose window is gone, or which was closed.
inline constexpr HRESULT kControlGone = static_cast<HRESULT>(0x8007139F);

// Implemented by the program, called by the runtime. On failure the second argument is null.
struct ICoreWebView2CreateCoreWebView2EnvironmentCompletedHandler : IUnknown {
  virtual HRESULT STDMETHODCALLTYPE Invoke(HRESULT result,
                                           ICoreWebView2Environment* environment) = 0;
};

struct ICoreWebView2CreateCoreWebView2ControllerCompletedHandler : IUnknown {
  virtual HRESULT STDMETHODCALLTYPE Invoke(HRESULT result, ICoreWebView2Controller* controller) = 0;
};

struct ICoreWebView2WebMessageReceivedEventHandler : IUnknown {
  virtual HRESULT STDMETHODCALLTYPE Invoke(ICoreWebView2* sender,
                                           ICoreWebView2WebMessageReceivedEventArgs* args) = 0;
};

struct ICoreWebView2ProcessFailedEventHandler : IUnknown {
  virtual HRESULT STDMETHODCALLTYPE Invoke(ICoreWebView2* sender,
                                           ICoreWebView2ProcessFailedEventArgs* args) = 0;
};

struct ICoreWebView2ProcessFailedEventArgs : IUnknown {
  virtual HRESULT STDMETHODCALLTYPE get_ProcessFailedKind(ProcessFailedKind* kind) = 0;
};

struct ICoreWebView2WebMessageReceivedEventArgs : IUnknown {
  WEBVIEW2_UNUSED_SLOT(3);
  WEBVIEW2_UNUSED_SLOT(4);
  // Fails with E_INVALIDARG for a message that is not a string. Free the text with CoTaskMemFree.
  virtual HRESULT STDMETHODCALLTYPE TryGetWebMessageAsString(LPWSTR* text) = 0;
};

struct ICoreWebView2Environment : IUnknown {
  virtual HRESULT STDMETHODCALLTYPE CreateCoreWebView2Controller(
      HWND parent, ICoreWebView2CreateCoreWebView2ControllerCompletedHandler* handler) = 0;
};

enum class MoveFocusReason : int { Programmatic = 0, Next = 1, Previous = 2 };

struct ICoreWebView2Controller : IUnknown {
  WEBVIEW2_UNUSED_SLOT(3);
  virtual HRESULT STDMETHODCALLTYPE put_IsVisible(BOOL visible) = 0;
  WEBVIEW2_UNUSED_SLOT(5);
  virtual HRESULT STDMETHODCALLTYPE put_Bounds(RECT bounds) = 0;  // parent's client coordinates
  WEBVIEW2_UNUSED_SLOT(7);
  WEBVIEW2_UNUSED_SLOT(8);
  WEBVIEW2_UNUSED_SLOT(9);
  WEBVIEW2_UNUSED_SLOT(10);
  WEBVIEW2_UNUSED_SLOT(11);
  virtual HRESULT STDMETHODCALLTYPE MoveFocus(MoveFocusReason reason) = 0;
  WEBVIEW2_UNUSED_SLOT(13);
  WEBVIEW2_UNUSED_SLOT(14);
  WEBVIEW2_UNUSED_SLOT(15);
  WEBVIEW2_UNUSED_SLOT(16);
  WEBVIEW2_UNUSED_SLOT(17);
  WEBVIEW2_UNUSED_SLOT(18);
  WEBVIEW2_UNUSED_SLOT(19);
  WEBVIEW2_UNUSED_SLOT(20);
  WEBVIEW2_UNUSED_SLOT(21);
  WEBVIEW2_UNUSED_SLOT(22);
  virtual HRESULT STDMETHODCALLTYPE NotifyParentWindowPositionChanged() = 0;
  virtual HRESULT STDMETHODCALLTYPE Close() = 0;  // synchronous; every later call fails
  virtual HRESULT STDMETHODCALLTYPE get_CoreWebView2(ICoreWebView2** webView) = 0;
};

struct ICoreWebView2 : IUnknown {
  WEBVIEW2_UNUSED_SLOT(3);
  WEBVIEW2_UNUSED_SLOT(4);
  virtual HRESULT STDMETHODCALLTYPE Navigate(LPCWSTR url) = 0;
  virtual HRESULT STDMETHODCALLTYPE NavigateToString(LPCWSTR html) = 0;  // below 1.5 MB
  WEBVIEW2_UNUSED_SLOT(7);
  WEBVIEW2_UNUSED_SLOT(8);
  WEBVIEW2_UNUSED_SLOT(9);
  WEBVIEW2_UNUSED_SLOT(10);
  WEBVIEW2_UNUSED_SLOT(11);
  WEBVIEW2_UNUSED_SLOT(12);
  WEBVIEW2_UNUSED_SLOT(13);
  WEBVIEW2_UNUSED_SLOT(14);
  WEBVIEW2_UNUSED_SLOT(15);
  WEBVIEW2_UNUSED_SLOT(16);
  WEBVIEW2_UNUSED_SLOT(17);
  WEBVIEW2_UNUSED_SLOT(18);
  WEBVIEW2_UNUSED_SLOT(19);
  WEBVIEW2_UNUSED_SLOT(20);
  WEBVIEW2_UNUSED_SLOT(21);
  WEBVIEW2_UNUSED_SLOT(22);
  WEBVIEW2_UNUSED_SLOT(23);
  WEBVIEW2_UNUSED_SLOT(24);
  virtual HRESULT STDMETHODCALLTYPE add_ProcessFailed(
      ICoreWebView2ProcessFailedEventHandler* handler, EventRegistrationToken* token) = 0;
  virtual HRESULT STDMETHODCALLTYPE remove_ProcessFailed(EventRegistrationToken token) = 0;
  WEBVIEW2_UNUSED_SLOT(27);
  WEBVIEW2_UNUSED_SLOT(28);
  WEBVIEW2_UNUSED_SLOT(29);
  WEBVIEW2_UNUSED_SLOT(30);
  WEBVIEW2_UNUSED_SLOT(31);
  virtual HRESULT STDMETHODCALLTYPE PostWebMessageAsJson(LPCWSTR json) = 0;
  WEBVIEW2_UNUSED_SLOT(33);
  virtual HRESULT STDMETHODCALLTYPE add_WebMessageReceived(
      ICoreWebView2WebMessageReceivedEventHandler* handler, EventRegistrationToken* token) = 0;
  virtual HRESULT STDMETHODCALLTYPE remove_WebMessageReceived(EventRegistrationToken token) = 0;
};

}  // namespace webview

#undef WEBVIEW2_UNUSED_SLOT
#pragma GCC diagnostic pop
