#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <memory>

#include "shell/window_fixture.h"
#include "shell/window_messages.h"
#include "win32/calls.h"
// Needs windows.h first.
#include <wtsapi32.h>

// The window's reactions to sleep, network changes and the end of the session.
namespace shell {
namespace {

using Lines = std::vector<std::wstring>;

class WindowSystem : public WindowTest {
 protected:
  void OpenOnline() {
    OpenWithReadyPage();
    tunnel_->Start({});
  }
  std::size_t CountOf(const std::wstring& line) const {
    return static_cast<std::size_t>(std::count(logged_.begin(), logged_.end(), line));
  }
};

TEST_F(WindowSystem, GetsTheSystemsNoticesWhileItExists) {
  Open();
  EXPECT_EQ(subscribed_, state_->window);
  Close();
  EXPECT_EQ(subscribed_, nullptr);
}

TEST_F(WindowSystem, SleepAndWakeAreOneLineEach) {
  OpenWithReadyPage();
  EXPECT_EQ(Send(WM_POWERBROADCAST, PBT_APMSUSPEND), TRUE);
  EXPECT_EQ(Send(WM_POWERBROADCAST, PBT_APMRESUMEAUTOMATIC), TRUE);
  EXPECT_EQ(Send(WM_POWERBROADCAST, PBT_APMRESUMESUSPEND), TRUE);      // repeats the wake above
  EXPECT_EQ(Send(WM_POWERBROADCAST, PBT_APMPOWERSTATUSCHANGE), TRUE);  // the battery
  EXPECT_EQ(logged_, (Lines{L"电脑即将睡眠。", L"电脑已唤醒。"}));
  EXPECT_EQ(tunnel_->looks, 0);
}

TEST_F(WindowSystem, DuplicateNoticesAreOneSleepAndOneWake) {
  OpenOnline();
  for (int twice = 0; twice < 2; ++twice) Send(WM_POWERBROADCAST, PBT_APMSUSPEND);
  for (int twice = 0; twice < 2; ++twice) Send(WM_POWERBROADCAST, PBT_APMRESUMEAUTOMATIC);
  EXPECT_EQ(logged_.size(), 2u);
  EXPECT_EQ(tunnel_->looks, 1);
  Send(WM_POWERBROADCAST, PBT_APMSUSPEND);
  Send(WM_POWERBROADCAST, PBT_APMRESUMEAUTOMATIC);
  EXPECT_EQ(logged_.size(), 4u);
  EXPECT_EQ(tunnel_->looks, 2);
}

// A wake without a reported sleep counts as new five seconds after the previous one.
TEST_F(WindowSystem, ARepeatedWakeCountsAgainAfterFiveSeconds) {
  OpenOnline();
  ULONGLONG nowMs = 1'000'000;
  win32::Calls calls;
  calls.AnswerWith<win32::Api::GetTickCount64>([&nowMs] { return nowMs; });
  std::vector<int> looks;
  for (const ULONGLONG laterMs : std::initializer_list<ULONGLONG>{0, 4999, 1, 4999, 5000}) {
    nowMs += laterMs;
    Send(WM_POWERBROADCAST, PBT_APMRESUMEAUTOMATIC);
    looks.push_back(tunnel_->looks);
  }
  EXPECT_EQ(looks, (std::vector<int>{1, 1, 2, 2, 3}));
  EXPECT_TRUE(calls.EachWas(win32::Api::GetTickCount64, win32::Said<win32::Api::GetTickCount64>()));
}

TEST_F(WindowSystem, AWakeWithoutASleepCounts) {
  OpenOnline();
  Send(WM_POWERBROADCAST, PBT_APMRESUMEAUTOMATIC);
  EXPECT_EQ(logged_, Lines{L"电脑已唤醒，正在检查中继连接。"});
  EXPECT_EQ(tunnel_->looks, 1);
}

TEST_F(WindowSystem, ARunningTunnelChecksTheNetworkAfterAWake) {
  OpenOnline();
  Send(WM_POWERBROADCAST, PBT_APMSUSPEND);
  EXPECT_EQ(tunnel_->looks, 0);
  Send(WM_POWERBROADCAST, PBT_APMRESUMEAUTOMATIC);
  EXPECT_EQ(tunnel_->looks, 1);
  EXPECT_EQ(logged_, (Lines{L"电脑即将睡眠，远程连接会中断，唤醒后自动恢复。",
                            L"电脑已唤醒，正在检查中继连接。"}));
}

TEST_F(WindowSystem, EachChangeOfTheSessionIsOneLine) {
  OpenWithReadyPage();
  for (WPARAM change = 0; change <= WTS_SESSION_REMOTE_CONTROL; ++change) {
    Send(WM_WTSSESSION_CHANGE, change, 1);
  }
  EXPECT_EQ(
      logged_,
      (Lines{L"用户会话已切换回本机屏幕。", L"用户会话已离开本机屏幕，软件继续运行。",
             L"用户会话已由 Windows 远程桌面接入。", L"Windows 远程桌面已断开，软件继续运行。",
             L"用户已登录。", L"用户正在注销。", L"电脑已锁定，软件继续运行。", L"电脑已解锁。"}));
}

TEST_F(WindowSystem, ABurstOfAddressChangesIsOneLineAndOneCheck) {
  OpenOnline();
  for (int i = 0; i < 5; ++i) Send(kAddressesChanged);
  EXPECT_TRUE(logged_.empty());
  PumpUntil([this] { return !logged_.empty(); });
  EXPECT_EQ(logged_, Lines{L"本机网络地址已变化，正在检查中继连接。"});
  EXPECT_EQ(tunnel_->looks, 1);
  EXPECT_EQ(::KillTimer(state_->window, kAddressTimer), FALSE);  // no longer runs
}

TEST_F(WindowSystem, WithoutATunnelAnAddressChangeIsOnlyLogged) {
  OpenWithReadyPage();
  Send(WM_TIMER, kAddressTimer);
  EXPECT_EQ(logged_, Lines{L"本机网络地址已变化。"});
  EXPECT_EQ(tunnel_->looks, 0);
}

TEST_F(WindowSystem, LinesOfTheTunnelReachTheLog) {
  OpenWithReadyPage();
  tunnel_->observer.notice(L"局域网发现已恢复。");
  Pump();
  EXPECT_EQ(logged_, Lines{L"局域网发现已恢复。"});
}

TEST_F(WindowSystem, AnUnsuitableComputerIsReportedInTheLogAndInABox) {
  unsuitableComputer_ = L"警告：ARM64";
  Open();
  Pump();
  EXPECT_EQ(logged_, (Lines{L"客户端启动中", L"警告：ARM64"}));
  EXPECT_EQ(boxes_, Lines{L"警告：ARM64"});
}

TEST_F(WindowSystem, TheEndOfTheSessionIsAcceptedAndMayBeCancelled) {
  OpenOnline();
  EXPECT_EQ(Send(WM_QUERYENDSESSION), TRUE);
  EXPECT_EQ(Send(WM_ENDSESSION, FALSE), 0);
  EXPECT_EQ(logged_, (Lines{L"Windows 即将注销或关机。", L"注销或关机已取消。"}));
  EXPECT_TRUE(tunnel_->IsRunning());
  EXPECT_FALSE(state_->closing.stop_requested());
}

TEST_F(WindowSystem, TheEndOfTheSessionStopsTheTunnelAndClearsTheProxyList) {
  std::vector<std::wstring> removed;
  onProxyRemoval_ = [&](const std::vector<std::wstring>& routes) {
    removed = routes;
    // A real removal broadcasts to every window, including this one, and waits for each.
    ::SendMessageTimeoutW(state_->window, WM_SETTINGCHANGE, 0, 0, SMTO_NORMAL, 10'000, nullptr);
  };
  OpenOnline();
  Edit([](settings::Settings& settings) {
    settings.connectionId = L"c1";
    settings.granted = {L"c1", L"http://service", L"ENG-1", {L"10.0.0.0/24"}};
  });
  const ULONGLONG begin = ::GetTickCount64();
  Send(WM_ENDSESSION, TRUE);
  EXPECT_LT(::GetTickCount64() - begin, 2500u);
  EXPECT_TRUE(tunnel_->stoppedForGood);
  EXPECT_EQ(removed, Lines{L"10.0.0.0/24"});
  EXPECT_TRUE(state_->closing.stop_requested());
  EXPECT_EQ(logged_, (Lines{L"Windows 正在结束会话：停止软件隧道，移除系统代理旁路。",
                            L"软件隧道已停止，设置已保存。"}));
  // The window stays until the system ends the process, but starts no more jobs.
  PageSends(L"{\"action\":\"connect\",\"f\":{}}");
  EXPECT_TRUE(jobsRun_.empty());
}

TEST_F(WindowSystem, TheEndOfTheSessionForgetsThePassword) {
  auto times = std::make_shared<std::atomic<int>>(0);
  *forgetPassword_ = [times] { ++*times; };
  OpenWithReadyPage();
  Send(WM_ENDSESSION, FALSE);
  EXPECT_EQ(*times, 0);
  Send(WM_ENDSESSION, TRUE);
  EXPECT_EQ(*times, 1);
}

TEST_F(WindowSystem, TheEndOfTheSessionWaitsForTheRunningJobsSettings) {
  OpenWithReadyPage();
  std::promise<void> begun;
  jobBody_ = [&](settings::Settings& settings, tunnel::Tunnel&) {
    begun.set_value();
    while (!link_.closing.stop_requested()) ::Sleep(1);
    ::Sleep(100);
    settings.latencyText = L"7 ms";
    return std::wstring(L"完成");
  };
  PageSends(L"{\"action\":\"test\",\"f\":{}}");
  begun.get_future().wait();
  Send(WM_ENDSESSION, TRUE);
  EXPECT_EQ(Record().latencyText, L"7 ms");
  EXPECT_EQ(CountOf(L"软件隧道已停止，设置已保存。"), 1u);
}

TEST_F(WindowSystem, TheEndOfTheSessionDoesNotWaitLongerThanTheSystem) {
  OpenOnline();
  std::promise<void> release;
  tunnel_->onStop = [released = release.get_future().share()] { released.wait(); };
  const ULONGLONG begin = ::GetTickCount64();
  Send(WM_ENDSESSION, TRUE);
  const ULONGLONG took = ::GetTickCount64() - begin;
  EXPECT_GE(took, 2400u);
  EXPECT_LT(took, 3000u);
  EXPECT_EQ(logged_.back(), L"警告：会话结束前未能完成全部清理。");
  release.set_value();
}

TEST_F(WindowSystem, TheEndOfTheSessionSavesUnsavedSettings) {
  OpenWithReadyPage();
  disk_.refuse = [](const std::wstring&) { return std::wstring(L"拒绝访问。"); };
  PageSends(L"{\"action\":\"discovery\",\"f\":{\"discovery\":true}}");
  ASSERT_FALSE(OnDisk().discoveryModeEnabled);
  disk_.refuse = nullptr;
  Send(WM_ENDSESSION, TRUE);
  EXPECT_TRUE(OnDisk().discoveryModeEnabled);
}

}  // namespace
}  // namespace shell
