#pragma once

#include "abi_types.h"

namespace browser {

struct ICoreWebView2 : public IUnknown {
  virtual HRESULT STDMETHODCALLTYPE get_Settings(ICoreWebView2Settings** settings) = 0;  // 3
  virtual HRESULT STDMETHODCALLTYPE get_Source(LPWSTR* uri) = 0;                         // 4
  virtual HRESULT STDMETHODCALLTYPE Navigate(LPCWSTR uri) = 0;                           // 5
  virtual HRESULT STDMETHODCALLTYPE NavigateToString(LPCWSTR html) = 0;                  // 6
  LAB_EVENT_NOT_SERVED(NavigationStarting)                                               // 7, 8
  LAB_EVENT_NOT_SERVED(ContentLoading)                                                   // 9, 10
  LAB_EVENT_NOT_SERVED(SourceChanged)                                                    // 11, 12
  LAB_EVENT_NOT_SERVED(HistoryChanged)                                                   // 13, 14
  virtual HRESULT STDMETHODCALLTYPE add_NavigationCompleted(
      NavigationCompletedHandler* handler, EventRegistrationToken* token) = 0;  // 15
  virtual HRESULT STDMETHODCALLTYPE remove_NavigationCompleted(EventRegistrationToken token) = 0;
  LAB_EVENT_NOT_SERVED(FrameNavigationStarting)   // 17, 18
  LAB_EVENT_NOT_SERVED(FrameNavigationCompleted)  // 19, 20
  LAB_EVENT_NOT_SERVED(ScriptDialogOpening)       // 21, 22
  LAB_EVENT_NOT_SERVED(PermissionRequested)       // 23, 24
  virtual HRESULT STDMETHODCALLTYPE add_ProcessFailed(ProcessFailedHandler* handler,
                                                      EventRegistrationToken* token) = 0;  // 25
  virtual HRESULT STDMETHODCALLTYPE remove_ProcessFailed(EventRegistrationToken token) = 0;
  LAB_NOT_SERVED(AddScriptToExecuteOnDocumentCreated, LPCWSTR, IUnknown*)      // 27
  LAB_NOT_SERVED(RemoveScriptToExecuteOnDocumentCreated, LPCWSTR)              // 28
  LAB_NOT_SERVED(ExecuteScript, LPCWSTR, IUnknown*)                            // 29
  LAB_NOT_SERVED(CapturePreview, int, IUnknown*, IUnknown*)                    // 30
  LAB_NOT_SERVED(Reload)                                                       // 31
  virtual HRESULT STDMETHODCALLTYPE PostWebMessageAsJson(LPCWSTR json) = 0;    // 32
  virtual HRESULT STDMETHODCALLTYPE PostWebMessageAsString(LPCWSTR text) = 0;  // 33
  virtual HRESULT STDMETHODCALLTYPE add_WebMessageReceived(
      WebMessageReceivedHandler* handler, EventRegistrationToken* token) = 0;  // 34
  virtual HRESULT STDMETHODCALLTYPE remove_WebMessageReceived(EventRegistrationToken token) = 0;
  LAB_NOT_SERVED(CallDevToolsProtocolMethod, LPCWSTR, LPCWSTR, IUnknown*)  // 36
  LAB_NOT_SERVED(get_BrowserProcessId, UINT32*)                            // 37
  LAB_NOT_SERVED(get_CanGoBack, BOOL*)                                     // 38
  LAB_NOT_SERVED(get_CanGoForward, BOOL*)                                  // 39
  LAB_NOT_SERVED(GoBack)                                                   // 40
  LAB_NOT_SERVED(GoForward)                                                // 41
  LAB_NOT_SERVED(GetDevToolsProtocolEventReceiver, LPCWSTR, IUnknown**)    // 42
  LAB_NOT_SERVED(Stop)                                                     // 43
  LAB_EVENT_NOT_SERVED(NewWindowRequested)                                 // 44, 45
  LAB_EVENT_NOT_SERVED(DocumentTitleChanged)                               // 46, 47
  LAB_NOT_SERVED(get_DocumentTitle, LPWSTR*)                               // 48
  LAB_NOT_SERVED(AddHostObjectToScript, LPCWSTR, void*)                    // 49
  LAB_NOT_SERVED(RemoveHostObjectFromScript, LPCWSTR)                      // 50
  LAB_NOT_SERVED(OpenDevToolsWindow)                                       // 51
  LAB_EVENT_NOT_SERVED(ContainsFullScreenElementChanged)                   // 52, 53
  LAB_NOT_SERVED(get_ContainsFullScreenElement, BOOL*)                     // 54
  LAB_EVENT_NOT_SERVED(WebResourceRequested)                               // 55, 56
  LAB_NOT_SERVED(AddWebResourceRequestedFilter, LPCWSTR, int)              // 57
  LAB_NOT_SERVED(RemoveWebResourceRequestedFilter, LPCWSTR, int)           // 58
  LAB_EVENT_NOT_SERVED(WindowCloseRequested)                               // 59, 60

 protected:
  ~ICoreWebView2() = default;
};

}  // namespace browser
