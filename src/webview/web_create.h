#pragma once

#include <functional>
#include <memory>
#include <string>

#include "webview/web_host.h"
#include "webview/webview2.h"

// Creates the browser control. Windows only.
namespace webview {

// Creates the environment; CreateCoreWebView2EnvironmentWithOptions in the program.
using CreateEnvironment =
    std::function<HRESULT(const std::wstring& userDataFolder,
                          ICoreWebView2CreateCoreWebView2EnvironmentCompletedHandler* handler)>;

// Where the browser keeps its data.
struct DataFolders {
  std::wstring usual;
  std::wstring other;  // tried once when the control cannot be created with `usual`; may be empty
};

// Returns the embedded page, or nothing; PageFromResources in the program.
using ReadPage = std::function<std::wstring()>;

// Starts creating the control and its page in `window`. Without an embedded page, the control shows
// PageFileUrl(). Returns at once.
std::unique_ptr<WebHost> WebCreate(HWND window, DataFolders folders, WebEventHandler onEvent,
                                   CreateEnvironment create, ReadPage readPage);

// The page in the program's resources, decoded; empty when there is none.
std::wstring PageFromResources();

// Finds an installed WebView2 runtime (runtime_search.h), loads its library and creates an
// environment with standard options and the browser's data in `userDataFolder`. Environment
// variables are ignored.
//
// The result goes to `handler`, before or after this call returns. After a failing HRESULT the
// handler may never be called; ERROR_FILE_NOT_FOUND means that no runtime is installed. The library
// stays loaded until the process ends.
//
// Threads: a single-threaded apartment whose message loop keeps running.
HRESULT CreateCoreWebView2EnvironmentWithOptions(
    const std::wstring& userDataFolder,
    ICoreWebView2CreateCoreWebView2EnvironmentCompletedHandler* handler);

}  // namespace webview
