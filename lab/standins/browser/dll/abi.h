#pragma once

#include <eventtoken.h>
#include <unknwn.h>

// The published binary interface of the browser runtime, as this stand-in implements it: plain
// types, interface ids, callback interfaces and the objects' method tables, in which the order of
// the methods matters. Written independently of the program's own declarations, so that each checks
// the other.

// Release() destroys COM objects; a virtual destructor would take slots in the published tables.
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

// Every call returns this after Close and after the destruction of the parent window.
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

// The host's callback objects: one method in slot 3. Invoke() borrows its arguments.
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

// A method that the stand-in does not implement but whose slot must exist. Its parameters are
// irrelevant, because on x64 the caller cleans up.
#define LAB_NOT_IMPLEMENTED(name, ...)                  \
  virtual HRESULT STDMETHODCALLTYPE name(__VA_ARGS__) { \
    return E_NOTIMPL;                                   \
  }
#define LAB_EVENT_NOT_IMPLEMENTED(name)                               \
  LAB_NOT_IMPLEMENTED(add_##name, IUnknown*, EventRegistrationToken*) \
  LAB_NOT_IMPLEMENTED(remove_##name, EventRegistrationToken)

struct ICoreWebView2Environment : public IUnknown {
  virtual HRESULT STDMETHODCALLTYPE
  CreateCoreWebView2Controller(HWND parent, ControllerCompletedHandler* handler) = 0;  // 3
  LAB_NOT_IMPLEMENTED(CreateWebResourceResponse, IUnknown*, int, LPCWSTR, LPCWSTR, IUnknown**)
  virtual HRESULT STDMETHODCALLTYPE get_BrowserVersionString(LPWSTR* version) = 0;  // 5
  LAB_EVENT_NOT_IMPLEMENTED(NewBrowserVersionAvailable)                             // 6, 7

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

struct ICoreWebView2 : public IUnknown {
  virtual HRESULT STDMETHODCALLTYPE get_Settings(ICoreWebView2Settings** settings) = 0;  // 3
  virtual HRESULT STDMETHODCALLTYPE get_Source(LPWSTR* uri) = 0;                         // 4
  virtual HRESULT STDMETHODCALLTYPE Navigate(LPCWSTR uri) = 0;                           // 5
  virtual HRESULT STDMETHODCALLTYPE NavigateToString(LPCWSTR html) = 0;                  // 6
  LAB_EVENT_NOT_IMPLEMENTED(NavigationStarting)                                          // 7, 8
  LAB_EVENT_NOT_IMPLEMENTED(ContentLoading)                                              // 9, 10
  LAB_EVENT_NOT_IMPLEMENTED(SourceChanged)                                               // 11, 12
  LAB_EVENT_NOT_IMPLEMENTED(HistoryChanged)                                              // 13, 14
  virtual HRESULT STDMETHODCALLTYPE add_NavigationCompleted(
      NavigationCompletedHandler* handler, EventRegistrationToken* token) = 0;  // 15
  virtual HRESULT STDMETHODCALLTYPE remove_NavigationCompleted(EventRegistrationToken token) = 0;
  LAB_EVENT_NOT_IMPLEMENTED(FrameNavigationStarting)   // 17, 18
  LAB_EVENT_NOT_IMPLEMENTED(FrameNavigationCompleted)  // 19, 20
  LAB_EVENT_NOT_IMPLEMENTED(ScriptDialogOpening)       // 21, 22
  LAB_EVENT_NOT_IMPLEMENTED(PermissionRequested)       // 23, 24
  virtual HRESULT STDMETHODCALLTYPE add_ProcessFailed(ProcessFailedHandler* handler,
                                                      EventRegistrationToken* token) = 0;  // 25
  virtual HRESULT STDMETHODCALLTYPE remove_ProcessFailed(EventRegistrationToken token) = 0;
  LAB_NOT_IMPLEMENTED(AddScriptToExecuteOnDocumentCreated, LPCWSTR, IUnknown*)  // 27
  LAB_NOT_IMPLEMENTED(RemoveScriptToExecuteOnDocumentCreated, LPCWSTR)          // 28
  LAB_NOT_IMPLEMENTED(ExecuteScript, LPCWSTR, IUnknown*)                        // 29
  LAB_NOT_IMPLEMENTED(CapturePreview, int, IUnknown*, IUnknown*)                // 30
  LAB_NOT_IMPLEMENTED(Reload)                                                   // 31
  virtual HRESULT STDMETHODCALLTYPE PostWebMessageAsJson(LPCWSTR json) = 0;     // 32
  virtual HRESULT STDMETHODCALLTYPE PostWebMessageAsString(LPCWSTR text) = 0;   // 33
  virtual HRESULT STDMETHODCALLTYPE add_WebMessageReceived(
      WebMessageReceivedHandler* handler, EventRegistrationToken* token) = 0;  // 34
  virtual HRESULT STDMETHODCALLTYPE remove_WebMessageReceived(EventRegistrationToken token) = 0;
  LAB_NOT_IMPLEMENTED(CallDevToolsProtocolMethod, LPCWSTR, LPCWSTR, IUnknown*)  // 36
  LAB_NOT_IMPLEMENTED(get_BrowserProcessId, UINT32*)                            // 37
  LAB_NOT_IMPLEMENTED(get_CanGoBack, BOOL*)                                     // 38
  LAB_NOT_IMPLEMENTED(get_CanGoForward, BOOL*)                                  // 39
  LAB_NOT_IMPLEMENTED(GoBack)                                                   // 40
  LAB_NOT_IMPLEMENTED(GoForward)                                                // 41
  LAB_NOT_IMPLEMENTED(GetDevToolsProtocolEventReceiver, LPCWSTR, IUnknown**)    // 42
  LAB_NOT_IMPLEMENTED(Stop)                                                     // 43
  LAB_EVENT_NOT_IMPLEMENTED(NewWindowRequested)                                 // 44, 45
  LAB_EVENT_NOT_IMPLEMENTED(DocumentTitleChanged)                               // 46, 47
  LAB_NOT_IMPLEMENTED(get_DocumentTitle, LPWSTR*)                               // 48
  LAB_NOT_IMPLEMENTED(AddHostObjectToScript, LPCWSTR, void*)                    // 49
  LAB_NOT_IMPLEMENTED(RemoveHostObjectFromScript, LPCWSTR)                      // 50
  LAB_NOT_IMPLEMENTED(OpenDevToolsWindow)                                       // 51
  LAB_EVENT_NOT_IMPLEMENTED(ContainsFullScreenElementChanged)                   // 52, 53
  LAB_NOT_IMPLEMENTED(get_ContainsFullScreenElement, BOOL*)                     // 54
  LAB_EVENT_NOT_IMPLEMENTED(WebResourceRequested)                               // 55, 56
  LAB_NOT_IMPLEMENTED(AddWebResourceRequestedFilter, LPCWSTR, int)              // 57
  LAB_NOT_IMPLEMENTED(RemoveWebResourceRequestedFilter, LPCWSTR, int)           // 58
  LAB_EVENT_NOT_IMPLEMENTED(WindowCloseRequested)                               // 59, 60

 protected:
  ~ICoreWebView2() = default;
};

struct ICoreWebView2Controller : public IUnknown {
  virtual HRESULT STDMETHODCALLTYPE get_IsVisible(BOOL* visible) = 0;                      // 3
  virtual HRESULT STDMETHODCALLTYPE put_IsVisible(BOOL visible) = 0;                       // 4
  virtual HRESULT STDMETHODCALLTYPE get_Bounds(RECT* bounds) = 0;                          // 5
  virtual HRESULT STDMETHODCALLTYPE put_Bounds(RECT bounds) = 0;                           // 6
  LAB_NOT_IMPLEMENTED(get_ZoomFactor, double*)                                             // 7
  LAB_NOT_IMPLEMENTED(put_ZoomFactor, double)                                              // 8
  LAB_EVENT_NOT_IMPLEMENTED(ZoomFactorChanged)                                             // 9, 10
  LAB_NOT_IMPLEMENTED(SetBoundsAndZoomFactor, RECT, double)                                // 11
  virtual HRESULT STDMETHODCALLTYPE MoveFocus(COREWEBVIEW2_MOVE_FOCUS_REASON reason) = 0;  // 12
  LAB_EVENT_NOT_IMPLEMENTED(MoveFocusRequested)                                            // 13, 14
  LAB_EVENT_NOT_IMPLEMENTED(GotFocus)                                                      // 15, 16
  LAB_EVENT_NOT_IMPLEMENTED(LostFocus)                                                     // 17, 18
  LAB_EVENT_NOT_IMPLEMENTED(AcceleratorKeyPressed)                                         // 19, 20
  virtual HRESULT STDMETHODCALLTYPE get_ParentWindow(HWND* parent) = 0;                    // 21
  LAB_NOT_IMPLEMENTED(put_ParentWindow, HWND)                                              // 22
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
