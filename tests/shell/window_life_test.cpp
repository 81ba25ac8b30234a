#include <gtest/gtest.h>

#include <future>

#include "settings/json.h"
#include "shell/main_window.h"
#include "shell/page_link.h"
#include "shell/window_fixture.h"
#include "shell/window_messages.h"

namespace shell {
namespace {

using Lines = std::vector<std::wstring>;
using Names = std::vector<std::string>;

class WindowLife : public WindowTest {
 protected:
  // The exit code that the message loop would end with, if it would.
  static int QuitCode() {
    MSG message{};
    if (::PeekMessageW(&message, nullptr, WM_QUIT, WM_QUIT, PM_REMOVE) == FALSE) return -1;
    return static_cast<int>(message.wParam);
  }
};

TEST_F(WindowLife, StartsWithTheSettingsFileAndOneLine) {
  file_.deviceNumber = L"D-7";
  Open();
  EXPECT_EQ(logged_, Lines{L"客户端启动中"});
  EXPECT_EQ(state_->settings.deviceNumber, L"D-7");
  EXPECT_EQ(storeCalls_, Names{"load"});
  Pump();
  ASSERT_EQ(state_->pageQueue.size(), 3u);
  EXPECT_TRUE(state_->pageQueue[0].starts_with(L"{\"t\":\"apply\""));
  EXPECT_TRUE(state_->pageQueue[1].starts_with(L"{\"t\":\"state\""));
  EXPECT_NE(state_->pageQueue[1].find(L"\"statusline\":\"就绪。\""), std::wstring::npos);
  EXPECT_TRUE(state_->pageQueue[2].starts_with(L"{\"t\":\"log\""));
}

TEST_F(WindowLife, DamagedFileLeavesTheDefaultsAndIsSetAsideBeforeTheFirstSave) {
  fileDamaged_ = true;
  Open();
  Pump();
  ASSERT_EQ(logged_.size(), 2u);
  EXPECT_NE(logged_[0].find(L"设置文件无法读取"), std::wstring::npos);
  EXPECT_EQ(logged_[1], L"客户端启动中");
  EXPECT_EQ(state_->settings.targetNetwork, L"192.168.1.0/24");
  EXPECT_EQ(state_->settings.engineerId.size(), 12u);
  EXPECT_TRUE(state_->settings.engineerId.starts_with(L"ENG-"));
  EXPECT_EQ(storeCalls_, Names{"load"});

  PageSends(L"{\"action\":\"test\",\"f\":{}}");
  FinishJob();
  EXPECT_EQ(storeCalls_, (Names{"load", "keep", "save", "load"}));
  EXPECT_EQ(logged_[2], L"警告：无法读取的设置文件已另行保留：C:\\kept.json");
  Connect(L"", L"");
  EXPECT_EQ(keeps_, 1);
}

TEST_F(WindowLife, DamagedFileThatCannotBeSetAsideIsTold) {
  fileDamaged_ = true;
  keptAs_.clear();
  Open();
  PageSends(L"{\"action\":\"discovery\",\"f\":{}}");
  EXPECT_EQ(storeCalls_, (Names{"load", "keep", "save"}));
  EXPECT_EQ(logged_[2], L"警告：无法读取的设置文件未能另行保留。");
}

TEST_F(WindowLife, UpdateCheckRunsOnACopyOfTheLoadedSettingsAndPostsItsNotice) {
  file_.deviceName = L"新版本可用";  // what the fake check says
  Open();
  PumpUntil([this] { return logged_.size() == 2; });
  EXPECT_EQ(logged_[1], L"新版本可用");
}

TEST_F(WindowLife, MissingRuntimeIsShownOnceTheWindowRuns) {
  environmentFailure_ = L"WebView2 环境创建失败，请确认已安装 WebView2 运行时。";
  Open();
  EXPECT_EQ(logged_, (Lines{environmentFailure_, L"客户端启动中"}));
  EXPECT_TRUE(boxes_.empty());
  Pump();
  EXPECT_EQ(boxes_, Lines{environmentFailure_});
}

TEST_F(WindowLife, PageMessagesComeThroughTheQueue) {
  OpenWithReadyPage();
  events_.pageMessage(L"{\"action\":\"discovery\",\"f\":{}}");
  EXPECT_TRUE(logged_.empty());
  Pump();
  EXPECT_EQ(logged_.size(), 1u);
}

TEST_F(WindowLife, ClosingStopsTheTunnelAndNotTheService) {
  OpenWithReadyPage();
  tunnel_->running = true;
  state_->settings.connectionId = L"c1";
  Close();
  EXPECT_EQ(tunnel_->stops, 1);
  EXPECT_TRUE(jobsRun_.empty());
  EXPECT_TRUE(logged_.empty());
  EXPECT_TRUE(storeCalls_.empty());
  EXPECT_EQ(state_->window, nullptr);
  EXPECT_EQ(state_->web, nullptr);
  EXPECT_EQ(page_.calls.front(), "close");
  EXPECT_EQ(QuitCode(), 0);
}

TEST_F(WindowLife, ClosingWaitsForTheJobThatRuns) {
  OpenWithReadyPage();
  std::promise<void> gate;
  std::atomic<bool> ended{false};
  jobBody_ = [this, &ended, opened = gate.get_future().share()](settings::Settings&,
                                                                tunnel::Tunnel&) {
    opened.wait();
    ended = true;
    return std::wstring(L"完成");
  };
  PageSends(L"{\"action\":\"connect\",\"f\":{}}");
  std::thread opener([&gate, this] {
    while (tunnel_->stops == 0) std::this_thread::yield();  // stopped before the wait
    gate.set_value();
  });
  Close();
  opener.join();
  EXPECT_TRUE(ended);
  EXPECT_FALSE(state_->worker.joinable());
  EXPECT_EQ(QuitCode(), 0);
}

TEST_F(WindowLife, ClosesEvenWhenTheTunnelsStopFails) {
  OpenWithReadyPage();
  tunnel_->stopThrows = true;
  Close();
  EXPECT_EQ(tunnel_->stops, 1);
  EXPECT_EQ(state_->window, nullptr);
  EXPECT_EQ(QuitCode(), 0);
}

TEST_F(WindowLife, LeavesNothingBehindWhenItCannotBeMade) {
  hostFails_ = true;
  EXPECT_EQ(CreateMainWindow(::GetModuleHandleW(nullptr), *state_), nullptr);
  EXPECT_EQ(state_->window, nullptr);
  EXPECT_EQ(state_->apartment, nullptr);
  EXPECT_TRUE(storeCalls_.empty());
}

TEST_F(WindowLife, ClosingEndsTheRetry) {
  OpenWithReadyPage();
  Connect(L"DEVICE_OFFLINE", L"");
  EXPECT_TRUE(state_->retryArmed);
  Close();
  EXPECT_FALSE(state_->retryArmed);
}

TEST_F(WindowLife, DestroyedWithoutBeingClosedItClosesThePage) {
  OpenWithReadyPage();
  ::DestroyWindow(state_->window);
  EXPECT_EQ(page_.calls, Names{"close"});
  EXPECT_EQ(tunnel_->stops, 1);
  EXPECT_EQ(QuitCode(), 0);
}

TEST_F(WindowLife, TextsForAWindowThatIsGoneAreFreed) {
  Open();
  const HWND window = state_->window;
  Log(*state_, L"still queued");
  Close();
  EXPECT_FALSE(PostText(window, kNotice, L"late"));
  PostToPage(*state_, L"{}");
  Log(*state_, L"after the end");
  EXPECT_EQ(logged_.back(), L"after the end");
}

TEST_F(WindowLife, AnExceptionInsideIsLoggedAndTheWindowGoesOn) {
  OpenWithReadyPage();
  saveFails_ = true;
  PageSends(L"{\"action\":\"discovery\",\"f\":{}}");
  EXPECT_EQ(logged_.back(), L"Error: disk");
  PageSends(L"{\"action\":\"saveProfile\",\"f\":{}}");
  EXPECT_EQ(logged_.back(), L"档案未保存：请先填写档案名称。");
}

}  // namespace
}  // namespace shell
