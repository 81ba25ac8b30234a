#include "diag/latency_test.h"

#include <gtest/gtest.h>

namespace diag {
namespace {

TEST(LatencyTest, SaysThatItIsNotBuilt) {
  EXPECT_EQ(RunLatencyTest(settings::Settings()), L"延迟测试功能尚未提供。");
}

}  // namespace
}  // namespace diag
