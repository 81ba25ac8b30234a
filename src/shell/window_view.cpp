#include "shell/main_window.h"

namespace shell {
namespace {

// Between BeginPaint and EndPaint.
class PaintScope {
 public:
  explicit PaintScope(HWND window) : window_(window), context_(::BeginPaint(window, &paint_)) {}
  ~PaintScope() { ::EndPaint(window_, &paint_); }
  PaintScope(const PaintScope&) = delete;
  PaintScope& operator=(const PaintScope&) = delete;
  [[nodiscard]] HDC Context() const { return context_; }

 private:
  const HWND window_;
  PAINTSTRUCT paint_{};
  const HDC context_;
};

}  // namespace

PixelArea WorkAreaOf(HWND window) noexcept {
  MONITORINFO monitor{};
  monitor.cbSize = sizeof(monitor);
  if (::GetMonitorInfoW(::MonitorFromWindow(window, MONITOR_DEFAULTTONEAREST), &monitor) == FALSE) {
    return {};
  }
  const RECT& area = monitor.rcWork;
  return {area.left, area.top, {area.right - area.left, area.bottom - area.top}};
}

// Windows enforces the smallest size even on a smaller monitor, and for a maximised window too: on
// a laptop with 768 lines the bottom of the page would be out of reach below the screen.
LRESULT OnMinMaxInfo(HWND window, LPARAM lParam) noexcept {
  const PixelSize smallest = FitInto(kSmallestSize, WorkAreaOf(window).size);
  reinterpret_cast<MINMAXINFO*>(lParam)->ptMinTrackSize = {smallest.width, smallest.height};
  return 0;
}

// The page stops drawing while the window is minimised; the control cannot see that by itself.
LRESULT MainWindow::OnSize(WPARAM wParam) {
  // Size messages may come before there is a page.
  if (!web_) return 0;
  web_->FitToWindow();
  web_->SetVisible(wParam != SIZE_MINIMIZED);
  return 0;
}

LRESULT MainWindow::OnMoved(UINT message, WPARAM wParam, LPARAM lParam) {
  // Otherwise the page's drop-down lists open where the window was before.
  if (web_) web_->WindowMoved();
  return Default(message, wParam, lParam);
}

LRESULT MainWindow::OnFocus() {
  if (web_) web_->Focus();
  return 0;
}

// After a switch from another program the window may be activated without WM_SETFOCUS.
LRESULT MainWindow::OnActivate(WPARAM wParam, LPARAM lParam) {
  const LRESULT result = Default(WM_ACTIVATE, wParam, lParam);
  const bool active = LOWORD(wParam) != WA_INACTIVE;
  const bool minimised = HIWORD(wParam) != 0;
  // MoveFocus() fails while the window is minimised.
  if (active && !minimised && web_) web_->Focus();
  return result;
}

LRESULT MainWindow::OnDpiChanged(LPARAM lParam) {
  const auto& suggested = *reinterpret_cast<const RECT*>(lParam);
  ::SetWindowPos(window_, nullptr, suggested.left, suggested.top, suggested.right - suggested.left,
                 suggested.bottom - suggested.top, SWP_NOZORDER | SWP_NOACTIVATE);
  // The control follows the monitor's scale by itself, but not the window's new size.
  if (web_) web_->FitToWindow();
  return 0;
}

LRESULT MainWindow::OnPaint() {
  const PaintScope paint(window_);
  RECT area{};
  ::GetClientRect(window_, &area);
  // Visible until the page covers the window.
  ::FillRect(paint.Context(), &area, static_cast<HBRUSH>(::GetStockObject(BLACK_BRUSH)));
  return 0;
}

void LayOut(HWND window) {
  ::InvalidateRect(window, nullptr, TRUE);
}

void Repaint(HWND window) {
  ::InvalidateRect(window, nullptr, FALSE);
}

}  // namespace shell
