#include <gtest/gtest.h>

#include "shell/main_window.h"
#include "shell/window_fixture.h"
#include "shell/window_messages.h"

namespace shell {
namespace {

using Names = std::vector<std::string>;

class WindowView : public WindowTest {};

TEST_F(WindowView, HasItsTitleStyleAndSmallestSize) {
  Open();
  wchar_t title[64] = {};
  ::GetWindowTextW(state_->window, title, 64);
  EXPECT_STREQ(title, L"Velmarine.Client 维马林");
  wchar_t name[64] = {};
  ::GetClassNameW(state_->window, name, 64);
  EXPECT_STREQ(name, L"VelmarineNativeWindow");
  const auto style = ::GetWindowLongPtrW(state_->window, GWL_STYLE);
  EXPECT_EQ(style & (WS_OVERLAPPEDWINDOW | WS_CLIPCHILDREN), WS_OVERLAPPEDWINDOW | WS_CLIPCHILDREN);
  EXPECT_EQ(::GetClassLongPtrW(state_->window, GCL_STYLE), 0u);
  MINMAXINFO limits{};
  Send(WM_GETMINMAXINFO, 0, reinterpret_cast<LPARAM>(&limits));
  const PixelSize smallest = FitInto(kSmallestSize, WorkAreaOf(state_->window).size);
  EXPECT_EQ(limits.ptMinTrackSize.x, smallest.width);
  EXPECT_EQ(limits.ptMinTrackSize.y, smallest.height);
}

TEST_F(WindowView, OpensInsideTheWorkArea) {
  Open();
  ShowMainWindow(::GetModuleHandleW(nullptr), state_->window, SW_SHOWNOACTIVATE);
  MONITORINFO monitor{};
  monitor.cbSize = sizeof(monitor);
  ASSERT_TRUE(
      ::GetMonitorInfoW(::MonitorFromWindow(state_->window, MONITOR_DEFAULTTONEAREST), &monitor));
  RECT placed{};
  ::GetWindowRect(state_->window, &placed);
  EXPECT_GE(placed.left, monitor.rcWork.left);
  EXPECT_GE(placed.top, monitor.rcWork.top);
  EXPECT_LE(placed.right, monitor.rcWork.right);
  EXPECT_LE(placed.bottom, monitor.rcWork.bottom);
  EXPECT_EQ(placed.right - placed.left, 1220);
}

TEST_F(WindowView, ThePageFollowsTheWindow) {
  OpenWithReadyPage();
  Send(WM_SIZE, SIZE_RESTORED, MAKELPARAM(1300, 900));
  EXPECT_EQ(page_.calls, (Names{"fit", "show"}));
  page_.calls.clear();
  Send(WM_SIZE, SIZE_MINIMIZED, 0);
  EXPECT_EQ(page_.calls, (Names{"fit", "hide"}));
  page_.calls.clear();
  Send(WM_MOVE, 0, MAKELPARAM(5, 5));
  RECT place{0, 0, 1220, 860};
  Send(WM_MOVING, 0, reinterpret_cast<LPARAM>(&place));
  EXPECT_EQ(page_.calls, (Names{"moved", "moved"}));
}

TEST_F(WindowView, ThePageGetsTheKeyboard) {
  OpenWithReadyPage();
  Send(WM_SETFOCUS);
  EXPECT_EQ(page_.calls, Names{"focus"});
  page_.calls.clear();
  Send(WM_ACTIVATE, WA_INACTIVE);
  EXPECT_TRUE(page_.calls.empty());
  const auto style = ::GetWindowLongPtrW(state_->window, GWL_STYLE);
  ::SetWindowLongPtrW(state_->window, GWL_STYLE, style | WS_MINIMIZE);
  page_.calls.clear();
  Send(WM_ACTIVATE, MAKEWPARAM(WA_ACTIVE, 1));  // minimised
  EXPECT_TRUE(page_.calls.empty());
  ::SetWindowLongPtrW(state_->window, GWL_STYLE, style);
  page_.calls.clear();
  Send(WM_ACTIVATE, WA_ACTIVE);
  ASSERT_FALSE(page_.calls.empty());
  EXPECT_EQ(page_.calls.back(), "focus");
}

TEST_F(WindowView, AChangeOfScaleTakesTheSuggestedPlace) {
  OpenWithReadyPage();
  RECT suggested{8, 6, 8 + 1260, 6 + 900};
  Send(WM_DPICHANGED, MAKEWPARAM(120, 120), reinterpret_cast<LPARAM>(&suggested));
  RECT place{};
  ::GetWindowRect(state_->window, &place);
  EXPECT_NE(::EqualRect(&place, &suggested), FALSE);
  EXPECT_EQ(page_.calls.back(), "fit");
}

TEST_F(WindowView, SizeMessagesBeforeThePageExistsAreHarmless) {
  Open();
  state_->web.reset();
  Send(WM_SIZE, SIZE_RESTORED, MAKELPARAM(1300, 900));
  Send(WM_SETFOCUS);
  Send(WM_MOVE);
  EXPECT_TRUE(page_.calls.empty());
}

TEST_F(WindowView, ColoursNativeControls) {
  Open();
  const HDC context = ::GetDC(nullptr);
  for (const UINT message : {UINT{WM_CTLCOLOREDIT}, UINT{WM_CTLCOLORLISTBOX}}) {
    const LRESULT brush = Send(message, reinterpret_cast<WPARAM>(context));
    EXPECT_EQ(brush, reinterpret_cast<LRESULT>(state_->gdi.Get(GdiObjects::Edit)));
    EXPECT_EQ(::GetBkMode(context), OPAQUE);
    EXPECT_EQ(::GetBkColor(context), RGB(20, 27, 31));
    EXPECT_EQ(::GetTextColor(context), RGB(233, 245, 242));
  }
  for (const UINT message : {UINT{WM_CTLCOLORBTN}, UINT{WM_CTLCOLORSTATIC}}) {
    const LRESULT brush = Send(message, reinterpret_cast<WPARAM>(context));
    EXPECT_EQ(brush, reinterpret_cast<LRESULT>(state_->gdi.Get(GdiObjects::Panel)));
    EXPECT_EQ(::GetBkMode(context), TRANSPARENT);
    EXPECT_EQ(::GetTextColor(context),
              message == WM_CTLCOLORBTN ? RGB(140, 168, 166) : RGB(233, 245, 242));
  }
  ::ReleaseDC(nullptr, context);
}

TEST_F(WindowView, TabStripSelectsThePage) {
  Open();
  Send(WM_LBUTTONDOWN, 0, MAKELPARAM(500, 80));
  EXPECT_EQ(state_->selectedPage, 1);
  Send(WM_LBUTTONDOWN, 0, MAKELPARAM(440, 80));
  EXPECT_EQ(state_->selectedPage, 1);
  Send(WM_LBUTTONDOWN, 0, MAKELPARAM(400, 80));
  EXPECT_EQ(state_->selectedPage, 0);
}

TEST_F(WindowView, PaintsOwnerDrawnButtons) {
  Open();
  const HWND button = ::CreateWindowExW(0, L"BUTTON", L"连接", WS_CHILD | BS_OWNERDRAW, 0, 0, 40,
                                        20, state_->window, nullptr, nullptr, nullptr);
  const HDC screen = ::GetDC(nullptr);
  const HDC context = ::CreateCompatibleDC(screen);
  const HBITMAP bitmap = ::CreateCompatibleBitmap(screen, 40, 20);
  const HGDIOBJ old = ::SelectObject(context, bitmap);
  DRAWITEMSTRUCT item{};
  item.CtlType = ODT_BUTTON;
  item.hwndItem = button;
  item.hDC = context;
  item.rcItem = {0, 0, 40, 20};
  EXPECT_EQ(Send(WM_DRAWITEM, 0, reinterpret_cast<LPARAM>(&item)), TRUE);
  EXPECT_EQ(::GetPixel(context, 0, 0), RGB(38, 52, 56));
  EXPECT_EQ(::GetPixel(context, 2, 2), RGB(13, 18, 21));
  item.itemState = ODS_SELECTED;
  Send(WM_DRAWITEM, 0, reinterpret_cast<LPARAM>(&item));
  EXPECT_EQ(::GetPixel(context, 2, 2), RGB(46, 196, 160));
  ::SelectObject(context, old);
  ::DeleteObject(bitmap);
  ::DeleteDC(context);
  ::ReleaseDC(nullptr, screen);
}

TEST_F(WindowView, ItsClassHasAnIconAnArrowAndADarkBackground) {
  Open();
  const HWND window = state_->window;
  LOGBRUSH brush{};
  const auto ground = reinterpret_cast<HGDIOBJ>(::GetClassLongPtrW(window, GCLP_HBRBACKGROUND));
  ASSERT_NE(::GetObjectW(ground, sizeof(brush), &brush), 0);
  EXPECT_EQ(brush.lbStyle, UINT{BS_SOLID});
  EXPECT_EQ(brush.lbColor, RGB(6, 9, 11));
  const HCURSOR arrow = ::LoadCursorW(nullptr, IDC_ARROW);
  EXPECT_EQ(::GetClassLongPtrW(window, GCLP_HCURSOR), reinterpret_cast<ULONG_PTR>(arrow));
  const HICON icon = ::LoadIconW(::GetModuleHandleW(nullptr), MAKEINTRESOURCEW(301));
  ASSERT_NE(icon, nullptr);
  EXPECT_EQ(::GetClassLongPtrW(window, GCLP_HICON), reinterpret_cast<ULONG_PTR>(icon));
  EXPECT_EQ(::GetMenu(window), nullptr);
}

// The places requested from windows, recorded in a subclass of the tested one.
struct PlaceRequest {
  WNDPROC procedure = nullptr;
  std::vector<WINDOWPOS> seen;
};
PlaceRequest* recorder = nullptr;

LRESULT CALLBACK RecordPlaces(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
  if (message == WM_WINDOWPOSCHANGING) {
    recorder->seen.push_back(*reinterpret_cast<const WINDOWPOS*>(lParam));
  }
  return ::CallWindowProcW(recorder->procedure, window, message, wParam, lParam);
}

TEST_F(WindowView, IsShownWithItsIconsAndSizeInBlack) {
  Open();
  const HWND window = state_->window;
  PlaceRequest places;
  recorder = &places;
  places.procedure = reinterpret_cast<WNDPROC>(
      ::SetWindowLongPtrW(window, GWLP_WNDPROC, reinterpret_cast<LONG_PTR>(&RecordPlaces)));
  ShowMainWindow(::GetModuleHandleW(nullptr), window, SW_SHOWNOACTIVATE);
  ::SetWindowLongPtrW(window, GWLP_WNDPROC, reinterpret_cast<LONG_PTR>(places.procedure));

  const auto icon =
      reinterpret_cast<LRESULT>(::LoadIconW(::GetModuleHandleW(nullptr), MAKEINTRESOURCEW(301)));
  EXPECT_EQ(Send(WM_GETICON, ICON_BIG), icon);
  EXPECT_EQ(Send(WM_GETICON, ICON_SMALL), icon);
  ASSERT_FALSE(places.seen.empty());
  EXPECT_EQ(places.seen[0].cx, 1220);
  EXPECT_EQ(places.seen[0].cy, 820);
  constexpr UINT kLeftAlone = SWP_NOMOVE | SWP_NOZORDER | SWP_NOACTIVATE;
  EXPECT_EQ(places.seen[0].flags & kLeftAlone, kLeftAlone);
  EXPECT_NE(::IsWindowVisible(window), FALSE);
  EXPECT_EQ(::GetUpdateRect(window, nullptr, FALSE), FALSE);
  const HDC context = ::GetDC(window);
  EXPECT_EQ(::GetPixel(context, 20, 20), RGB(0, 0, 0));
  ::ReleaseDC(window, context);
}

struct RepaintRow {
  const char* name;
  UINT message;
  WPARAM wParam;
  LPARAM lParam;
};

TEST_F(WindowView, IsRepaintedAfterRelevantMessages) {
  const RepaintRow rows[] = {
      {"job's result", kJobFinished, 0, 0},
      {"refused heartbeat", kHeartbeatRefused, 0, 0},
      {"notice", kNotice, 0, 0},
      {"saved profile", WM_COMMAND, 1012, 0},
      {"chosen page", WM_LBUTTONDOWN, 0, MAKELPARAM(400, 80)},
  };
  OpenWithReadyPage();
  ShowMainWindow(::GetModuleHandleW(nullptr), state_->window, SW_SHOWNOACTIVATE);
  for (const RepaintRow& row : rows) {
    Pump();
    ::UpdateWindow(state_->window);
    ASSERT_EQ(::GetUpdateRect(state_->window, nullptr, FALSE), FALSE) << row.name;
    Send(row.message, row.wParam, row.lParam);
    EXPECT_NE(::GetUpdateRect(state_->window, nullptr, FALSE), FALSE) << row.name;
  }
}

}  // namespace
}  // namespace shell
