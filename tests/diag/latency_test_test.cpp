#include "diag/latency_test.h"

#include <gtest/gtest.h>

#include <vector>

namespace diag {
namespace {

class LatencyTest : public testing::Test {
 protected:
  std::wstring Run(const std::wstring& address, const Echo& echo = {EchoOutcome::Answered, 12}) {
    settings_.testIp = address;
    settings_.latencyText = L"old";
    return RunLatencyTest(settings_, [this, &echo](std::uint32_t asked) {
      asked_.push_back(asked);
      return echo;
    });
  }

  void ExpectKept(const wchar_t* text) { EXPECT_EQ(settings_.latencyText, text); }

  settings::Settings settings_;
  std::vector<std::uint32_t> asked_;
};

TEST_F(LatencyTest, MeasuresTheRoundTrip) {
  EXPECT_EQ(Run(L"192.168.1.20"), L"通讯延迟 12 ms：192.168.1.20");
  ExpectKept(L"12 ms");
  EXPECT_EQ(asked_, std::vector<std::uint32_t>{0xC0A80114});
}

TEST_F(LatencyTest, TrimsTheAddress) {
  EXPECT_EQ(Run(L" \t192.168.1.20\r\n"), L"通讯延迟 12 ms：192.168.1.20");
  ExpectKept(L"12 ms");
  EXPECT_EQ(Run(L"\x3000"
                L"10.0.0.1\x00A0",
                {EchoOutcome::Silence}),
            L"通讯延迟测试超时：10.0.0.1");
  EXPECT_EQ(settings_.testIp,
            L"\x3000"
            L"10.0.0.1\x00A0");
}

TEST_F(LatencyTest, AnEmptyAddressIsReportedWithoutAnEcho) {
  for (const wchar_t* address : {L"", L" ", L"\t\r\n\x3000"}) {
    EXPECT_EQ(Run(address), L"通讯延迟：未填写测试 IP。");
    ExpectKept(L"未填写测试 IP");
  }
  EXPECT_TRUE(asked_.empty());
}

TEST_F(LatencyTest, AnInvalidAddressIsReportedWithoutAnEcho) {
  for (const wchar_t* address :
       {L"256.1.1.1",       L"plc.local", L"localhost", L"::1",        L"fe80::1",
        L"::ffff:10.0.0.1", L"1.2.3",     L"1.2.3.4.5", L"1.2.3.4.",   L"1.2.3.4:80",
        L"1.2.3.4/24",      L"01.2.3.4",  L"1.2.3.-4",  L"1.2 .3.4",   L"0x7f.0.0.1",
        L"16909060",        L"1.2.3.4 5", L"１.2.3.4",  L"1。2。3。4", L"1.2.3.4,5.6.7.8"}) {
    EXPECT_EQ(Run(address), L"通讯延迟测试失败：测试 IP 无效。") << address;
    ExpectKept(L"IP 无效");
  }
  EXPECT_TRUE(asked_.empty());
}

struct OutcomeRow {
  const char* name;
  Echo echo;
  const wchar_t* logged;
  const wchar_t* kept;
};

TEST_F(LatencyTest, ReportsAndKeepsEveryOutcome) {
  const OutcomeRow rows[] = {
      {"no handle", {EchoOutcome::NoHandle, 5}, L"通讯延迟测试失败：无法创建 ICMP 句柄。", L"失败"},
      {"silence", {EchoOutcome::Silence, 5}, L"通讯延迟测试超时：10.0.0.1", L"超时"},
      {"an ICMP error", {EchoOutcome::Refused, 5}, L"通讯延迟测试失败：10.0.0.1", L"失败"},
      {"no time at all", {EchoOutcome::Answered, 0}, L"通讯延迟 0 ms：10.0.0.1", L"0 ms"},
      {"a long time", {EchoOutcome::Answered, 999}, L"通讯延迟 999 ms：10.0.0.1", L"999 ms"},
      {"the longest time",
       {EchoOutcome::Answered, 0xFFFFFFFF},
       L"通讯延迟 4294967295 ms：10.0.0.1",
       L"4294967295 ms"},
  };
  for (const OutcomeRow& row : rows) {
    EXPECT_EQ(Run(L"10.0.0.1", row.echo), row.logged) << row.name;
    ExpectKept(row.kept);
  }
  EXPECT_EQ(asked_, std::vector<std::uint32_t>(std::size(rows), 0x0A000001));
}

TEST_F(LatencyTest, AcceptsEveryAddress) {
  Run(L"0.0.0.0");
  Run(L"255.255.255.255");
  EXPECT_EQ(asked_, (std::vector<std::uint32_t>{0, 0xFFFFFFFF}));
}

}  // namespace
}  // namespace diag
