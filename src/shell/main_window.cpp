#include "shell/main_window.h"

#include <exception>
#include <optional>
#include <utility>

#include "platform/computer.h"
#include "service/api_messages.h"
#include "shell/window_messages.h"

namespace shell {
namespace {

constexpr WORD kIcon = 301;

MainWindow* Of(HWND window) {
  return reinterpret_cast<MainWindow*>(::GetWindowLongPtrW(window, GWLP_USERDATA));
}

LRESULT CreateFor(HWND window, LPARAM lParam) noexcept {
  const auto* creation = reinterpret_cast<const CREATESTRUCTW*>(lParam);
  auto* main = static_cast<MainWindow*>(creation->lpCreateParams);
  // Before OnCreate(), whose calls may send messages to this window.
  ::SetWindowLongPtrW(window, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(main));
  return main->OnCreate(window);
}

LRESULT CALLBACK MainWindowProcedure(HWND window, UINT message, WPARAM wParam,
                                     LPARAM lParam) noexcept {
  // Comes before WM_CREATE too, when the window has no object yet.
  if (message == WM_GETMINMAXINFO) return OnMinMaxInfo(window, lParam);
  if (message == WM_CREATE) return CreateFor(window, lParam);
  MainWindow* const main = Of(window);
  // Before WM_CREATE and after WM_NCDESTROY.
  if (main == nullptr) return ::DefWindowProcW(window, message, wParam, lParam);
  try {
    return main->Handle(message, wParam, lParam);
  } catch (...) {
    // An exception must not unwind through Windows' frames. The window continues.
    main->Report(service::JobFailureLine(std::current_exception()));
  }
  return 0;
}

// Jobs, actions, commands and the retry save the settings.
bool MayHaveSaved(UINT message) {
  return CarriesText(message) || message == WM_COMMAND || message == WM_TIMER;
}

// Keeps the place that the system chose, unless part of the window would lie outside the screen.
void TakeFirstSize(HWND window) {
  const PixelArea room = WorkAreaOf(window);
  RECT placed{};
  ::GetWindowRect(window, &placed);
  const PixelSize size = FitInto(kFirstSize, room.size);
  const PixelArea place = MoveInto({placed.left, placed.top, size}, room);
  const bool stays = place.left == placed.left && place.top == placed.top;
  const UINT kept = SWP_NOZORDER | SWP_NOACTIVATE | (stays ? SWP_NOMOVE : 0U);
  ::SetWindowPos(window, nullptr, place.left, place.top, size.width, size.height, kept);
}

}  // namespace

MainWindow::MainWindow(std::shared_ptr<WindowDeps> deps)
    : deps_(std::move(deps)), client_(*this, deps_->OpenSettings(), deps_->MakeTunnel()) {}

void MainWindow::Report(const std::wstring& text) noexcept {
  try {
    client_.Log(text);
  } catch (...) {  // no memory for the line either
  }
}

LRESULT MainWindow::Default(UINT message, WPARAM wParam, LPARAM lParam) const {
  return ::DefWindowProcW(window_, message, wParam, lParam);
}

LRESULT MainWindow::Handle(UINT message, WPARAM wParam, LPARAM lParam) {
  LRESULT result = 0;
  if (CarriesText(message)) {
    // Owned before it is handled, so that an exception does not leak it. Other programs may post
    // the number without a text.
    const std::unique_ptr<std::wstring> text = TakePostedText(lParam);
    HandleText(message, text ? std::move(*text) : std::wstring());
  } else {
    result = HandleWindow(message, wParam, lParam);
  }
  if (MayHaveSaved(message)) client_.LogSettingsReports();
  return result;
}

// The messages of CarriesText().
void MainWindow::HandleText(UINT message, std::wstring text) {
  switch (message) {
    case kJobFinished:
      return client_.FinishJob(text);
    case kHeartbeatRefused:
      // Nothing in the program sends this one today.
      return client_.OnHeartbeatRefused(std::move(text));
    case kNotice:
      return client_.Notice(text);
    case kFromPage:
      return client_.HandlePageMessage(text);
    case kToPage:
      return client_.DeliverToPage(std::move(text));
    case kShowFailure:
      return deps_->ShowMessageBox(window_, text);
    default:
      return;
  }
}

LRESULT MainWindow::HandleWindow(UINT message, WPARAM wParam, LPARAM lParam) {
  switch (message) {
    case kIgnored:
      return 0;
    case kLinkChanged:
      client_.OnLinkChanged(wParam != 0);
      return 0;
    case kUdpChanged:
      client_.OnUdpChanged(wParam != 0);
      return 0;
    case kBrowserFailed:
      client_.OnBrowserFailed(static_cast<webview::ProcessFailedKind>(wParam));
      return 0;
    case kMakePageAnew:
      if (web_) web_->MakeAnew();  // posted: must not run inside a callback of WebView2
      return 0;
    case kAddressesChanged:
      return OnAddressesChanged();
    case WM_POWERBROADCAST:
      return OnPowerBroadcast(wParam);
    case WM_WTSSESSION_CHANGE:
      return OnSessionChange(wParam);
    case WM_QUERYENDSESSION:
      return OnQueryEndSession();
    case WM_ENDSESSION:
      return OnEndSession(wParam != FALSE);
    case WM_TIMER:
      return OnTimer(wParam, lParam);
    case WM_SYSCOMMAND:
      return OnSystemCommand(wParam, lParam);
    case WM_CLOSE:
      return OnClose();
    case WM_DESTROY:
      return OnDestroy();
    case WM_NCDESTROY:
      return OnNcDestroy(wParam, lParam);
    default:
      return HandleView(message, wParam, lParam);
  }
}

LRESULT MainWindow::HandleView(UINT message, WPARAM wParam, LPARAM lParam) {
  switch (message) {
    case WM_SIZE:
      return OnSize(wParam);
    case WM_MOVE:
    case WM_MOVING:
      return OnMoved(message, wParam, lParam);
    case WM_SETFOCUS:
      return OnFocus();
    case WM_ACTIVATE:
      return OnActivate(wParam, lParam);
    case WM_DPICHANGED:
      return OnDpiChanged(lParam);
    case WM_PAINT:
      return OnPaint();
    default:
      const auto result = controls_.Handle(client_, window_, message, wParam, lParam);
      return result ? *result : Default(message, wParam, lParam);
  }
}

LRESULT MainWindow::OnTimer(WPARAM wParam, LPARAM lParam) {
  switch (wParam) {
    // Never started, and therefore ignored.
    case kUnusedTimer:
      return 0;
    case kRetryTimer:
      client_.RetryConnect();
      return 0;
    case kResultTimer:
      client_.TakeStrandedResult();
      return 0;
    case kAddressTimer:
      // A timer repeats until it is stopped.
      ::KillTimer(window_, kAddressTimer);
      client_.OnAddressesChanged();
      return 0;
    default:
      return Default(WM_TIMER, wParam, lParam);
  }
}

void MainWindow::PostToPage(std::wstring json) {
  // Without a window, PostMessage() would post to the thread, where no procedure frees the text.
  if (window_ != nullptr) PostText(window_, kToPage, std::move(json));
}

void MainWindow::PostFailure(const std::wstring& text) {
  PostText(window_, kShowFailure, text);
}

void MainWindow::StartTimer(ClientTimer timer) {
  if (timer == ClientTimer::Retry) {
    ::SetTimer(window_, kRetryTimer, kRetryMs, nullptr);
  } else {
    ::SetTimer(window_, kResultTimer, kResultMs, nullptr);
  }
}

void MainWindow::StopTimer(ClientTimer timer) noexcept {
  ::KillTimer(window_, timer == ClientTimer::Retry ? kRetryTimer : kResultTimer);
}

void MainWindow::Repaint() {
  shell::Repaint(window_);
}

page::TimeOfDay MainWindow::Now() {
  const platform::LocalTime now = platform::LocalTimeNow();
  return {now.hour, now.minute, now.second};
}

bool RegisterMainWindow(HINSTANCE instance) {
  WNDCLASSEXW window{};
  window.cbSize = sizeof(window);
  window.lpfnWndProc = MainWindowProcedure;
  window.hInstance = instance;
  window.hIcon = ::LoadIconW(instance, MAKEINTRESOURCEW(kIcon));
  window.hIconSm = window.hIcon;
  window.hCursor = ::LoadCursorW(nullptr, IDC_ARROW);
  window.hbrBackground = ::CreateSolidBrush(kWindowColour);  // the class owns it from here on
  window.lpszClassName = kWindowClass;
  return ::RegisterClassExW(&window) != 0;
}

HWND CreateMainWindow(HINSTANCE instance, MainWindow& window) {
  // Without WS_VISIBLE: the monitor is known only once the window exists, and ShowMainWindow() then
  // corrects its place and size.
  return ::CreateWindowExW(0, kWindowClass, kWindowTitle, WS_OVERLAPPEDWINDOW | WS_CLIPCHILDREN,
                           CW_USEDEFAULT, CW_USEDEFAULT, kFirstSize.width, kFirstSize.height,
                           nullptr, nullptr, instance, &window);
}

void ShowMainWindow(HINSTANCE instance, HWND window, int showCommand) {
  const auto icon = reinterpret_cast<LPARAM>(::LoadIconW(instance, MAKEINTRESOURCEW(kIcon)));
  ::SendMessageW(window, WM_SETICON, ICON_BIG, icon);
  ::SendMessageW(window, WM_SETICON, ICON_SMALL, icon);
  // Before the first show: a title bar outside the screen cannot be grabbed.
  TakeFirstSize(window);
  ::ShowWindow(window, showCommand);
  LayOut(window);
  ::InvalidateRect(window, nullptr, TRUE);
  ::UpdateWindow(window);
}

}  // namespace shell
