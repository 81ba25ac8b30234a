#include "view_window.h"

#include <exception>
#include <utility>

#include "options.h"

namespace browser {
namespace {

constexpr wchar_t kViewClass[] = L"LabWebViewWindow";

void RegisterType(WNDPROC procedure) {
  WNDCLASSW type{};
  type.style = CS_DBLCLKS;
  type.lpfnWndProc = procedure;
  type.hInstance = OwnModule();
  type.hCursor = ::LoadCursorW(nullptr, IDC_ARROW);
  type.lpszClassName = kViewClass;
  ::RegisterClassW(&type);  // a second registration fails harmlessly
}

void FillOutside(HDC target, SIZE picture, const RECT& client, COLORREF color) {
  const HBRUSH brush = static_cast<HBRUSH>(::GetStockObject(DC_BRUSH));
  ::SetDCBrushColor(target, color);
  const RECT right{picture.cx, 0, client.right, picture.cy};
  const RECT below{0, picture.cy, client.right, client.bottom};
  ::FillRect(target, &right, brush);
  ::FillRect(target, &below, brush);
}

}  // namespace

ViewWindow::ViewWindow(FrameDecoder& decoder, Input::Send send, std::function<void()> destroyed)
    : decoder_(decoder), send_(send), destroyed_(std::move(destroyed)), input_(std::move(send)) {}

HRESULT ViewWindow::Create(HWND parent) {
  DWORD process = 0;
  if (::GetWindowThreadProcessId(parent, &process) != ::GetCurrentThreadId()) {
    return HRESULT_FROM_WIN32(ERROR_INVALID_WINDOW_HANDLE);
  }
  // WM_NCCREATE sets window_, because the first messages arrive before CreateWindow() returns.
  RegisterType(&Procedure);
  ::CreateWindowW(kViewClass, L"", WS_CHILD | WS_VISIBLE | WS_CLIPSIBLINGS, 0, 0, 0, 0, parent,
                  nullptr, OwnModule(), this);
  const DWORD error = ::GetLastError();
  return window_ != nullptr ? S_OK : HRESULT_FROM_WIN32(error);
}

void ViewWindow::Destroy() {
  destroyed_ = nullptr;  // OnNcDestroy() must not report our own call
  if (window_ != nullptr) ::DestroyWindow(window_);
}

void ViewWindow::SetBounds(const RECT& bounds) {
  bounds_ = bounds;
  ::SetWindowPos(window_, nullptr, bounds.left, bounds.top, bounds.right - bounds.left,
                 bounds.bottom - bounds.top, SWP_NOZORDER | SWP_NOACTIVATE);
}

void ViewWindow::SetVisible(bool visible) {
  ::ShowWindow(window_, visible ? SW_SHOWNA : SW_HIDE);
  send_(FromHost::Visible, BodyWriter().U8(visible ? 1 : 0));
}

void ViewWindow::SetBackground(COREWEBVIEW2_COLOR color) {
  background_ = RGB(color.R, color.G, color.B);
  ::InvalidateRect(window_, nullptr, FALSE);
  send_(FromHost::Background, BodyWriter().U8(color.A).U8(color.R).U8(color.G).U8(color.B));
}

LRESULT CALLBACK ViewWindow::Procedure(HWND window, UINT message, WPARAM wide,
                                       LPARAM extra) noexcept {
  if (message == WM_NCCREATE) {
    auto* self =
        static_cast<ViewWindow*>(reinterpret_cast<const CREATESTRUCTW*>(extra)->lpCreateParams);
    ::SetWindowLongPtrW(window, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(self));
    self->window_ = window;
  }
  auto* self = reinterpret_cast<ViewWindow*>(::GetWindowLongPtrW(window, GWLP_USERDATA));
  if (self == nullptr) return ::DefWindowProcW(window, message, wide, extra);
  try {
    return self->Handle(window, message, wide, extra);
  } catch (const std::exception& error) {
    Log("window message %u failed: %s", message, error.what());
    return 0;
  }
}

LRESULT ViewWindow::Handle(HWND window, UINT message, WPARAM wide, LPARAM extra) {
  switch (message) {
    case WM_SIZE:
      send_(FromHost::Bounds, BodyWriter().U32(LOWORD(extra)).U32(HIWORD(extra)));
      return 0;
    case WM_SETFOCUS:
    case WM_KILLFOCUS:
      send_(FromHost::Focus, BodyWriter().U8(message == WM_SETFOCUS ? 1 : 0));
      return 0;
    case WM_ERASEBKGND:
      return 1;  // Paint() covers everything; erasing first would flicker
    case WM_PAINT:
      Paint();
      return 0;
    case WM_NCDESTROY:
      OnNcDestroy();
      return 0;
    default:
      if (input_.Handle(window, message, wide, extra)) return 0;
      return ::DefWindowProcW(window, message, wide, extra);
  }
}

void ViewWindow::Paint() {
  PAINTSTRUCT paint{};
  const HDC target = ::BeginPaint(window_, &paint);
  RECT client{};
  ::GetClientRect(window_, &client);
  FillOutside(target, decoder_.Paint(target), client, background_);
  ::EndPaint(window_, &paint);
}

void ViewWindow::OnNcDestroy() {
  ::SetWindowLongPtrW(window_, GWLP_USERDATA, 0);
  window_ = nullptr;
  // Moved out first, because the call may delete this object.
  if (const auto destroyed = std::exchange(destroyed_, nullptr)) destroyed();
}

}  // namespace browser
