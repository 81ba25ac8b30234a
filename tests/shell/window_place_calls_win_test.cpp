// The Windows calls that place the window on a monitor.
#include <gtest/gtest.h>

#include "shell/main_window.h"
#include "shell/window_fixture.h"
#include "win32/calls.h"

namespace shell {
namespace {

using namespace win32;

struct MonitorRow {
  const char* name;
  RECT workArea;
  BOOL isKnown;
  PixelSize smallest;
  std::string place;  // the expected SetWindowPos call for a window at [26 26]
};

// The arguments after the window: its place, size and flags.
std::string SaidPlace(int left, int top, int width, int height, UINT flags) {
  return Said<Api::SetWindowPos>(Some{}, nullptr, left, top, width, height, flags);
}

const MonitorRow kMonitors[] = {
    {"large",
     {0, 0, 1920, 1040},
     TRUE,
     {1220, 860},
     SaidPlace(26, 26, 1220, 820, SWP_NOMOVE | SWP_NOZORDER | SWP_NOACTIVATE)},
    {"laptop",
     {0, 0, 1366, 728},
     TRUE,
     {1220, 728},
     SaidPlace(26, 0, 1220, 728, SWP_NOZORDER | SWP_NOACTIVATE)},
    {"left of the first",
     {-1024, 40, 0, 800},
     TRUE,
     {1024, 760},
     SaidPlace(-1024, 40, 1024, 760, SWP_NOZORDER | SWP_NOACTIVATE)},
    {"not told",
     {0, 0, 1366, 728},
     FALSE,
     {1220, 860},
     SaidPlace(26, 26, 1220, 820, SWP_NOMOVE | SWP_NOZORDER | SWP_NOACTIVATE)},
};

class PlaceCalls : public WindowTest {
 protected:
  static void InstallFakes(Calls& calls, const MonitorRow& row) {
    calls.AnswerWith<Api::GetMonitorInfoW>([&row](HMONITOR, MONITORINFO* monitor) {
      EXPECT_EQ(monitor->cbSize, sizeof(MONITORINFO));
      monitor->rcMonitor = {-5000, -5000, 5000, 5000};  // with the task bar; must not be used
      monitor->rcWork = row.workArea;
      return row.isKnown;
    });
    calls.AnswerWith<Api::GetWindowRect>([](HWND, RECT* placed) {
      *placed = {26, 26, 1246, 846};
      return TRUE;
    });
    calls.AnswerWith<Api::SetWindowPos>([](HWND, HWND, int, int, int, int, UINT) { return TRUE; });
    calls.AnswerWith<Api::ShowWindow>([](HWND, int) { return FALSE; });
  }
  void Show() { ShowMainWindow(::GetModuleHandleW(nullptr), state_->window, SW_SHOWNORMAL); }
};

TEST_F(PlaceCalls, PutTheWindowWhollyOnTheNearestMonitor) {
  Open();
  for (const MonitorRow& row : kMonitors) {
    Calls calls;
    InstallFakes(calls, row);
    Show();
    const Text monitor{calls.Given(Api::MonitorFromWindow)};
    EXPECT_TRUE(calls.WereAmong(
        {Api::MonitorFromWindow, Api::GetMonitorInfoW, Api::GetWindowRect, Api::SetWindowPos},
        {Said<Api::MonitorFromWindow>(Some{}, MONITOR_DEFAULTTONEAREST),
         Said<Api::GetMonitorInfoW>(monitor, Some{}),
         Said<Api::GetWindowRect>(Some{}, Text{"[0 0 0 0]"}), row.place}))
        << row.name;
  }
}

TEST_F(PlaceCalls, LimitTheSmallestSizeToTheMonitors) {
  Open();
  for (const MonitorRow& row : kMonitors) {
    MINMAXINFO limits{};
    limits.ptMaxTrackSize = {7, 8};
    Calls calls;
    InstallFakes(calls, row);
    EXPECT_EQ(OnMinMaxInfo(state_->window, reinterpret_cast<LPARAM>(&limits)), 0);
    EXPECT_EQ(limits.ptMinTrackSize.x, row.smallest.width) << row.name;
    EXPECT_EQ(limits.ptMinTrackSize.y, row.smallest.height) << row.name;
    EXPECT_EQ(limits.ptMaxTrackSize.x, 7) << row.name;
    EXPECT_TRUE(calls.WereAmong({Api::MonitorFromWindow},
                                {Said<Api::MonitorFromWindow>(Some{}, MONITOR_DEFAULTTONEAREST)}));
  }
}

TEST_F(PlaceCalls, LeaveTheWindowInPlaceIfItsPlaceIsUnknown) {
  Open();
  Calls calls;
  InstallFakes(calls, kMonitors[0]);
  calls.Fail(Api::GetWindowRect, 1450);
  Show();
  EXPECT_TRUE(calls.EachWas(
      Api::SetWindowPos, SaidPlace(0, 0, 1220, 820, SWP_NOMOVE | SWP_NOZORDER | SWP_NOACTIVATE)));
}

TEST_F(PlaceCalls, ContinueWithoutIconsOrAMonitor) {
  Open();
  Calls calls;
  InstallFakes(calls, kMonitors[0]);
  calls.AnswerWith<Api::GetMonitorInfoW>([](HMONITOR monitor, MONITORINFO*) {
    EXPECT_EQ(monitor, nullptr);
    return FALSE;
  });
  for (const Api api : {Api::LoadIconW, Api::MonitorFromWindow, Api::SetWindowPos,
                        Api::InvalidateRect, Api::UpdateWindow}) {
    calls.Fail(api, 1450, 0);
  }
  Show();
  EXPECT_EQ(calls.Count(Api::ShowWindow), 1);
}

}  // namespace
}  // namespace shell
