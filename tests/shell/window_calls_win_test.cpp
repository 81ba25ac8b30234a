// The window's Windows calls and their arguments.
#include <gtest/gtest.h>

#include "shell/main_window.h"
#include "shell/window_fixture.h"
#include "shell/window_messages.h"
#include "win32/calls.h"

namespace shell {
namespace {

using namespace win32;

constexpr wchar_t kYaHei[] = L"Microsoft YaHei UI";

std::string SaidCreateFont(int height, int weight, const wchar_t* face) {
  return Said<Api::CreateFontW>(-height, 0, 0, 0, weight, FALSE, FALSE, FALSE, DEFAULT_CHARSET,
                                OUT_DEFAULT_PRECIS, CLIP_DEFAULT_PRECIS, CLEARTYPE_QUALITY,
                                DEFAULT_PITCH | FF_DONTCARE, face);
}

std::vector<std::string> Times(int count, const std::string& said) {
  return std::vector<std::string>(static_cast<std::size_t>(count), said);
}

class WindowCalls : public WindowTest {
 protected:
  HINSTANCE program_ = ::GetModuleHandleW(nullptr);
};

TEST_F(WindowCalls, RegisterTheClass) {
  Calls calls;
  calls.AnswerWith<Api::RegisterClassExW>([this](const WNDCLASSEXW* window) -> ATOM {
    EXPECT_EQ(window->hInstance, program_);
    return 1;
  });
  EXPECT_TRUE(RegisterMainWindow(program_));
  EXPECT_TRUE(calls.Were({
      Said<Api::LoadIconW>(Some{}, MAKEINTRESOURCEW(301)),
      Said<Api::LoadCursorW>(nullptr, IDC_ARROW),
      Said<Api::CreateSolidBrush>(RGB(6, 9, 11)),
      "RegisterClassExW({80 style 0 extra 0 0 icons h1 h1 cursor h2 brush h3 menu null "
      "\"VelmarineNativeWindow\"})",
  }));
  EXPECT_EQ(calls.Unbalanced(), "h3 of CreateSolidBrush") << "the class's from then on";
  calls.Fail(Api::RegisterClassExW, 1450);
  EXPECT_FALSE(RegisterMainWindow(program_));
}

TEST_F(WindowCalls, CreateTheWindow) {
  Calls calls;
  Open();
  EXPECT_TRUE(calls.WereAmong(
      {Api::CreateWindowExW, Api::SetWindowLongPtrW},
      {Said<Api::CreateWindowExW>(0, L"VelmarineNativeWindow", L"Velmarine.Client 维马林",
                                  WS_OVERLAPPEDWINDOW | WS_CLIPCHILDREN, CW_USEDEFAULT,
                                  CW_USEDEFAULT, 1220, 820, nullptr, nullptr, Handle{1}, Some{}),
       Said<Api::SetWindowLongPtrW>(Some{}, GWLP_USERDATA,
                                    reinterpret_cast<LONG_PTR>(window_.get()))}));
  EXPECT_TRUE(calls.WereAmong(
      {Api::CoInitializeEx, Api::CreateFontW, Api::CreateSolidBrush, Api::DwmSetWindowAttribute},
      {
          Said<Api::CoInitializeEx>(nullptr, COINIT_APARTMENTTHREADED),
          SaidCreateFont(22, FW_SEMIBOLD, kYaHei),
          SaidCreateFont(16, FW_NORMAL, kYaHei),
          SaidCreateFont(13, FW_NORMAL, kYaHei),
          SaidCreateFont(15, FW_SEMIBOLD, kYaHei),
          SaidCreateFont(14, FW_NORMAL, L"Consolas"),
          Said<Api::CreateSolidBrush>(RGB(6, 9, 11)),
          Said<Api::CreateSolidBrush>(RGB(13, 18, 21)),
          Said<Api::CreateSolidBrush>(RGB(20, 27, 31)),
          Said<Api::CreateSolidBrush>(RGB(46, 196, 160)),
          Said<Api::CreateSolidBrush>(RGB(38, 52, 56)),
          // The dark title bar: DWMWA_USE_IMMERSIVE_DARK_MODE, a BOOL set to TRUE.
          Said<Api::DwmSetWindowAttribute>(Some{}, 20, std::string("\1\0\0\0", 4), 4),
      }));
}

TEST_F(WindowCalls, ReleaseEverythingAtTheEnd) {
  Calls calls;
  Open();
  Close();
  EXPECT_EQ(calls.Unbalanced(), "");
  EXPECT_EQ(calls.Count(Api::DeleteObject), 10);
  EXPECT_EQ(calls.Count(Api::CoUninitialize), 1);
  EXPECT_TRUE(calls.WereAmong({Api::PostQuitMessage, Api::CoUninitialize},
                              {Said<Api::PostQuitMessage>(0), Said<Api::CoUninitialize>()}));
  const Text window{calls.Given(Api::CreateWindowExW)};
  EXPECT_TRUE(calls.WereAmong({Api::DestroyWindow}, {Said<Api::DestroyWindow>(window)}));
}

TEST_F(WindowCalls, LeaveNoApartmentThatWasNotEntered) {
  Calls calls;
  calls.Fail(Api::CoInitializeEx, 1450);
  Open();
  Close();
  EXPECT_EQ(calls.Count(Api::CoUninitialize), 0);
}

TEST_F(WindowCalls, ContinueWithoutADarkTitleBarFontsOrBrushes) {
  Calls calls;
  calls.Fail(Api::DwmSetWindowAttribute, 1450);
  calls.Fail(Api::CreateFontW, 1450, 0);
  calls.Fail(Api::CreateSolidBrush, 1450, 0);
  Open();
  EXPECT_NE(state_->window, nullptr);
  EXPECT_EQ(state_->gdi.Get(GdiObjects::Edit), nullptr);
  EXPECT_EQ(logged_, std::vector<std::wstring>{L"客户端启动中"});
}

TEST_F(WindowCalls, ShowTheWindow) {
  Open();
  const HWND window = state_->window;
  Calls calls;
  calls.AnswerWith<Api::ShowWindow>([](HWND, int) { return FALSE; });
  ShowMainWindow(program_, window, SW_SHOWMINNOACTIVE);
  EXPECT_TRUE(
      calls.WereAmong({Api::LoadIconW, Api::SendMessageW, Api::SetWindowPos, Api::ShowWindow,
                       Api::InvalidateRect, Api::UpdateWindow},
                      {
                          Said<Api::LoadIconW>(Some{}, MAKEINTRESOURCEW(301)),
                          Said<Api::SendMessageW>(Some{}, WM_SETICON, ICON_BIG, Handle{1}),
                          Said<Api::SendMessageW>(Some{}, WM_SETICON, ICON_SMALL, Handle{1}),
                          Said<Api::SetWindowPos>(Some{}, nullptr, 0, 0, 1220, 820,
                                                  SWP_NOMOVE | SWP_NOZORDER | SWP_NOACTIVATE),
                          Said<Api::ShowWindow>(Some{}, SW_SHOWMINNOACTIVE),
                          Said<Api::InvalidateRect>(Some{}, nullptr, TRUE),  // by the layout
                          Said<Api::InvalidateRect>(Some{}, nullptr, TRUE),
                          Said<Api::UpdateWindow>(Some{}),
                      }));
}

TEST_F(WindowCalls, LeaveOtherMessagesToTheSystem) {
  const HWND other = ::CreateWindowExW(0, L"STATIC", L"", WS_OVERLAPPED, 0, 0, 1, 1, nullptr,
                                       nullptr, nullptr, nullptr);
  DRAWITEMSTRUCT item{};
  item.CtlType = ODT_MENU;
  RECT place{0, 0, 1300, 900};
  Open();
  const struct {
    UINT message;
    WPARAM wParam;
    LPARAM lParam;
  } rows[] = {{WM_USER + 500, 1, 2},
              {WM_MOVE, 0, 5},
              {WM_MOVING, 0, reinterpret_cast<LPARAM>(&place)},
              {WM_ACTIVATE, WA_INACTIVE, 0},
              {WM_DRAWITEM, 3, reinterpret_cast<LPARAM>(&item)},
              {WM_LBUTTONDOWN, 1, MAKELPARAM(5, 5)},
              {WM_TIMER, 306, 0},
              {WM_COMMAND, 1, reinterpret_cast<LPARAM>(other)}};
  for (const auto& row : rows) {
    Calls calls;
    calls.AnswerWith<Api::DefWindowProcW>(
        [](HWND, UINT, WPARAM, LPARAM) -> LRESULT { return 4711; });
    EXPECT_EQ(Send(row.message, row.wParam, row.lParam), 4711) << row.message;
    EXPECT_TRUE(
        calls.WereAmong({Api::DefWindowProcW},
                        {Said<Api::DefWindowProcW>(Some{}, row.message, row.wParam, row.lParam)}));
  }
  ::DestroyWindow(other);
}

// Such messages arrive before WM_CREATE and after WM_NCDESTROY.
TEST_F(WindowCalls, LeaveMessagesWithoutAStateToTheSystem) {
  Open();
  const HWND window = state_->window;
  ::SetWindowLongPtrW(window, GWLP_USERDATA, 0);
  {
    Calls calls;
    calls.AnswerWith<Api::DefWindowProcW>(
        [](HWND, UINT, WPARAM, LPARAM) -> LRESULT { return 4711; });
    EXPECT_EQ(Send(WM_CLOSE, 1, 2), 4711);
    EXPECT_TRUE(calls.Were({Said<Api::SendMessageW>(Some{}, WM_CLOSE, 1, 2),
                            Said<Api::GetWindowLongPtrW>(Some{}, GWLP_USERDATA),
                            Said<Api::DefWindowProcW>(Some{}, WM_CLOSE, 1, 2)}));
  }
  ::SetWindowLongPtrW(window, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(window_.get()));
}

TEST_F(WindowCalls, DetachTheStateFromADestroyedWindow) {
  Open();
  const HWND window = state_->window;
  Calls calls;
  calls.AnswerWith<Api::DefWindowProcW>([](HWND, UINT, WPARAM, LPARAM) -> LRESULT { return 4711; });
  EXPECT_EQ(window_->OnNcDestroy(3, 4), 4711);
  EXPECT_EQ(state_->window, nullptr);
  EXPECT_TRUE(calls.Were({Said<Api::SetWindowLongPtrW>(Some{}, GWLP_USERDATA, 0),
                          Said<Api::CoUninitialize>(),
                          Said<Api::DefWindowProcW>(Some{}, WM_NCDESTROY, 3, 4)}));
  EXPECT_EQ(::GetWindowLongPtrW(window, GWLP_USERDATA), 0);
  ::DestroyWindow(window);
}

TEST_F(WindowCalls, FollowAChangeOfScale) {
  Open();
  RECT suggested{8, 6, 8 + 1260, 6 + 900};
  Calls calls;
  Send(WM_DPICHANGED, 0, reinterpret_cast<LPARAM>(&suggested));
  EXPECT_TRUE(calls.WereAmong(
      {Api::SetWindowPos},
      {Said<Api::SetWindowPos>(Some{}, nullptr, 8, 6, 1260, 900, SWP_NOZORDER | SWP_NOACTIVATE)}));
}

TEST_F(WindowCalls, PaintInBlack) {
  Open();
  RECT area{};
  ::GetClientRect(state_->window, &area);
  Calls calls;
  Send(WM_PAINT);
  EXPECT_TRUE(calls.Were({
      Said<Api::SendMessageW>(Some{}, WM_PAINT, 0, 0),
      Said<Api::GetWindowLongPtrW>(Some{}, GWLP_USERDATA),
      Said<Api::BeginPaint>(Some{}, Some{}),
      Said<Api::GetClientRect>(Some{}, Text{"[0 0 0 0]"}),
      Said<Api::GetStockObject>(BLACK_BRUSH),
      Said<Api::FillRect>(Handle{1}, &area, Handle{2}),
      Said<Api::EndPaint>(Some{}, Some{}),
  }));
}

TEST_F(WindowCalls, RepaintWithoutErasingAndLayOutWithIt) {
  Open();
  Calls calls;
  Repaint(state_->window);
  LayOut(state_->window);
  EXPECT_TRUE(calls.Were({Said<Api::InvalidateRect>(Some{}, nullptr, FALSE),
                          Said<Api::InvalidateRect>(Some{}, nullptr, TRUE)}));
}

TEST_F(WindowCalls, KeepTheResultAndRetryTimers) {
  OpenWithReadyPage();
  Calls calls;
  Connect(L"DEVICE_OFFLINE", L"");
  Connect(L"", L"c1");
  const std::string setResult = Said<Api::SetTimer>(Some{}, 304, 1000, nullptr);
  const std::string setRetry = Said<Api::SetTimer>(Some{}, 303, 5000, nullptr);
  const std::string killResult = Said<Api::KillTimer>(Some{}, 304);
  const std::string killRetry = Said<Api::KillTimer>(Some{}, 303);
  EXPECT_TRUE(calls.WereAmong({Api::SetTimer, Api::KillTimer},
                              {setResult, killResult, setRetry, setResult, killResult, killRetry}));
}

TEST_F(WindowCalls, PauseBetweenAttemptsToPostAResult) {
  OpenWithReadyPage();
  refusedResultPosts_ = 3;
  Calls calls(Calls::Threads::All);
  calls.AnswerWith<Api::Sleep>([](DWORD) {});
  calls.Ignore(Said<Api::Sleep>(0));  // by a contended lock
  PageSends(L"{\"action\":\"test\",\"f\":{}}");
  FinishJob();
  EXPECT_TRUE(calls.WereAmong({Api::Sleep}, Times(3, Said<Api::Sleep>(50))));
}

// ---- the window's messages

TEST_F(WindowCalls, PostTheTunnelsReports) {
  Open();
  Calls calls;
  tunnel_->observer.linkChanged(true);
  tunnel_->observer.linkChanged(false);
  tunnel_->observer.udpChanged(true);
  tunnel_->observer.udpChanged(false);
  const auto said = [](UINT message, WPARAM wParam, LPARAM lParam) {
    return Said<Api::PostMessageW>(Some{}, message, wParam, lParam);
  };
  EXPECT_TRUE(
      calls.WereAmong({Api::PostMessageW}, {said(WM_APP + 24, 1, 0), said(WM_APP + 24, 0, 0),
                                            said(WM_APP + 25, 1, 0), said(WM_APP + 25, 0, 0)}));
}

TEST_F(WindowCalls, PostTheBrowsersReports) {
  Open();
  Pump();
  Calls calls;
  events_.processFailed(static_cast<webview::ProcessFailedKind>(6));
  events_.otherFolderWanted();
  EXPECT_TRUE(
      calls.WereAmong({Api::PostMessageW}, {Said<Api::PostMessageW>(Some{}, WM_APP + 33, 6, 0),
                                            Said<Api::PostMessageW>(Some{}, WM_APP + 34, 0, 0)}));
  calls.Fail(Api::PostMessageW, ERROR_NOT_ENOUGH_QUOTA, 0);
  events_.processFailed(static_cast<webview::ProcessFailedKind>(6));
  events_.otherFolderWanted();
  EXPECT_TRUE(page_.calls.empty());
}

TEST_F(WindowCalls, HandleATextThatTheQueueRefuses) {
  Open();
  Calls calls;
  calls.Fail(Api::PostMessageW, ERROR_NOT_ENOUGH_QUOTA, 0);
  EXPECT_FALSE(PostText(state_->window, kNotice, L"text"));
  tunnel_->observer.linkChanged(true);
  tunnel_->observer.udpChanged(true);
}

TEST_F(WindowCalls, RemoveOnlyTheirOwnMessagesFromTheQueueAtTheEnd) {
  Open();
  Pump();
  Calls calls;
  DropPostedTexts(state_->window);
  EXPECT_TRUE(
      calls.Were({Said<Api::PeekMessageW>(Some{}, Some{}, kJobFinished, kShowFailure, PM_REMOVE)}));
}

TEST_F(WindowCalls, RepostAQuitMessageFoundWhileDroppingTexts) {
  Open();
  Pump();
  Calls calls;
  calls.AnswerWith<Api::PeekMessageW>([](MSG* message, HWND, UINT, UINT, UINT) {
    message->message = WM_QUIT;
    message->wParam = 7;
    return TRUE;
  });
  calls.AnswerWith<Api::PostQuitMessage>([](int) {});
  DropPostedTexts(state_->window);
  EXPECT_TRUE(calls.WereAmong({Api::PostQuitMessage}, {Said<Api::PostQuitMessage>(7)}));
}

TEST_F(WindowCalls, StampALogLineWithTheUsersClock) {
  OpenWithReadyPage();
  Calls calls;
  calls.AnswerWith<Api::GetLocalTime>(
      [](SYSTEMTIME* time) { *time = {2026, 3, 6, 15, 9, 41, 2, 0}; });
  Log(L"line");
  Pump();
  ASSERT_FALSE(page_.posted.empty());
  EXPECT_NE(page_.posted.back().find(L"09:41:02"), std::wstring::npos);
  EXPECT_TRUE(calls.EachWas(Api::GetLocalTime, Said<Api::GetLocalTime>(Some{})));
}

TEST_F(WindowCalls, LabelTheDiscoverySwitch) {
  OpenWithReadyPage();
  const HWND toggle = ::CreateWindowExW(0, L"STATIC", L"", WS_OVERLAPPED, 0, 0, 1, 1, nullptr,
                                        nullptr, nullptr, nullptr);
  Calls calls;
  Send(WM_COMMAND, 1025, reinterpret_cast<LPARAM>(toggle));
  wchar_t caption[64] = {};
  ::GetWindowTextW(toggle, caption, 64);
  EXPECT_TRUE(calls.WereAmong({Api::SetWindowTextW}, {Said<Api::SetWindowTextW>(Some{}, caption)}));
  EXPECT_STRNE(caption, L"");
  ::DestroyWindow(toggle);
}

}  // namespace
}  // namespace shell
