#include "remote/password_keeper.h"

#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <thread>
#include <vector>

namespace remote {
namespace {

using Texts = std::vector<std::wstring>;

class PasswordKeeperTest : public testing::Test {
 protected:
  Texts copied_;
  bool copies_ = true;
  PasswordKeeper keeper_{[this](const std::wstring& text) {
    copied_.push_back(text);
    return copies_;
  }};
};

TEST_F(PasswordKeeperTest, LetsTheNewestSessionDoWhatItWants) {
  const PasswordKeeper::Session session = keeper_.Begin();
  EXPECT_TRUE(keeper_.MayGoOn(session));
  EXPECT_TRUE(keeper_.CopyPassword(session, L"pw"));
  int steps = 0;
  EXPECT_TRUE(keeper_.Do(session, [&] { ++steps; }));
  EXPECT_EQ(steps, 1);
  copies_ = false;
  EXPECT_FALSE(keeper_.CopyPassword(session, L"again"));
  EXPECT_EQ(copied_, (Texts{L"pw", L"again"}));
}

TEST_F(PasswordKeeperTest, LetsAnEarlierSessionDoNothing) {
  const PasswordKeeper::Session earlier = keeper_.Begin();
  const PasswordKeeper::Session newest = keeper_.Begin();
  EXPECT_FALSE(keeper_.MayGoOn(earlier));
  EXPECT_FALSE(keeper_.CopyPassword(earlier, L"old"));
  EXPECT_FALSE(keeper_.Do(earlier, [] { FAIL(); }));
  EXPECT_TRUE(keeper_.CopyPassword(newest, L"new"));
  EXPECT_EQ(copied_, Texts{L"new"});
}

TEST_F(PasswordKeeperTest, LetsNobodyDoAnythingOnceTheProgramEnds) {
  const PasswordKeeper::Session session = keeper_.Begin();
  keeper_.End();
  for (const PasswordKeeper::Session any : {session, keeper_.Begin()}) {
    EXPECT_FALSE(keeper_.MayGoOn(any));
    EXPECT_FALSE(keeper_.CopyPassword(any, L"pw"));
    EXPECT_FALSE(keeper_.Do(any, [] { FAIL(); }));
  }
  EXPECT_EQ(copied_, Texts());
}

// What a session has begun to do is done before the next one begins.
TEST_F(PasswordKeeperTest, BeginsNoSessionInTheMidstOfAStep) {
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

}  // namespace
}  // namespace remote
