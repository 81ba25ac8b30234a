#include "shell/single_instance.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

namespace shell {
namespace {

const RunningClient kFree{true, true, {}};
const RunningClient kHere{false, true, {}};

// A start while other clients run, with records of its effects.
struct Start {
  std::function<RunningClient(int look)> claim;
  std::function<bool(int look)> bringToFront = [](int) { return false; };

  // Called by MayBecomeClient().
  RunningClient Claim() { return claim(++looks); }
  bool BringToFront() { return bringToFront(looks); }
  void Pause(std::chrono::milliseconds time) { waited += time; }
  void ShowMessage(const std::wstring& text) { messages.push_back(text); }

  bool Run() { return MayBecomeClient(*this); }

  int looks = 0;
  std::chrono::milliseconds waited{0};
  std::vector<std::wstring> messages{};
};

TEST(SingleInstance, TheOnlyStartBecomesTheClientAtOnce) {
  Start start{[](int) { return kFree; }};
  EXPECT_TRUE(start.Run());
  EXPECT_EQ(start.waited.count(), 0);
  EXPECT_TRUE(start.messages.empty());
}

TEST(SingleInstance, ASecondStartBringsTheFirstToTheFront) {
  Start start{[](int) { return kHere; }, [](int) { return true; }};
  EXPECT_FALSE(start.Run());
  EXPECT_EQ(start.waited.count(), 0);
  EXPECT_TRUE(start.messages.empty());
}

TEST(SingleInstance, WaitsForAWindowThatIsStillStarting) {
  Start start{[](int) { return kHere; }, [](int look) { return look == 5; }};
  EXPECT_FALSE(start.Run());
  EXPECT_EQ(start.waited, std::chrono::milliseconds(400));
  EXPECT_TRUE(start.messages.empty());
}

TEST(SingleInstance, TakesOverFromAClientThatEnds) {
  Start start{[](int look) { return look < 8 ? kHere : kFree; }};
  EXPECT_TRUE(start.Run());
  EXPECT_TRUE(start.messages.empty());
}

TEST(SingleInstance, AClientThatNeitherShowsNorEndsIsReportedAfterTenSeconds) {
  Start start{[](int) { return kHere; }};
  EXPECT_FALSE(start.Run());
  EXPECT_EQ(start.waited, std::chrono::seconds(10));
  EXPECT_EQ(start.messages, std::vector<std::wstring>{L"上一次运行的程序仍在退出，请稍后再启动。"});
}

TEST(SingleInstance, AnotherUsersClientIsReportedByName) {
  Start named{[](int) { return RunningClient{false, false, L"张工"}; }, [](int) { return true; }};
  EXPECT_FALSE(named.Run());
  ASSERT_EQ(named.messages.size(), 1U);
  EXPECT_NE(named.messages[0].find(L"用户“张工”"), std::wstring::npos);
  EXPECT_EQ(named.waited.count(), 0);

  Start unnamed{[](int) { return RunningClient{}; }};
  EXPECT_FALSE(unnamed.Run());
  ASSERT_EQ(unnamed.messages.size(), 1U);
  EXPECT_NE(unnamed.messages[0].find(L"另一个用户"), std::wstring::npos);
}

}  // namespace
}  // namespace shell
