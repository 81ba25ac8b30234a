#include "input.h"

#include <windowsx.h>

#include <string>

#include "text.h"

namespace browser {
namespace {

enum MouseKind : uint8_t { kMoved = 0, kPressed = 1, kReleased = 2, kWheel = 3 };
enum MouseButton : uint8_t { kNone = 0, kLeft = 1, kRight = 2, kMiddle = 3 };
enum KeyKind : uint8_t { kDown = 0, kUp = 1, kChar = 2 };
enum Modifier : uint8_t { kAlt = 1, kControl = 2, kShift = 8 };

uint8_t Modifiers() {
  const auto held = [](int key) { return ::GetKeyState(key) < 0; };
  return static_cast<uint8_t>((held(VK_MENU) ? kAlt : 0) | (held(VK_CONTROL) ? kControl : 0) |
                              (held(VK_SHIFT) ? kShift : 0));
}

// The held buttons, from a mouse message's key flags, in the browser's numbering.
uint8_t Buttons(WPARAM flags) {
  return static_cast<uint8_t>(((flags & MK_LBUTTON) != 0 ? 1 : 0) |
                              ((flags & MK_RBUTTON) != 0 ? 2 : 0) |
                              ((flags & MK_MBUTTON) != 0 ? 4 : 0));
}

BodyWriter MouseBody(MouseKind kind, MouseButton button, WPARAM flags, uint8_t clicks, POINT at) {
  BodyWriter body;
  body.U8(kind).U8(button).U8(Buttons(flags)).U8(Modifiers()).U8(clicks).I32(at.x).I32(at.y);
  return body;
}

BodyWriter KeyBody(KeyKind kind, WPARAM virtualKey, std::wstring_view text) {
  BodyWriter body;
  body.U8(kind).U8(Modifiers()).U32(static_cast<uint32_t>(virtualKey)).Text(text);
  return body;
}

MouseButton ButtonOf(UINT message) {
  switch (message) {
    case WM_RBUTTONDOWN:
    case WM_RBUTTONUP:
    case WM_RBUTTONDBLCLK:
      return kRight;
    case WM_MBUTTONDOWN:
    case WM_MBUTTONUP:
    case WM_MBUTTONDBLCLK:
      return kMiddle;
    default:
      return kLeft;
  }
}

bool IsRelease(UINT message) {
  return message == WM_LBUTTONUP || message == WM_RBUTTONUP || message == WM_MBUTTONUP;
}

bool IsDoubleClick(UINT message) {
  return message == WM_LBUTTONDBLCLK || message == WM_RBUTTONDBLCLK || message == WM_MBUTTONDBLCLK;
}

}  // namespace

bool Input::Handle(HWND window, UINT message, WPARAM wide, LPARAM extra) {
  switch (message) {
    case WM_KEYDOWN:
      KeyDown(window, wide);
      return true;
    case WM_KEYUP:
      send_(FromHost::Key, KeyBody(kUp, wide, L""));
      return true;
    case WM_CHAR:
    case WM_IME_CHAR:
      Character(static_cast<wchar_t>(wide));
      return true;
    default:
      return HandleMouse(window, message, wide, extra);
  }
}

bool Input::HandleMouse(HWND window, UINT message, WPARAM wide, LPARAM extra) {
  switch (message) {
    case WM_MOUSEMOVE: {
      const POINT at{GET_X_LPARAM(extra), GET_Y_LPARAM(extra)};
      const MouseButton held = (wide & MK_LBUTTON) != 0 ? kLeft : kNone;
      BodyWriter body = MouseBody(kMoved, held, wide, 0, at);
      send_(FromHost::Mouse, body.U64(0));
      return true;
    }
    case WM_MOUSEWHEEL:
    case WM_MOUSEHWHEEL:
      Wheel(window, message, wide, extra);
      return true;
    case WM_LBUTTONDOWN:
    case WM_LBUTTONUP:
    case WM_LBUTTONDBLCLK:
    case WM_RBUTTONDOWN:
    case WM_RBUTTONUP:
    case WM_RBUTTONDBLCLK:
    case WM_MBUTTONDOWN:
    case WM_MBUTTONUP:
    case WM_MBUTTONDBLCLK:
      Button(window, message, wide, extra);
      return true;
    default:
      return false;
  }
}

void Input::Wheel(HWND window, UINT message, WPARAM wide, LPARAM extra) {
  POINT at{GET_X_LPARAM(extra), GET_Y_LPARAM(extra)};  // in screen coordinates, unlike the others
  ::ScreenToClient(window, &at);
  const int turned = GET_WHEEL_DELTA_WPARAM(wide);
  const bool sideways = message == WM_MOUSEHWHEEL;
  BodyWriter body = MouseBody(kWheel, kNone, GET_KEYSTATE_WPARAM(wide), 0, at);
  // Turning the wheel away is positive here but negative (up the page) for the browser.
  body.I32(sideways ? turned : 0).I32(sideways ? 0 : -turned);
  send_(FromHost::Mouse, body);
}

void Input::Button(HWND window, UINT message, WPARAM wide, LPARAM extra) {
  const bool release = IsRelease(message);
  if (!release) {
    ::SetFocus(window);
    ::SetCapture(window);
  } else if (Buttons(wide) == 0) {
    ::ReleaseCapture();
  }
  const POINT at{GET_X_LPARAM(extra), GET_Y_LPARAM(extra)};
  const uint8_t clicks = IsDoubleClick(message) ? 2 : 1;
  BodyWriter body = MouseBody(release ? kReleased : kPressed, ButtonOf(message), wide, clicks, at);
  send_(FromHost::Mouse, body.U64(0));
}

void Input::KeyDown(HWND window, WPARAM virtualKey) {
  if (Modifiers() == kControl) {
    // The headless browser has its own clipboard; these three must use the one of Windows.
    switch (virtualKey) {
      case 'V':
        send_(FromHost::InsertText, BodyWriter().Text(ClipboardText(window)));
        return;
      case 'C':
      case 'X':
        send_(FromHost::Copy, BodyWriter().U8(virtualKey == 'X' ? 1 : 0));
        return;
      default:
        break;
    }
  }
  send_(FromHost::Key, KeyBody(kDown, virtualKey, L""));
}

void Input::Character(wchar_t unit) {
  const bool isText = unit >= 0x20 && unit != 0x7f;
  if (!isText && unit != L'\r') return;  // Backspace, Tab, Ctrl with a letter: already sent as keys
  if (unit >= 0xd800 && unit < 0xdc00) {
    highSurrogate_ = unit;
    return;
  }
  std::wstring text;
  if (unit >= 0xdc00 && unit < 0xe000) text += highSurrogate_;
  highSurrogate_ = 0;
  text += unit;
  send_(FromHost::Key, KeyBody(kChar, 0, text));
}

}  // namespace browser
