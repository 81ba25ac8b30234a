#include <dwmapi.h>

#include <string>
#include <utility>

#include "shell/main_window.h"
#include "shell/window_messages.h"
#include "text/utf8.h"

namespace shell {
namespace {

constexpr wchar_t kNotReconnected[] = L"警告：自动重连未成功（";
constexpr wchar_t kTryingOn[] = L"），将继续重试。";

void AskForDarkTitleBar(HWND window) {
  constexpr DWORD kUseImmersiveDarkMode = 20;  // DWMWA_USE_IMMERSIVE_DARK_MODE
  const BOOL dark = TRUE;
  ::DwmSetWindowAttribute(window, kUseImmersiveDarkMode, &dark, sizeof(dark));
}

}  // namespace

LRESULT MainWindow::OnCreate(HWND window) noexcept {
  try {
    window_ = window;
    Create();
    return 0;
  } catch (...) {
    return -1;
  }
}

void MainWindow::Create() {
  // WebView2 requires a single-threaded apartment before its first call.
  apartment_ = std::make_unique<ComApartment>();
  controls_.gdi.Create();
  ObserveTunnel();
  notices_ = deps_->Subscribe(window_);
  AskForDarkTitleBar(window_);
  AddReportItem(window_);
  StartPage();
  LayOut(window_);
  client_.Start();
  // Before any job of this run adds proxy entries of its own.
  const std::wstring leftovers = deps_->RemoveLeftovers();
  if (!leftovers.empty()) client_.Log(leftovers);
  client_.Warn(deps_->UnsuitableComputer());
  // It needs the settings that Start() has loaded: they name the service.
  StartUpdateCheck();
}

// The tunnel reports on its own threads, so the callbacks only post. They copy the window, because
// window_ belongs to the window's thread.
void MainWindow::ObserveTunnel() {
  const HWND window = window_;
  tunnel::TunnelObserver observer;
  observer.linkChanged = [window](bool connected) {
    ::PostMessageW(window, kLinkChanged, connected ? 1 : 0, 0);
  };
  observer.reconnectFailed = [window](const std::string& reason) {
    PostText(window, kNotice, kNotReconnected + text::FromUtf8(reason) + kTryingOn);
  };
  observer.notice = [window](const std::wstring& line) { PostText(window, kNotice, line); };
  observer.udpChanged = [window](bool ready) {
    ::PostMessageW(window, kUdpChanged, ready ? 1 : 0, 0);
  };
  client_.Tunnel().Observe(std::move(observer));
}

void MainWindow::StartPage() {
  web_ = deps_->CreateWebHost(window_,
                              [this](webview::WebEvent event) { OnWebEvent(std::move(event)); });
}

// Called inside the browser control's own calls. Everything but a log line is posted: WebView2
// gives no callbacks for objects created here, nor inside a message box shown here.
void MainWindow::OnWebEvent(webview::WebEvent event) {
  switch (event.kind) {
    case webview::WebEvent::Kind::Log:
      return client_.Log(event.text);
    case webview::WebEvent::Kind::PageMessage:
      PostText(window_, kFromPage, std::move(event.text));
      return;
    case webview::WebEvent::Kind::EnvironmentFailed:
      return PostFailure(event.text);
    case webview::WebEvent::Kind::ProcessFailed:
      ::PostMessageW(window_, kBrowserFailed, static_cast<WPARAM>(event.process), 0);
      return;
    case webview::WebEvent::Kind::OtherFolderWanted:
      ::PostMessageW(window_, kMakePageAnew, 0, 0);
      return;
  }
}

LRESULT MainWindow::OnClose() {
  client_.RequestEnd();
  // While its parent is whole: a control whose parent is destroyed first calls its handlers once
  // more, with null.
  if (web_) web_->Close();
  ::DestroyWindow(window_);
  return 0;
}

// First end everything the worker could be waiting for, then join it, then save its results.
LRESULT MainWindow::OnDestroy() {
  // Once more, for a window that is destroyed without WM_CLOSE.
  client_.RequestEnd();
  if (web_) web_->Close();
  client_.DisarmRetry();
  notices_.reset();
  endings_.clear();  // joins them
  StopTunnel();
  JoinWorker();
  ForgetPassword();  // the worker may have copied it until now
  client_.SaveUnsaved();
  controls_.gdi.Delete();
  // Texts in the queue have no other owner.
  DropPostedTexts(window_);
  ::PostQuitMessage(0);
  return 0;
}

void MainWindow::StopTunnel() noexcept {
  try {
    client_.Tunnel().StopForGood();
  } catch (...) {  // the window closes all the same, and with it the log
  }
}

LRESULT MainWindow::OnNcDestroy(WPARAM wParam, LPARAM lParam) {
  const HWND window = std::exchange(window_, nullptr);
  // Any later message finds no object and is left to the system.
  ::SetWindowLongPtrW(window, GWLP_USERDATA, 0);
  // It holds COM objects, which must not outlive the apartment.
  web_.reset();
  apartment_.reset();
  return ::DefWindowProcW(window, WM_NCDESTROY, wParam, lParam);
}

}  // namespace shell
