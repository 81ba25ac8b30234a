#include "shell/window_size.h"

#include <gtest/gtest.h>

namespace shell {
namespace {

constexpr PixelSize kLaptop = {1366, 728};  // 1366 x 768 with a task bar

TEST(WindowSize, NeverExceedsTheWorkArea) {
  EXPECT_EQ(FitInto(kFirstSize, {1920, 1040}), kFirstSize);
  EXPECT_EQ(FitInto(kSmallestSize, {1920, 1040}), kSmallestSize);
  EXPECT_EQ(FitInto(kFirstSize, kLaptop), (PixelSize{1220, 728}));
  EXPECT_EQ(FitInto(kSmallestSize, kLaptop), (PixelSize{1220, 728}));
  EXPECT_EQ(FitInto(kSmallestSize, {1024, 720}), (PixelSize{1024, 720}));
  EXPECT_EQ(FitInto(kSmallestSize, {0, 0}), kSmallestSize);
}

TEST(WindowSize, FitsWhollyOnItsMonitor) {
  const PixelArea laptop = {0, 0, kLaptop};
  const PixelSize size = FitInto(kFirstSize, kLaptop);
  EXPECT_EQ(MoveInto({26, 26, size}, laptop), (PixelArea{26, 0, size}));
  EXPECT_EQ(MoveInto({200, 0, size}, laptop), (PixelArea{146, 0, size}));
  EXPECT_EQ(MoveInto({-30, -30, size}, laptop), (PixelArea{0, 0, size}));
  // A task bar on the left, on a monitor to the left of the first.
  const PixelArea other = {-1860, 40, {1860, 1040}};
  EXPECT_EQ(MoveInto({-1900, 60, kFirstSize}, other), (PixelArea{-1860, 60, kFirstSize}));
  EXPECT_EQ(MoveInto({100, 500, kFirstSize}, other), (PixelArea{-1220, 260, kFirstSize}));
  EXPECT_EQ(MoveInto({7, 8, size}, {0, 0, {0, 0}}), (PixelArea{7, 8, size}));
}

}  // namespace
}  // namespace shell
