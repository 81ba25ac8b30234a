#include "shell/main_window.h"

#include <exception>

#include "shell/actions.h"
#include "shell/page_link.h"
#include "shell/window_events.h"
#include "shell/window_messages.h"
#include "text/utf8.h"

namespace shell {
namespace {

constexpr WORD kIcon = 301;

AppState* StateOf(HWND window) {
  return reinterpret_cast<AppState*>(::GetWindowLongPtrW(window, GWLP_USERDATA));
}

// The messages of CarriesText().
void DispatchText(AppState& state, UINT message, std::wstring text) {
  switch (message) {
    case kJobFinished:
      OnJobFinished(state, text);
      break;
    case kHeartbeatRefused:
      OnHeartbeatRefused(state, std::move(text));
      break;
    case kNotice:
      OnNotice(state, text);
      break;
    case kFromPage:
      HandlePageMessage(state, text);
      break;
    case kToPage:
      DeliverToPage(state, std::move(text));
      break;
    case kShowFailure:
      state.surroundings.showMessageBox(state.window, text);
      break;
    default:
      break;
  }
}

LRESULT Dispatch(AppState& state, UINT message, WPARAM wParam, LPARAM lParam) {
  if (CarriesText(message)) {
    const std::unique_ptr<std::wstring> text = TakePostedText(lParam);
    DispatchText(state, message, text ? std::move(*text) : std::wstring());
    return 0;
  }
  switch (message) {
    case kIgnored:
      return 0;
    case kLinkChanged:
      OnLinkChanged(state, wParam != 0);
      return 0;
    case kUdpChanged:
      OnUdpChanged(state, wParam != 0);
      return 0;
    case kBrowserFailed:
      OnBrowserFailed(state, static_cast<webview::ProcessFailedKind>(wParam));
      return 0;
    case kMakePageAnew:
      if (state.web) state.web->MakeAnew();
      return 0;
    case kAddressesChanged:
      return OnAddressesChanged(state);
    case WM_POWERBROADCAST:
      return OnPowerBroadcast(state, wParam);
    case WM_WTSSESSION_CHANGE:
      return OnSessionChange(state, wParam);
    case WM_QUERYENDSESSION:
      return OnQueryEndSession(state);
    case WM_ENDSESSION:
      return OnEndSession(state, wParam != FALSE);
    case WM_TIMER:
      return OnTimer(state, wParam, lParam);
    case WM_SIZE:
      return OnSize(state, wParam);
    case WM_MOVE:
    case WM_MOVING:
      return OnMoved(state, message, wParam, lParam);
    case WM_SETFOCUS:
      return OnFocus(state);
    case WM_ACTIVATE:
      return OnActivate(state, wParam, lParam);
    case WM_DPICHANGED:
      return OnDpiChanged(state, lParam);
    case WM_PAINT:
      return OnPaint(state);
    case WM_CTLCOLOREDIT:
    case WM_CTLCOLORLISTBOX:
    case WM_CTLCOLORBTN:
    case WM_CTLCOLORSTATIC:
      return OnControlColour(state, message, wParam);
    case WM_DRAWITEM:
      return OnDrawItem(state, wParam, lParam);
    case WM_LBUTTONDOWN:
      return OnMouseDown(state, wParam, lParam);
    case WM_COMMAND:
      return OnCommand(state, wParam, lParam);
    case WM_SYSCOMMAND:
      return OnSystemCommand(state, wParam, lParam);
    case WM_CLOSE:
      return OnClose(state);
    case WM_DESTROY:
      return OnDestroy(state);
    case WM_NCDESTROY:
      return OnGone(state, wParam, lParam);
    default:
      return ::DefWindowProcW(state.window, message, wParam, lParam);
  }
}

// Jobs, actions, commands and the retry save.
bool MayHaveSaved(UINT message) {
  return CarriesText(message) || message == WM_COMMAND || message == WM_TIMER;
}

// An exception that reached the door; the window goes on.
void Report(AppState& state, const std::wstring& text) noexcept {
  try {
    Log(state, text);
  } catch (...) {  // no memory for the line either
  }
}

LRESULT CALLBACK MainWindowProcedure(HWND window, UINT message, WPARAM wParam,
                                     LPARAM lParam) noexcept {
  // Asked for before WM_CREATE, too.
  if (message == WM_GETMINMAXINFO) return OnMinMaxInfo(window, lParam);
  if (message == WM_CREATE) return OnCreate(window, lParam);
  AppState* state = StateOf(window);
  if (state == nullptr) return ::DefWindowProcW(window, message, wParam, lParam);
  try {
    const LRESULT result = Dispatch(*state, message, wParam, lParam);
    if (MayHaveSaved(message)) LogSettingsReports(*state);
    return result;
  } catch (const std::exception& error) {
    Report(*state, L"Error: " + text::FromUtf8(error.what()));
  } catch (...) {
    Report(*state, L"Unknown error.");
  }
  return 0;
}

// Where the system has put it, unless it would stick out there.
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

bool RegisterMainWindow(HINSTANCE instance) {
  WNDCLASSEXW window{};
  window.cbSize = sizeof(window);
  window.lpfnWndProc = MainWindowProcedure;
  window.hInstance = instance;
  window.hIcon = ::LoadIconW(instance, MAKEINTRESOURCEW(kIcon));
  window.hIconSm = window.hIcon;
  window.hCursor = ::LoadCursorW(nullptr, IDC_ARROW);
  window.hbrBackground = ::CreateSolidBrush(kWindowColour);  // the class's from here on
  window.lpszClassName = kWindowClass;
  return ::RegisterClassExW(&window) != 0;
}

HWND CreateMainWindow(HINSTANCE instance, AppState& state) {
  return ::CreateWindowExW(0, kWindowClass, kWindowTitle, WS_OVERLAPPEDWINDOW | WS_CLIPCHILDREN,
                           CW_USEDEFAULT, CW_USEDEFAULT, kFirstSize.width, kFirstSize.height,
                           nullptr, nullptr, instance, &state);
}

void ShowMainWindow(HINSTANCE instance, HWND window, int showCommand) {
  const auto icon = reinterpret_cast<LPARAM>(::LoadIconW(instance, MAKEINTRESOURCEW(kIcon)));
  ::SendMessageW(window, WM_SETICON, ICON_BIG, icon);
  ::SendMessageW(window, WM_SETICON, ICON_SMALL, icon);
  TakeFirstSize(window);
  ::ShowWindow(window, showCommand);
  LayOut(window);
  ::InvalidateRect(window, nullptr, TRUE);
  ::UpdateWindow(window);
}

}  // namespace shell
