#pragma once

#include <algorithm>
#include <functional>
#include <string>
#include <string_view>

#include "webview/browser_failures.h"

// The browser control as its owner sees it; web_create.h creates one.
namespace webview {

// A report of the host to its owner.
struct WebEvent {
  enum class Kind {
    Log,                // `text`: one line for the engineer
    PageMessage,        // `text`: a string that the page has posted
    EnvironmentFailed,  // `text`: the reason as logged, in two lines; there will be no page
    ProcessFailed,      // `process`: it has died or hangs
    OtherFolderWanted,  // the usual data folder failed; MakeAnew() tries the other one
  };
  Kind kind = Kind::Log;
  std::wstring text;
  ProcessFailedKind process = ProcessFailedKind::Unknown;
};

// Runs on the window's thread, also inside WebCreate, ShowPage and MakeAnew. WebView2 gives no
// callbacks inside a nested message loop here, and none for objects created here: a message box,
// ShowPage() and MakeAnew() must wait for a later message.
using WebEventHandler = std::function<void(WebEvent event)>;

// The browser control that covers the window. It comes up some time after WebCreate. Until then and
// after a failure every operation except MakeAnew() does nothing; after Close() that does nothing
// either.
//
// Threads: the window's only, a single-threaded apartment with a message loop.
// Errors:  failures to come up are events; later ones have no consequence.
class WebHost {
 public:
  WebHost() = default;
  virtual ~WebHost() = default;
  WebHost(const WebHost&) = delete;
  WebHost& operator=(const WebHost&) = delete;

  // True from the moment the control is up until Close() or MakeAnew().
  [[nodiscard]] virtual bool IsUp() const = 0;
  // False when the control refuses `json`: it is not valid JSON (a raw control character in a
  // string is enough) or holds U+0000, where the control would cut it. True otherwise, even while
  // the control is not up or its browser is gone.
  virtual bool PostJson(const std::wstring& json) = 0;
  // Covers the window's client area.
  virtual void FitToWindow() = 0;
  virtual void SetVisible(bool visible) = 0;
  virtual void WindowMoved() = 0;
  // Gives the page the keyboard focus.
  virtual void Focus() = 0;
  // Loads the page again into a control whose page is gone.
  virtual void ShowPage() = 0;
  // Closes the control and starts creating another one, as WebCreate does.
  virtual void MakeAnew() = 0;
  // Must be called before the window is destroyed; cancels a control that is coming up.
  virtual void Close() = 0;
};

// The address of the page for a program whose resources hold none: "app.html" beside the program
// (`programPath`, with backslashes) when that file exists, otherwise the page's place in a source
// tree above the build output, whether it exists or not. Pure.
inline std::wstring PageFileUrl(std::wstring_view programPath,
                                const std::function<bool(const std::wstring& path)>& fileExists) {
  const std::wstring folder(programPath.substr(0, programPath.rfind(L'\\')));
  std::wstring target = folder + L"\\app.html";
  if (!fileExists(target)) target = folder + L"\\..\\..\\..\\src\\VelmarineNative\\webui\\app.html";
  std::replace(target.begin(), target.end(), L'\\', L'/');
  return L"file:///" + target;
}

}  // namespace webview
