#pragma once

#include <string>

#include "webview/webview2.h"

namespace webview {

// Finds the WebView2 runtime, loads its library and has it make an environment with its standard
// options, keeping the browser's data in `userDataFolder`. The runtime is an installed one
// (runtime_search.h); no environment variable has a say in that.
//
// The result goes to `handler`, before or after this call returns. A failing HRESULT means that the
// handler may never be called; ERROR_FILE_NOT_FOUND stands for "no runtime on this computer".
// The library stays loaded for the life of the process.
//
// Threads: a single-threaded apartment whose message loop goes on running.
HRESULT CreateCoreWebView2EnvironmentWithOptions(
    const std::wstring& userDataFolder,
    ICoreWebView2CreateCoreWebView2EnvironmentCompletedHandler* handler);

}  // namespace webview
