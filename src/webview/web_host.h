#pragma once

#include <functional>
#include <memory>
#include <string>

#include "webview/webview2.h"

namespace webview {

// What the host tells its owner. All calls come on the window's thread, also from inside WebCreate,
// ShowPage and MakeAnew. WebView2 gives no callbacks inside a nested message loop here, and none
// for what is created here: a message box, ShowPage() and MakeAnew() have to wait for a later
// message.
struct WebHostEvents {
  std::function<void(const std::wstring& text)> log;      // one status line for the engineer
  std::function<void(std::wstring message)> pageMessage;  // a string that the page has posted
  // The environment could not be made; `text` is the reason as logged, in two lines.
  std::function<void(const std::wstring& text)> environmentFailed;
  // A process of the browser has died or hangs.
  std::function<void(ProcessFailedKind kind)> processFailed;
  // The usual folder has not served. MakeAnew() tries the other one.
  std::function<void()> otherFolderWanted;
};

// The browser control that covers the window. Comes up by itself some time after WebCreate; until
// then and after a failure every operation but MakeAnew() does nothing, after Close() that, too.
//
// Threads: the window's thread only, a single-threaded apartment with a message loop.
// Errors:  failures to come up are told through the events; later ones are of no consequence.
class WebHost {
 public:
  WebHost() = default;
  virtual ~WebHost() = default;
  WebHost(const WebHost&) = delete;
  WebHost& operator=(const WebHost&) = delete;

  // True between the control's coming up and Close() or MakeAnew().
  [[nodiscard]] virtual bool IsUp() const = 0;
  // False: the control has refused `json`, which is no valid JSON (a raw control character in a
  // string is enough) or holds U+0000, at which the control would cut it. True otherwise, also
  // while the control is not up or its browser has gone.
  virtual bool PostJson(const std::wstring& json) = 0;
  // Covers the window's client area.
  virtual void FitToWindow() = 0;
  virtual void SetVisible(bool visible) = 0;
  virtual void WindowMoved() = 0;
  // Gives the page the keyboard.
  virtual void Focus() = 0;
  // Loads the page again into a control whose page has gone.
  virtual void ShowPage() = 0;
  // Closes the control and starts bringing up another one, as WebCreate does.
  virtual void MakeAnew() = 0;
  // To be called before the window is destroyed; ends what is still coming up, too.
  virtual void Close() = 0;
};

// Makes the environment; webview::CreateCoreWebView2EnvironmentWithOptions in the program.
using CreateEnvironment =
    std::function<HRESULT(const std::wstring& userDataFolder,
                          ICoreWebView2CreateCoreWebView2EnvironmentCompletedHandler* handler)>;

// Where the browser keeps its data.
struct DataFolders {
  std::wstring usual;
  // Another folder, for when the control cannot be made with the usual one; empty when there is
  // none. Asked at most once.
  std::function<std::wstring()> other;
};

// The page as the program carries it, empty when it does not; webview::PageFromResources in the
// program.
using ReadPage = std::function<std::wstring()>;

// Starts bringing up the control and its page in `window`, with the browser's data kept in
// `folders.usual`. Without a page to read, the control shows PageFileUrl(). Returns at once.
std::unique_ptr<WebHost> WebCreate(HWND window, DataFolders folders, WebHostEvents events,
                                   CreateEnvironment create, ReadPage readPage);

}  // namespace webview
