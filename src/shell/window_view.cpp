#include <windowsx.h>

#include <optional>

#include "shell/tab_strip.h"
#include "shell/window_events.h"

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

// Windows holds to the smallest size even where the monitor is smaller, and for a maximised window
// too: on a laptop's 768 lines the page's end would lie below the screen, out of reach.
LRESULT OnMinMaxInfo(HWND window, LPARAM lParam) noexcept {
  const PixelSize smallest = FitInto(kSmallestSize, WorkAreaOf(window).size);
  reinterpret_cast<MINMAXINFO*>(lParam)->ptMinTrackSize = {smallest.width, smallest.height};
  return 0;
}

// A minimised window's page stops drawing; the control cannot see that by itself.
LRESULT OnSize(AppState& state, WPARAM wParam) {
  if (!state.web) return 0;
  state.web->FitToWindow();
  state.web->SetVisible(wParam != SIZE_MINIMIZED);
  return 0;
}

LRESULT OnMoved(AppState& state, UINT message, WPARAM wParam, LPARAM lParam) {
  if (state.web) state.web->WindowMoved();
  return ::DefWindowProcW(state.window, message, wParam, lParam);
}

LRESULT OnFocus(AppState& state) {
  if (state.web) state.web->Focus();
  return 0;
}

// After a switch from another program the window may be activated without getting WM_SETFOCUS.
LRESULT OnActivate(AppState& state, WPARAM wParam, LPARAM lParam) {
  const LRESULT result = ::DefWindowProcW(state.window, WM_ACTIVATE, wParam, lParam);
  const bool active = LOWORD(wParam) != WA_INACTIVE;
  const bool minimised = HIWORD(wParam) != 0;
  if (active && !minimised && state.web) state.web->Focus();
  return result;
}

LRESULT OnDpiChanged(AppState& state, LPARAM lParam) {
  const auto& suggested = *reinterpret_cast<const RECT*>(lParam);
  ::SetWindowPos(state.window, nullptr, suggested.left, suggested.top,
                 suggested.right - suggested.left, suggested.bottom - suggested.top,
                 SWP_NOZORDER | SWP_NOACTIVATE);
  if (state.web) state.web->FitToWindow();
  return 0;
}

LRESULT OnPaint(AppState& state) {
  const PaintScope paint(state.window);
  RECT area{};
  ::GetClientRect(state.window, &area);
  ::FillRect(paint.Context(), &area, static_cast<HBRUSH>(::GetStockObject(BLACK_BRUSH)));
  return 0;
}

LRESULT OnControlColour(AppState& state, UINT message, WPARAM wParam) {
  return reinterpret_cast<LRESULT>(
      ColourControl(state.gdi, message, reinterpret_cast<HDC>(wParam)));
}

LRESULT OnDrawItem(AppState& state, WPARAM wParam, LPARAM lParam) {
  const auto& item = *reinterpret_cast<const DRAWITEMSTRUCT*>(lParam);
  if (item.CtlType != ODT_BUTTON) {
    return ::DefWindowProcW(state.window, WM_DRAWITEM, wParam, lParam);
  }
  PaintButton(state.gdi, item);
  return TRUE;
}

LRESULT OnMouseDown(AppState& state, WPARAM wParam, LPARAM lParam) {
  const std::optional<int> page = FindTabAt(GET_X_LPARAM(lParam), GET_Y_LPARAM(lParam));
  if (!page) return ::DefWindowProcW(state.window, WM_LBUTTONDOWN, wParam, lParam);
  state.selectedPage = *page;
  LayOut(state.window);
  return 0;
}

void LayOut(HWND window) {
  ::InvalidateRect(window, nullptr, TRUE);
}

void Repaint(HWND window) {
  ::InvalidateRect(window, nullptr, FALSE);
}

}  // namespace shell
