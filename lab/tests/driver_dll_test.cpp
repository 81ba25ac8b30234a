#include <gtest/gtest.h>

#include <string>
#include <utility>

#include "tests/driver_fixture.h"

using driver_test::Answer;
using driver_test::DriverLibrary;
using driver_test::kRecvOnly;
using driver_test::kSendOnly;
using driver_test::OpenHandle;
using packets::Bytes;

namespace {

TEST_F(DriverLibrary, OpenRefusesWithThePublishedCodes) {
  struct Row {
    const char* filter;
    int layer, priority;
    std::uint64_t flags;
    DWORD error;
  };
  std::string tests = "true";
  for (int i = 1; i < 255; ++i) tests += " and true";
  const std::string tooMany = tests + " and true";
  // NO_INSTALL before anything was opened: no driver is loaded yet.
  EXPECT_EQ(OpenError("true", 0, 0, 0x10), 1060U);
  const Row rows[] = {
      {"true", 0, 0, 0, 0},           {"", 0, 0, 0, 87},          {"()", 0, 0, 0, 87},
      {"nonsense", 0, 0, 0, 87},      {nullptr, 0, 0, 0, 87},     {"true", 9, 0, 0, 87},
      {"true", 0, 30001, 0, 87},      {"true", 0, -30001, 0, 87}, {"true", 0, 0, 3, 87},
      {"true", 0, 0, 12, 87},         {"true", 0, 0, 0x40, 87},   {tests.c_str(), 0, 0, 0, 0},
      {tooMany.c_str(), 0, 0, 0, 87}, {"false", 0, -301, 8, 0},   {"true", 0, 0, 0x10, 0},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(OpenError(row.filter, row.layer, row.priority, row.flags), row.error)
        << (row.filter != nullptr ? row.filter : "null");
  }
  EXPECT_TRUE(library_.compile(tooMany.c_str(), 0, nullptr, 0, nullptr, nullptr));
}

TEST_F(DriverLibrary, ClosedAndForeignHandlesAreInvalid) {
  OpenHandle handle(library_, "true");
  const HANDLE closed = handle.Get();
  handle.Close();
  for (const HANDLE bad : {closed, HANDLE{nullptr}, INVALID_HANDLE_VALUE}) {
    EXPECT_EQ(Recv(bad).error, 6U);
    EXPECT_EQ(Send(bad, Reply(), InboundRecord()).error, 6U);
    EXPECT_FALSE(library_.close(bad));
    EXPECT_EQ(::GetLastError(), 6U);
    EXPECT_FALSE(library_.shutdown(bad, 3));
    EXPECT_EQ(::GetLastError(), 6U);
  }
}

TEST_F(DriverLibrary, OpensAgainAfterTheLastClose) {
  for (int round = 0; round < 5; ++round) {
    OpenHandle capture(library_, "udp");
    OpenHandle sender(library_, "false", -301, kSendOnly);
    FromTun(packets::Ip(17, packets::Udp(1, 2, {})));
    EXPECT_TRUE(Recv(capture.Get()).succeeded);
  }
}

TEST_F(DriverLibrary, KeepsQueueParametersAndReportsItsVersion) {
  const OpenHandle handle(library_, "true");
  UINT64 value = 0;
  for (const auto& [param, standard] :
       {std::pair{0, 4096U}, std::pair{1, 2000U}, std::pair{2, 4194304U}, std::pair{3, 2U},
        std::pair{4, 2U}}) {
    EXPECT_TRUE(library_.getParam(handle.Get(), param, &value));
    EXPECT_EQ(value, standard);
  }
  EXPECT_TRUE(library_.setParam(handle.Get(), 0, 16384));
  EXPECT_TRUE(library_.getParam(handle.Get(), 0, &value));
  EXPECT_EQ(value, 16384U);
  EXPECT_FALSE(library_.setParam(handle.Get(), 0, 16385));
  EXPECT_EQ(::GetLastError(), 87U);
  EXPECT_FALSE(library_.setParam(handle.Get(), 3, 2));
  EXPECT_FALSE(library_.getParam(handle.Get(), 5, &value));
}

TEST_F(DriverLibrary, FailsTheCallsNamedInTheEnvironment) {
  ::SetEnvironmentVariableW(L"LAB_WINDIVERT_OPEN_ERROR", L"577");
  EXPECT_EQ(OpenError("true", 0, 0, 0), 577U);
  EXPECT_EQ(OpenError("false", 0, 0, kSendOnly), 577U);
  ::SetEnvironmentVariableW(L"LAB_WINDIVERT_FAIL_OPEN", L"4");
  EXPECT_EQ(OpenError("true", 0, 0, 0), 0U);
  EXPECT_EQ(OpenError("true", 0, 0, 0), 577U);
  EXPECT_EQ(OpenError("true", 0, 0, 0), 0U);

  ::SetEnvironmentVariableW(L"LAB_WINDIVERT_OPEN_ERROR", nullptr);
  ::SetEnvironmentVariableW(L"LAB_WINDIVERT_FAIL_RECV", L"2");
  ::SetEnvironmentVariableW(L"LAB_WINDIVERT_FAIL_SEND", L"2");
  ::SetEnvironmentVariableW(L"LAB_WINDIVERT_FAIL_CHECKSUM", L"2");
  const OpenHandle handle(library_, "true");
  const Bytes reply = Reply();  // checksum call 1
  for (const bool works : {true, false, true}) {
    FromTun(packets::Ip(17, packets::Udp(1, 2, {})));
    EXPECT_EQ(Recv(handle.Get()).succeeded != FALSE, works);
    EXPECT_EQ(Send(handle.Get(), reply, InboundRecord()).succeeded != FALSE, works);
  }
  Bytes packet = reply;
  const auto bytes = static_cast<UINT>(packet.size());
  EXPECT_FALSE(library_.calc(packet.data(), bytes, nullptr, 0));
  EXPECT_TRUE(library_.calc(packet.data(), bytes, nullptr, 0));
}

TEST_F(DriverLibrary, LogsEachOpenAndClose) {
  wchar_t folder[MAX_PATH] = {};
  ::GetTempPathW(MAX_PATH, folder);
  const std::wstring file = std::wstring(folder) + L"driver_dll_test.log";
  ::DeleteFileW(file.c_str());
  ::SetEnvironmentVariableW(L"LAB_WINDIVERT_LOG", file.c_str());
  OpenError("nonsense", 0, 0, 0);
  {
    const OpenHandle handle(library_, "udp", -300);
    FromTun(packets::Ip(17, packets::Udp(1, 2, {})));
    ASSERT_TRUE(Recv(handle.Get()).succeeded);
    ASSERT_TRUE(Send(handle.Get(), Reply(), InboundRecord()).succeeded);
  }
  EXPECT_EQ(ReadText(file),
            "open handle=0 error=87 priority=0 flags=0 filter=nonsense\n"
            "open handle=1 error=0 priority=-300 flags=0 filter=udp\n"
            "close handle=1 captured=1 received=1 lost=0 drained=0 inbound=1 outbound=0 "
            "wrongChecksum=0 wrongInterface=0 uncaptured=0 faults=0\n");
  ::DeleteFileW(file.c_str());
}

}  // namespace
