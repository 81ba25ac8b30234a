// Every call of an echo request: its arguments, and the effect of its failure.
#include <gtest/gtest.h>

#include <cstring>

#include "diag/latency_test.h"
#include "text/utf8.h"
#include "win32/calls.h"

namespace diag {
namespace {

using namespace win32;

// Makes the network return this many replies, the first with this status after 12 ms.
void AnswerEchoes(Calls& calls, DWORD replies, ULONG status) {
  calls.AnswerWith<Api::IcmpSendEcho>([replies, status](HANDLE, IPAddr, void*, WORD,
                                                        IP_OPTION_INFORMATION*, void* buffer, DWORD,
                                                        DWORD) {
    ICMP_ECHO_REPLY reply{};
    reply.Status = status;
    reply.RoundTripTime = 12;
    std::memcpy(buffer, &reply, sizeof(reply));
    return replies;
  });
}

TEST(IcmpEchoCalls, SendNineLettersAndAZeroAndWaitOneSecond) {
  Calls calls;
  AnswerEchoes(calls, 1, IP_SUCCESS);
  const Echo echo = SendEcho(0x0A000001);
  EXPECT_EQ(echo.outcome, EchoOutcome::Answered);
  EXPECT_EQ(echo.roundTripMs, 12u);
  EXPECT_TRUE(calls.Were({
      Said<Api::IcmpCreateFile>(),
      Said<Api::htonl>(0x0A000001),
      Said<Api::IcmpSendEcho>(Handle{1}, 0x0100000A, std::string("Velmarine\0", 10), 10, nullptr,
                              Some{}, 82, 1000),
      Said<Api::IcmpCloseHandle>(Handle{1}),
  }));
}

TEST(IcmpEchoCalls, DistinguishAnswersRefusalsAndSilence) {
  const struct {
    DWORD replies;
    ULONG status;
    EchoOutcome outcome;
  } rows[] = {{1, IP_SUCCESS, EchoOutcome::Answered},
              {2, IP_SUCCESS, EchoOutcome::Answered},
              {1, IP_DEST_HOST_UNREACHABLE, EchoOutcome::Refused},
              {1, IP_REQ_TIMED_OUT, EchoOutcome::Refused},
              {0, IP_SUCCESS, EchoOutcome::Silence}};
  for (const auto& row : rows) {
    Calls calls;
    AnswerEchoes(calls, row.replies, row.status);
    EXPECT_EQ(SendEcho(0x7F000001).outcome, row.outcome) << row.replies << " " << row.status;
    EXPECT_EQ(calls.Unbalanced(), "");
  }
}

TEST(IcmpEchoCalls, MapEachFailureToItsText) {
  const auto test = []() -> std::string {
    settings::Settings settings;
    settings.testIp = L"127.0.0.1";
    const std::string logged = text::ToUtf8(RunLatencyTest(settings, SendEcho));
    return settings.latencyText.ends_with(L" ms") ? "answered" : logged;
  };
  EXPECT_EQ(EachFailure(test),
            "all well: answered\n"
            "IcmpCreateFile: 通讯延迟测试失败：无法创建 ICMP 句柄。\n"
            "IcmpSendEcho: 通讯延迟测试超时：127.0.0.1\n"
            "IcmpCloseHandle: answered\n");
}

}  // namespace
}  // namespace diag
