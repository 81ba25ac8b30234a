#include <gtest/gtest.h>

#include <future>

#include "settings/json.h"
#include "shell/main_window.h"
#include "shell/window_fixture.h"
#include "shell/window_messages.h"

namespace shell {
namespace {

using Lines = std::vector<std::wstring>;
using Names = std::vector<std::string>;

class WindowLife : public WindowTest {
 protected:
  // Returns the exit code of a pending WM_QUIT, if there is one.
  static int QuitCode() {
    MSG message{};
    if (::PeekMessageW(&message, nullptr, WM_QUIT, WM_QUIT, PM_REMOVE) == FALSE) return -1;
    return static_cast<int>(message.wParam);
  }
};

TEST_F(WindowLife, StartsWithTheSettingsFileAndOneLine) {
  PutOnDisk([](settings::Settings& settings) { settings.deviceNumber = L"D-7"; });
  Open();
  EXPECT_EQ(logged_, Lines{L"客户端启动中"});
  EXPECT_EQ(Record().deviceNumber, L"D-7");
  EXPECT_TRUE(disk_.written.empty());
  Pump();
  ASSERT_EQ(state_->pageQueue.size(), 3u);
  EXPECT_TRUE(state_->pageQueue[0].starts_with(L"{\"t\":\"apply\""));
  EXPECT_TRUE(state_->pageQueue[1].starts_with(L"{\"t\":\"state\""));
  EXPECT_NE(state_->pageQueue[1].find(L"\"statusline\":\"就绪。\""), std::wstring::npos);
  EXPECT_TRUE(state_->pageQueue[2].starts_with(L"{\"t\":\"log\""));
}

TEST_F(WindowLife, LeftoverProxyEntriesAreOneLineAtTheStart) {
  leftovers_ = L"已清理";
  Open();
  EXPECT_EQ(logged_, (Lines{L"客户端启动中", L"已清理"}));
}

TEST_F(WindowLife, DamagedFileLeavesTheDefaultsAndIsSetAsideBeforeTheFirstSave) {
  disk_.files[settings::kPath] = "damaged";
  Open();
  Pump();
  ASSERT_EQ(logged_.size(), 2u);
  EXPECT_NE(logged_[0].find(L"设置文件无法读取"), std::wstring::npos);
  EXPECT_EQ(logged_[1], L"客户端启动中");
  EXPECT_EQ(Record().targetNetwork, L"192.168.1.0/24");
  EXPECT_EQ(Record().engineerId.size(), 12u);
  EXPECT_TRUE(Record().engineerId.starts_with(L"ENG-"));
  EXPECT_TRUE(disk_.written.empty());

  PageSends(L"{\"action\":\"test\",\"f\":{}}");
  FinishJob();
  EXPECT_EQ(disk_.files[settings::kDamagedPath], "damaged");
  const std::wstring kept =
      std::wstring(L"警告：无法读取的设置文件已另行保留：") + settings::kDamagedPath;
  EXPECT_EQ(std::count(logged_.begin(), logged_.end(), kept), 1);
  EXPECT_EQ(OnDisk().engineerId, Record().engineerId);
}

TEST_F(WindowLife, DamagedFileIsReplacedByTheSecondCopy) {
  settings::Settings last;
  last.engineerId = L"ENG-12345678";
  disk_.files[settings::kLastPath] = settings::FileBytes(last);
  disk_.files[settings::kPath] = "damaged";
  Open();
  EXPECT_EQ(Record().engineerId, L"ENG-12345678");
  EXPECT_EQ(logged_,
            (Lines{L"警告：设置文件无法读取，已恢复上次保存的设置；原文件将在首次保存前另行"
                   L"保留。",
                   L"客户端启动中"}));
}

TEST_F(WindowLife, DamagedFileThatCannotBeSetAsideIsReportedAndKept) {
  disk_.files[settings::kPath] = "damaged";
  disk_.refuse = [](const std::wstring&) { return std::wstring(L"拒绝访问。"); };
  Open();
  PageSends(L"{\"action\":\"discovery\",\"f\":{}}");
  ASSERT_GE(logged_.size(), 2u);
  EXPECT_TRUE(logged_.end()[-2].starts_with(L"警告：设置未能保存：原设置文件未能另行保留"));
  EXPECT_TRUE(logged_.back().starts_with(L"提示：改动还在内存里"));
  EXPECT_EQ(disk_.files[settings::kPath], "damaged");
}

TEST_F(WindowLife, UpdateCheckRunsOnACopyOfTheLoadedSettingsAndPostsItsNotice) {
  // The fake check returns this text.
  PutOnDisk([](settings::Settings& settings) { settings.deviceName = L"新版本可用"; });
  Open();
  PumpUntil([this] { return logged_.size() == 2; });
  EXPECT_EQ(logged_[1], L"新版本可用");
}

TEST_F(WindowLife, UpdateCheckIsAskedToEndWhenTheWindowCloses) {
  auto asked = std::make_shared<std::promise<void>>();  // nothing joins the check's thread
  std::future<void> ended = asked->get_future();
  *checkForUpdate_ = [asked](const settings::Settings&, const std::stop_token& closing) {
    while (!closing.stop_requested()) std::this_thread::yield();
    asked->set_value();
    return std::wstring(L"新版本可用");
  };
  OpenWithReadyPage();
  Close();
  EXPECT_EQ(ended.wait_for(std::chrono::seconds(20)), std::future_status::ready);
  EXPECT_TRUE(logged_.empty());
}

TEST_F(WindowLife, MissingRuntimeIsShownOnceTheWindowRuns) {
  environmentFailure_ = L"WebView2 环境创建失败，请确认已安装 WebView2 运行时。";
  Open();
  EXPECT_EQ(logged_, (Lines{environmentFailure_, L"客户端启动中"}));
  EXPECT_TRUE(boxes_.empty());
  Pump();
  EXPECT_EQ(boxes_, Lines{environmentFailure_});
}

TEST_F(WindowLife, PageMessagesPassThroughTheQueue) {
  OpenWithReadyPage();
  events_.pageMessage(L"{\"action\":\"discovery\",\"f\":{}}");
  EXPECT_TRUE(logged_.empty());
  Pump();
  EXPECT_EQ(logged_.size(), 1u);
}

TEST_F(WindowLife, ClosingStopsTheTunnelAndNotTheService) {
  OpenWithReadyPage();
  tunnel_->running = true;
  Edit([](settings::Settings& settings) { settings.connectionId = L"c1"; });
  Close();
  EXPECT_EQ(tunnel_->stops, 1);
  EXPECT_TRUE(jobsRun_.empty());
  EXPECT_TRUE(logged_.empty());
  EXPECT_TRUE(disk_.written.empty());
  EXPECT_EQ(state_->window, nullptr);
  EXPECT_EQ(state_->web, nullptr);
  EXPECT_EQ(page_.calls.front(), "close");
  EXPECT_EQ(QuitCode(), 0);
}

TEST_F(WindowLife, ClosingWaitsForTheRunningJob) {
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

// Both the engineer's changes during the job and the job's result must reach the disk.
TEST_F(WindowLife, ClosingDuringAJobLosesNeitherItsResultNorAProfile) {
  OpenWithReadyPage();
  jobBody_ = [this](settings::Settings& settings, tunnel::Tunnel&) {
    while (tunnel_->stops == 0) std::this_thread::yield();  // until the window is closing
    settings.latencyText = L"12 ms";
    return std::wstring(L"完成");
  };
  PageSends(L"{\"action\":\"test\",\"f\":{\"secret\":\"mine\"}}");
  PageSends(L"{\"action\":\"saveProfile\",\"f\":{\"secret\":\"mine\",\"profileName\":\"A\"}}");
  Close();
  EXPECT_EQ(OnDisk().latencyText, L"12 ms");
  ASSERT_EQ(OnDisk().siteProfiles.size(), 1u);
  EXPECT_EQ(OnDisk().siteProfiles[0].name, L"A");
}

TEST_F(WindowLife, ClosingAsksTheJobToEndBeforeItStopsTheTunnelForGood) {
  OpenWithReadyPage();
  int stopsBefore = -1;
  const std::stop_callback asked(state_->closing.get_token(),
                                 [&] { stopsBefore = tunnel_->stops; });
  jobBody_ = [this](settings::Settings& settings, tunnel::Tunnel&) {
    while (!link_.closing.stop_requested()) std::this_thread::yield();
    settings.latencyText = L"12 ms";
    return std::wstring(L"完成");
  };
  PageSends(L"{\"action\":\"test\",\"f\":{}}");
  Close();
  EXPECT_EQ(stopsBefore, 0);
  EXPECT_TRUE(tunnel_->stoppedForGood);
  EXPECT_EQ(OnDisk().latencyText, L"12 ms");
}

TEST_F(WindowLife, ClosingForgetsThePasswordAfterTheLastJob) {
  OpenWithReadyPage();
  auto done = std::make_shared<std::vector<std::string>>();
  *forgetPassword_ = [done] { done->emplace_back("forgotten"); };
  jobBody_ = [this, done](settings::Settings&, tunnel::Tunnel&) {
    while (tunnel_->stops == 0) std::this_thread::yield();  // the window now waits for this job
    done->emplace_back("copied");
    return std::wstring(L"完成");
  };
  PageSends(L"{\"action\":\"desktop\",\"f\":{}}");
  Close();
  EXPECT_EQ(*done, (std::vector<std::string>{"copied", "forgotten"}));
}

// EmptyClipboard() sends a message to the clipboard's owner, which may be this window.
TEST_F(WindowLife, ClosingAnswersTheEmptiedClipboard) {
  OpenWithReadyPage();
  auto answered = std::make_shared<LRESULT>(0);
  *forgetPassword_ = [answered, window = state_->window] {
    *answered =
        ::SendMessageTimeoutW(window, WM_DESTROYCLIPBOARD, 0, 0, SMTO_NORMAL, 20'000, nullptr);
  };
  Close();
  EXPECT_NE(*answered, 0);
}

TEST_F(WindowLife, ClosingGivesUpOnABlockedClipboard) {
  OpenWithReadyPage();
  const auto release = std::make_shared<std::promise<void>>();
  *forgetPassword_ = [released = release->get_future().share()] { released.wait(); };
  const ULONGLONG begin = ::GetTickCount64();
  Close();
  const ULONGLONG took = ::GetTickCount64() - begin;
  EXPECT_GE(took, 2400u);
  EXPECT_LT(took, 3500u);
  EXPECT_EQ(QuitCode(), 0);
  release->set_value();
}

TEST_F(WindowLife, ClosingAnswersAJobThatBroadcastsASetting) {
  OpenWithReadyPage();
  LRESULT answered = 0;
  jobBody_ = [&](settings::Settings&, tunnel::Tunnel&) {
    while (tunnel_->stops == 0) std::this_thread::yield();  // the window now waits for this job
    constexpr UINT kPatienceMs = 20'000;
    answered = ::SendMessageTimeoutW(state_->window, WM_SETTINGCHANGE, 0, 0, SMTO_NORMAL,
                                     kPatienceMs, nullptr);
    return std::wstring(L"完成");
  };
  PageSends(L"{\"action\":\"stop\",\"f\":{}}");
  Close();
  EXPECT_NE(answered, 0);
}

// Closing the page dispatches messages; a click among them comes too late.
TEST_F(WindowLife, NoJobStartsOnceClosing) {
  OpenWithReadyPage();
  state_->closing.request_stop();
  PageSends(L"{\"action\":\"connect\",\"f\":{}}");
  EXPECT_TRUE(jobsRun_.empty());
  EXPECT_FALSE(state_->busy);
  EXPECT_TRUE(logged_.empty());
}

TEST_F(WindowLife, NoticesAfterAJobAreLoggedUntilTheWindowCloses) {
  OpenWithReadyPage();
  PageSends(L"{\"action\":\"desktop\",\"f\":{}}");
  FinishJob();
  link_.notice(L"提示");
  Pump();
  EXPECT_EQ(logged_.back(), L"提示");
  Close();
  link_.notice(L"太晚");
  EXPECT_EQ(logged_.back(), L"提示");
}

TEST_F(WindowLife, ClosingRetriesAFailedSaveOnce) {
  OpenWithReadyPage();
  disk_.refuse = [](const std::wstring&) { return std::wstring(L"拒绝访问。"); };
  PageSends(L"{\"action\":\"saveProfile\",\"f\":{\"secret\":\"mine\",\"profileName\":\"A\"}}");
  disk_.refuse = nullptr;
  Close();
  EXPECT_EQ(OnDisk().siteProfiles.size(), 1u);
}

TEST_F(WindowLife, ClosesEvenWhenTheTunnelsStopFails) {
  OpenWithReadyPage();
  tunnel_->stopThrows = true;
  Close();
  EXPECT_EQ(tunnel_->stops, 1);
  EXPECT_EQ(state_->window, nullptr);
  EXPECT_EQ(QuitCode(), 0);
}

TEST_F(WindowLife, LeavesNothingBehindWhenItCannotBeCreated) {
  hostFails_ = true;
  EXPECT_EQ(CreateMainWindow(::GetModuleHandleW(nullptr), *window_), nullptr);
  EXPECT_EQ(state_->window, nullptr);
  EXPECT_EQ(state_->apartment, nullptr);
  EXPECT_TRUE(disk_.written.empty());
}

TEST_F(WindowLife, ClosingEndsTheRetry) {
  OpenWithReadyPage();
  Connect(L"DEVICE_OFFLINE", L"");
  EXPECT_TRUE(state_->retryArmed);
  Close();
  EXPECT_FALSE(state_->retryArmed);
}

TEST_F(WindowLife, ClosesThePageWhenDestroyedWithoutBeingClosed) {
  OpenWithReadyPage();
  ::DestroyWindow(state_->window);
  EXPECT_EQ(page_.calls, Names{"close"});
  EXPECT_EQ(tunnel_->stops, 1);
  EXPECT_EQ(QuitCode(), 0);
}

TEST_F(WindowLife, TextsForADestroyedWindowAreFreed) {
  Open();
  const HWND window = state_->window;
  Log(L"still queued");
  Close();
  EXPECT_FALSE(PostText(window, kNotice, L"late"));
  PostToPage(L"{}");
  Log(L"after the end");
  EXPECT_EQ(logged_.back(), L"after the end");
}

TEST_F(WindowLife, AnExceptionIsLoggedAndTheWindowContinues) {
  OpenWithReadyPage();
  page_.duringPost = [] { throw std::runtime_error("page"); };
  PageSends(L"{\"action\":\"ready\",\"f\":{}}");
  Pump();
  EXPECT_EQ(logged_.back(), L"Error: page");
  PageSends(L"{\"action\":\"saveProfile\",\"f\":{}}");
  EXPECT_EQ(logged_.back(), L"档案未保存：请先填写档案名称。");
}

}  // namespace
}  // namespace shell
