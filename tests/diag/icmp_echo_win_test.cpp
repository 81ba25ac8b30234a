#include <gtest/gtest.h>

#include <future>
#include <vector>

#include "diag/latency_test.h"

namespace diag {
namespace {

TEST(IcmpEcho, IsAnsweredByThisComputer) {
  for (const std::uint32_t address : {0x7F000001u, 0x7F000102u}) {
    const Echo echo = SendEcho(address);
    EXPECT_EQ(echo.outcome, EchoOutcome::Answered) << std::hex << address;
    EXPECT_LE(echo.roundTripMs, 1000u);
  }
}

TEST(IcmpEcho, MayBeSentByManyThreadsManyTimes) {
  std::vector<std::future<int>> askers;
  for (int i = 0; i < 4; ++i) {
    askers.push_back(std::async(std::launch::async, [] {
      int answered = 0;
      for (int round = 0; round < 25; ++round) {
        const Echo echo = SendEcho(0x7F000001);
        if (echo.outcome == EchoOutcome::Answered) ++answered;
      }
      return answered;
    }));
  }
  for (std::future<int>& asker : askers) EXPECT_EQ(asker.get(), 25);
}

}  // namespace
}  // namespace diag
