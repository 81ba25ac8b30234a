#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "checks/check.h"

namespace checks {
namespace {

using std::chrono::milliseconds;

Outcome Seen(const wchar_t* line) {
  Outcome outcome;
  outcome.Line(line);
  return outcome;
}

TEST(RunChecks, ReturnsAFindingForEachCheckInOrder) {
  const auto findings = RunChecks({{"b", L"二", "Second.", [] { return Seen(L"2"); }, 1},
                                   {"a", L"一", "First.", [] { return Seen(L"1"); }, 0}},
                                  std::chrono::seconds(20));
  ASSERT_EQ(findings.size(), 2u);
  EXPECT_EQ(findings[0].id, "b");
  EXPECT_EQ(findings[0].outcome.lines, std::vector<std::wstring>{L"2"});
  EXPECT_EQ(findings[1].title, L"一");
  EXPECT_EQ(findings[1].outcome.lines, std::vector<std::wstring>{L"1"});
  EXPECT_EQ(findings[1].outcome.WorstVerdict(), Verdict::Well);
}

TEST(RunChecks, BeginsAStageAfterThePreviousOne) {
  const auto order = std::make_shared<std::string>();
  RunChecks({{"late", L"", "",
              [order] {
                *order += "2";
                return Outcome();
              },
              1},
             {"early", L"", "",
              [order] {
                *order += "1";
                return Outcome();
              },
              0}},
            std::chrono::seconds(20));
  EXPECT_EQ(*order, "12");
}

TEST(RunChecks, AbandonsACheckThatDoesNotEnd) {
  const auto release = std::make_shared<std::promise<void>>();
  const auto ended = std::make_shared<std::promise<void>>();
  const auto findings = RunChecks({{"slow", L"", "",
                                    [released = release->get_future().share(), ended] {
                                      released.wait();
                                      ended->set_value();
                                      return Seen(L"too late");
                                    }},
                                   {"quick", L"", "", [] { return Seen(L"in time"); }}},
                                  milliseconds(300));
  EXPECT_EQ(findings[0].outcome.WorstVerdict(), Verdict::Fault);
  EXPECT_TRUE(findings[0].outcome.lines.empty());
  EXPECT_NE(findings[0].outcome.problems[0].text.find(L"秒内没有结束"), std::wstring::npos);
  EXPECT_EQ(findings[1].outcome.lines, std::vector<std::wstring>{L"in time"});
  release->set_value();
  ended->get_future().wait();
}

TEST(RunChecks, ReportsAnExceptionAsAFault) {
  const auto findings =
      RunChecks({{"bad", L"", "", []() -> Outcome { throw std::runtime_error("no luck"); }}},
                std::chrono::seconds(20));
  EXPECT_EQ(findings[0].outcome.WorstVerdict(), Verdict::Fault);
  EXPECT_EQ(findings[0].outcome.problems[0].text, L"这一项没有做成：no luck");
}

}  // namespace
}  // namespace checks
