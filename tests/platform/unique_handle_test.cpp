#include "platform/unique_handle.h"

#include <gtest/gtest.h>

#include <type_traits>
#include <utility>
#include <vector>

namespace platform {
namespace {

std::vector<int> closedHandles;

// Handles are numbers. As with kernel handles, two values mean "none".
struct CountingTraits {
  using Raw = int;
  static Raw Invalid() noexcept { return 0; }
  static bool IsValid(Raw raw) noexcept { return raw != 0 && raw != -1; }
  static void Close(Raw raw) noexcept { closedHandles.push_back(raw); }
};
using CountedHandle = UniqueHandle<CountingTraits>;
using Closed = std::vector<int>;

static_assert(!std::is_copy_constructible_v<CountedHandle> &&
              !std::is_copy_assignable_v<CountedHandle>);
static_assert(std::is_nothrow_move_constructible_v<CountedHandle>);
static_assert(!std::is_convertible_v<int, CountedHandle> &&
              !std::is_convertible_v<CountedHandle, int>);

class UniqueHandleTest : public testing::Test {
 protected:
  void SetUp() override { closedHandles.clear(); }
};

TEST_F(UniqueHandleTest, ClosesOnceAtTheEnd) {
  {
    const CountedHandle handle(7);
    EXPECT_TRUE(handle);
    EXPECT_EQ(handle.Get(), 7);
  }
  EXPECT_EQ(closedHandles, Closed({7}));
}

TEST_F(UniqueHandleTest, ClosesNothingWhenEmpty) {
  {
    const CountedHandle fresh;
    const CountedHandle zero(0);
    const CountedHandle failed(-1);
    EXPECT_FALSE(fresh);
    EXPECT_FALSE(zero);
    EXPECT_FALSE(failed);
  }
  EXPECT_EQ(closedHandles, Closed());
}

TEST_F(UniqueHandleTest, MovesOwnershipWithoutClosing) {
  {
    CountedHandle first(7);
    const CountedHandle second(std::move(first));
    EXPECT_EQ(second.Get(), 7);
    EXPECT_EQ(closedHandles, Closed());
  }
  EXPECT_EQ(closedHandles, Closed({7}));
}

TEST_F(UniqueHandleTest, MoveAssignmentClosesTheOldHandle) {
  {
    CountedHandle first(7);
    CountedHandle second(8);
    first = std::move(second);
    EXPECT_EQ(closedHandles, Closed({7}));
    EXPECT_EQ(first.Get(), 8);
  }
  EXPECT_EQ(closedHandles, Closed({7, 8}));
}

TEST_F(UniqueHandleTest, SurvivesAssignmentToItself) {
  {
    CountedHandle handle(7);
    CountedHandle& same = handle;
    handle = std::move(same);
    EXPECT_EQ(handle.Get(), 7);
    EXPECT_EQ(closedHandles, Closed());
  }
  EXPECT_EQ(closedHandles, Closed({7}));
}

TEST_F(UniqueHandleTest, ReleaseGivesTheHandleUp) {
  {
    CountedHandle handle(7);
    EXPECT_EQ(handle.Release(), 7);
    EXPECT_FALSE(handle);
  }
  EXPECT_EQ(closedHandles, Closed());
}

TEST_F(UniqueHandleTest, ResetClosesAndTakesTheNext) {
  {
    CountedHandle handle(7);
    handle.Reset(8);
    EXPECT_EQ(closedHandles, Closed({7}));
    handle.Reset();
    EXPECT_EQ(closedHandles, Closed({7, 8}));
    EXPECT_FALSE(handle);
  }
  EXPECT_EQ(closedHandles, Closed({7, 8}));
}

}  // namespace
}  // namespace platform
