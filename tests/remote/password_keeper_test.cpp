#include "remote/password_keeper.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <future>
#include <thread>
#include <vector>

namespace remote {
namespace {

using Texts = std::vector<std::wstring>;
using std::chrono::milliseconds;
using std::chrono::minutes;
using std::chrono::seconds;

// A clipboard and a clock that counts how often it is read.
class FakeClipboardDesk {
 public:
  bool Copy(const std::wstring& text) {
    copied.push_back(text);
    if (copies) Put(text);
    return copies.load();
  }
  bool TakeOff(const std::wstring& text) {
    const bool isFree = !isHeld;
    if (isFree && Text() == text) Put(L"");
    ++takes;
    return isFree;
  }
  std::chrono::steady_clock::time_point Now() {
    ++looks;
    return std::chrono::steady_clock::time_point(milliseconds(nowMs_));
  }

  void Put(const std::wstring& text) {
    const platform::MutexLock held(lock_);
    text_ = text;
  }
  std::wstring Text() {
    const platform::MutexLock held(lock_);
    return text_;
  }
  void Pass(milliseconds time) { nowMs_ += time.count(); }

  Texts copied;  // including attempts that failed because `copies` is false
  std::atomic<bool> copies{true};
  std::atomic<bool> isHeld{false};
  std::atomic<int> takes{0};
  std::atomic<int> looks{0};

 private:
  platform::Mutex lock_;
  std::wstring text_ GUARDED_BY(lock_);
  std::atomic<std::int64_t> nowMs_{0};
};

struct KeeperOn : PasswordKeeper {
  KeeperOn(FakeClipboardDesk& desk, milliseconds longestWait)
      : PasswordKeeper([&desk](const std::wstring& text) { return desk.Copy(text); },
                       [&desk](const std::wstring& text) { return desk.TakeOff(text); },
                       [&desk] { return desk.Now(); }, longestWait) {}
};

class PasswordKeeperTest : public testing::Test {
 protected:
  static void Await(const std::function<bool()>& done) {
    while (!done()) std::this_thread::yield();  // a failure shows as a test that does not end
  }
  // Until the waiting thread has read the current time.
  void AwaitClockReads() {
    Await([this, wanted = desk_.looks + 2] { return desk_.looks >= wanted; });
  }

