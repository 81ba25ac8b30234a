#pragma once

// The published binary interface of the browser runtime, as this stand-in serves it: plain types,
// interface ids and the callback interfaces. The abi_*.h files declare the objects' method tables;
// the order of the methods is the interface. Written apart from the program's own declarations, so
// that each checks the other.

#include <eventtoken.h>
#include <unknwn.h>

// COM objects end by Release(); a virtual destructor would take slots of the published tables.
#pragma GCC diagnostic ignored "-Wnon-virtual-dtor"

namespace browser {

struct ICoreWebView2;
struct ICoreWebView2Controller;
struct ICoreWebView2Environment;
struct ICoreWebView2Settings;

// Channels of a colour, in this order in memory.
struct COREWEBVIEW2_COLOR {
  BYTE A;
  BYTE R;
  BYTE G;
  BYTE B;
};

enum COREWEBVIEW2_MOVE_FOCUS_REASON : int {
  kMoveFocusProgrammatic = 0,
  kMoveFocusNext = 1,
  kMoveFocusPrevious = 2,
};

using COREWEBVIEW2_WEB_ERROR_STATUS = int;

enum COREWEBVIEW2_PROCESS_FAILED_KIND : int {
  kBrowserProcessExited = 0,
  kRenderProcessExited = 1,
};

// What every call answers after Close and after the parent window is gone.
inline constexpr HRESULT kInvalidState = static_cast<HRESULT>(0x8007139F);

inline constexpr IID kIidUnknown = {0, 0, 0, {0xc0, 0, 0, 0, 0, 0, 0, 0x46}};
inline constexpr IID kIidEnvironment = {
    0xb96d755e, 0x0319, 0x4e92, {0xa2, 0x96, 0x23, 0x43, 0x6f, 0x46, 0xa1, 0xfc}};
inline constexpr IID kIidController = {
    0x4d00c0d1, 0x9434, 0x4eb6, {0x80, 0x78, 0x86, 0x97, 0xa5, 0x60, 0x33, 0x4f}};
inline constexpr IID kIidController2 = {
    0xc979903e, 0xd4ca, 0x4228, {0x92, 0xeb, 0x47, 0xee, 0x3f, 0xa9, 0x6e, 0xab}};
inline constexpr IID kIidWebView = {
    0x76eceacb, 0x0462, 0x4d94, {0xac, 0x83, 0x42, 0x3a, 0x67, 0x93, 0x77, 0x5e}};
inline constexpr IID kIidSettings = {
    0xe562e4f0, 0xd7fa, 0x43ac, {0x8d, 0x71, 0xc0, 0x51, 0x50, 0x49, 0x9f, 0x00}};
inline constexpr IID kIidWebMessageArgs = {
    0x0f99a40c, 0xe962, 0x4207, {0x9e, 0x92, 0xe3, 0xd5, 0x42, 0xef, 0xf8, 0x49}};
inline constexpr IID kIidNavigationCompletedArgs = {
    0x30d68b7d, 0x20d9, 0x4752, {0xa9, 0xca, 0xec, 0x84, 0x48, 0xfb, 0xb5, 0xc1}};
inline constexpr IID kIidProcessFailedArgs = {
    0x8155a9a4, 0x1474, 0x4a86, {0x8c, 0xae, 0x15, 0x1b, 0x0f, 0xa6, 0xb8, 0xca}};
inline constexpr IID kIidEnvironmentCompletedHandler = {
    0x4e8a3389, 0xc9d8, 0x4bd2, {0xb6, 0xb5, 0x12, 0x4f, 0xee, 0x6c, 0xc1, 0x4d}};

struct ICoreWebView2WebMessageReceivedEventArgs : public IUnknown {
  virtual HRESULT STDMETHODCALLTYPE get_Source(LPWSTR* source) = 0;              // 3
  virtual HRESULT STDMETHODCALLTYPE get_WebMessageAsJson(LPWSTR* json) = 0;      // 4
  virtual HRESULT STDMETHODCALLTYPE TryGetWebMessageAsString(LPWSTR* text) = 0;  // 5

 protected:
  ~ICoreWebView2WebMessageReceivedEventArgs() = default;
};

struct ICoreWebView2NavigationCompletedEventArgs : public IUnknown {
  virtual HRESULT STDMETHODCALLTYPE get_IsSuccess(BOOL* success) = 0;  // 3
  virtual HRESULT STDMETHODCALLTYPE get_WebErrorStatus(COREWEBVIEW2_WEB_ERROR_STATUS* status) = 0;
  virtual HRESULT STDMETHODCALLTYPE get_NavigationId(UINT64* id) = 0;  // 5

 protected:
  ~ICoreWebView2NavigationCompletedEventArgs() = default;
};

struct ICoreWebView2ProcessFailedEventArgs : public IUnknown {
  virtual HRESULT STDMETHODCALLTYPE
  get_ProcessFailedKind(COREWEBVIEW2_PROCESS_FAILED_KIND* kind) = 0;  // 3

 protected:
  ~ICoreWebView2ProcessFailedEventArgs() = default;
};

// The host's callback objects: one method in slot 3. What Invoke is given is borrowed.
template <typename First, typename Second>
struct Handler : public IUnknown {
  virtual HRESULT STDMETHODCALLTYPE Invoke(First first, Second second) = 0;

 protected:
  ~Handler() = default;
};

using EnvironmentCompletedHandler = Handler<HRESULT, ICoreWebView2Environment*>;
using ControllerCompletedHandler = Handler<HRESULT, ICoreWebView2Controller*>;
using WebMessageReceivedHandler =
    Handler<ICoreWebView2*, ICoreWebView2WebMessageReceivedEventArgs*>;
using NavigationCompletedHandler =
    Handler<ICoreWebView2*, ICoreWebView2NavigationCompletedEventArgs*>;
using ProcessFailedHandler = Handler<ICoreWebView2*, ICoreWebView2ProcessFailedEventArgs*>;

// A method that the stand-in does not serve; its slot is there. The arguments do not matter to the
// caller's side: on x64 the caller cleans up.
#define LAB_NOT_SERVED(name, ...)                       \
  virtual HRESULT STDMETHODCALLTYPE name(__VA_ARGS__) { \
    return E_NOTIMPL;                                   \
  }
#define LAB_EVENT_NOT_SERVED(name)                               \
  LAB_NOT_SERVED(add_##name, IUnknown*, EventRegistrationToken*) \
  LAB_NOT_SERVED(remove_##name, EventRegistrationToken)

}  // namespace browser