  FakeClipboardDesk desk_;
  KeeperOn keeper_{desk_, milliseconds(1)};
};

TEST_F(PasswordKeeperTest, AllowsTheNewestSessionEverything) {
  const PasswordKeeper::Session session = keeper_.Begin();
  EXPECT_TRUE(keeper_.MayGoOn(session));
  EXPECT_TRUE(keeper_.CopyPassword(session, L"pw"));
  int steps = 0;
  EXPECT_TRUE(keeper_.Do(session, [&] { ++steps; }));
  EXPECT_EQ(steps, 1);
  desk_.copies = false;
  EXPECT_FALSE(keeper_.CopyPassword(session, L"again"));
  EXPECT_EQ(desk_.copied, (Texts{L"pw", L"again"}));
}

TEST_F(PasswordKeeperTest, AllowsAnEarlierSessionNothing) {
  const PasswordKeeper::Session earlier = keeper_.Begin();
  const PasswordKeeper::Session newest = keeper_.Begin();
  EXPECT_FALSE(keeper_.MayGoOn(earlier));
  EXPECT_FALSE(keeper_.CopyPassword(earlier, L"old"));
  EXPECT_FALSE(keeper_.Do(earlier, [] { FAIL(); }));
  EXPECT_TRUE(keeper_.CopyPassword(newest, L"new"));
  EXPECT_EQ(desk_.copied, Texts{L"new"});
}

TEST_F(PasswordKeeperTest, AllowsNothingOnceTheProgramEnds) {
  const PasswordKeeper::Session session = keeper_.Begin();
  keeper_.End();
  for (const PasswordKeeper::Session any : {session, keeper_.Begin()}) {
    EXPECT_FALSE(keeper_.MayGoOn(any));
    EXPECT_FALSE(keeper_.CopyPassword(any, L"pw"));
    EXPECT_FALSE(keeper_.Do(any, [] { FAIL(); }));
  }
  EXPECT_EQ(desk_.copied, Texts());
}

// A session's step is finished before the next session begins.
TEST_F(PasswordKeeperTest, BeginsNoSessionDuringAStep) {
  const PasswordKeeper::Session earlier = keeper_.Begin();
  std::atomic<bool> hasBegun{false};
  std::atomic<bool> isAsked{false};
  std::promise<void> inStep;
  std::thread paste([&] {
    keeper_.Do(earlier, [&] {
      inStep.set_value();
      while (!isAsked) std::this_thread::yield();
      for (int i = 0; i < 1000; ++i) std::this_thread::yield();
      EXPECT_FALSE(hasBegun);
    });
  });
  inStep.get_future().wait();
  isAsked = true;
  static_cast<void>(keeper_.Begin());
  hasBegun = true;
  paste.join();
}

// ---- ten minutes on the clipboard

TEST_F(PasswordKeeperTest, RemovesThePasswordTenMinutesAfterItsLastCopy) {
  const PasswordKeeper::Session session = keeper_.Begin();
  ASSERT_TRUE(keeper_.CopyPassword(session, L"pw"));
  desk_.Pass(seconds(11));
  ASSERT_TRUE(keeper_.CopyPassword(session, L"pw")) << "when it is pasted";
  desk_.Pass(minutes(10) - milliseconds(1));
  AwaitClockReads();
  EXPECT_EQ(desk_.Text(), L"pw");
  EXPECT_EQ(desk_.takes, 0);
  desk_.Pass(milliseconds(1));
  Await([this] { return desk_.takes > 0; });
  EXPECT_EQ(desk_.Text(), L"");
  keeper_.End();
  EXPECT_EQ(desk_.takes, 1) << "nothing is left to take off";
}

TEST_F(PasswordKeeperTest, KeepsWhatTheEngineerHasCopiedSince) {
  ASSERT_TRUE(keeper_.CopyPassword(keeper_.Begin(), L"pw"));
  desk_.Put(L"mine");
  desk_.Pass(minutes(10));
  Await([this] { return desk_.takes > 0; });
  keeper_.End();
  EXPECT_EQ(desk_.Text(), L"mine");
  EXPECT_EQ(desk_.takes, 1);
}

TEST_F(PasswordKeeperTest, RemovesTheNewerOfTwoSessionsPasswords) {
  ASSERT_TRUE(keeper_.CopyPassword(keeper_.Begin(), L"old"));
  desk_.Pass(minutes(6));
  ASSERT_TRUE(keeper_.CopyPassword(keeper_.Begin(), L"new"));
  desk_.Pass(minutes(6));
  AwaitClockReads();
  EXPECT_EQ(desk_.takes, 0);
  EXPECT_EQ(desk_.Text(), L"new");
  desk_.Pass(minutes(4));
  Await([this] { return desk_.takes > 0; });
  EXPECT_EQ(desk_.Text(), L"");
}

// A session whose copy fails, and one without a password.
TEST_F(PasswordKeeperTest, RemovesTheOlderPasswordIfTheNewerSessionCopiesNone) {
  ASSERT_TRUE(keeper_.CopyPassword(keeper_.Begin(), L"old"));
  desk_.Pass(minutes(6));
  desk_.copies = false;
  EXPECT_FALSE(keeper_.CopyPassword(keeper_.Begin(), L"new"));
  static_cast<void>(keeper_.Begin());
  EXPECT_EQ(desk_.Text(), L"old");
  desk_.Pass(minutes(4));
  Await([this] { return desk_.takes > 0; });
  EXPECT_EQ(desk_.Text(), L"");
}

TEST_F(PasswordKeeperTest, RetriesEveryFiveSecondsWhileTheClipboardIsHeld) {
  ASSERT_TRUE(keeper_.CopyPassword(keeper_.Begin(), L"pw"));
  desk_.isHeld = true;
  desk_.Pass(minutes(10));
  for (int takes = 1; takes <= 3; ++takes) {
    Await([&] { return desk_.takes == takes; });
    AwaitClockReads();  // until it has set the next due time
    desk_.Pass(milliseconds(4999));
    AwaitClockReads();
    EXPECT_EQ(desk_.takes, takes);
    desk_.isHeld = takes < 3;
    desk_.Pass(milliseconds(1));
  }
  Await([this] { return desk_.takes == 4; });
  EXPECT_EQ(desk_.Text(), L"");
}

TEST_F(PasswordKeeperTest, RemovesItWhenTheProgramEnds) {
  ASSERT_TRUE(keeper_.CopyPassword(keeper_.Begin(), L"pw"));
  keeper_.End();
  EXPECT_EQ(desk_.Text(), L"");
  desk_.Put(L"pw");
  keeper_.End();
  EXPECT_EQ(desk_.takes, 1) << "once";
}

// Here the thread waits for an hour, or forever.
TEST(PasswordKeeperEnd, DoesNotWaitForTheTenMinutes) {
  for (const bool isGone : {false, true}) {
    FakeClipboardDesk desk;
    {
      KeeperOn keeper(desk, std::chrono::hours(1));
      ASSERT_TRUE(keeper.CopyPassword(keeper.Begin(), L"pw"));
      while (desk.looks < 2) std::this_thread::yield();
      if (isGone) desk.Put(L"mine");
    }
    EXPECT_EQ(desk.Text(), isGone ? L"mine" : L"");
  }
}

TEST(PasswordKeeperEnd, DoesNotTouchAClipboardWithoutAPassword) {
  FakeClipboardDesk desk;
  {
    KeeperOn keeper(desk, milliseconds(1));
    static_cast<void>(keeper.Begin());
  }
  EXPECT_EQ(desk.takes, 0);
  EXPECT_EQ(desk.looks, 0) << "nor does it wait for anything";
}

// As on the window's thread and on the one that handles the session's end.
TEST(PasswordKeeperEnd, MayBeCalledOnSeveralThreads) {
  FakeClipboardDesk desk;
  KeeperOn keeper(desk, milliseconds(1));
  ASSERT_TRUE(keeper.CopyPassword(keeper.Begin(), L"pw"));
  std::thread other([&keeper] { keeper.End(); });
  keeper.End();
  other.join();
  EXPECT_EQ(desk.takes, 1);
}

}  // namespace
}  // namespace remote
