#include "shell/retry.h"

#include <gtest/gtest.h>

namespace shell {
namespace {

struct RetryRow {
  const char* name;
  const wchar_t* connectionId;
  const wchar_t* code;
  bool armed;
  RetryStep wanted;
};

TEST(DecideRetry, RetriesARefusedRequestUntilItNoLongerIs) {
  const RetryRow rows[] = {
      {"first refusal", L"", L"DEVICE_OFFLINE", false, RetryStep::Arm},
      {"further refusal", L"", L"DEVICE_OFFLINE", true, RetryStep::Keep},
      {"not bound", L"", L"DEVICE_NOT_BOUND", false, RetryStep::Arm},
      {"quota", L"", L"TRAFFIC_QUOTA_EXCEEDED", false, RetryStep::Arm},
      {"limit", L"", L"CONCURRENT_LIMIT_EXCEEDED", false, RetryStep::Arm},
      {"relay", L"", L"DEVICE_RELAY_OFFLINE", false, RetryStep::Arm},
      {"letter case", L"", L"device_Offline", false, RetryStep::Arm},
      {"connected", L"c1", L"", true, RetryStep::Disarm},
      {"connected with an old code", L"c1", L"DEVICE_OFFLINE", true, RetryStep::Disarm},
      {"no code", L"", L"", true, RetryStep::Disarm},
      {"another code", L"", L"INVALID_SECRET", true, RetryStep::Disarm},
      {"a code and a blank", L"", L"DEVICE_OFFLINE ", true, RetryStep::Disarm},
      {"never armed", L"", L"", false, RetryStep::Disarm},
  };
  for (const RetryRow& row : rows) {
    settings::Settings settings;
    settings.connectionId = row.connectionId;
    settings.heartbeatMessage = row.code;
    EXPECT_EQ(DecideRetry(settings, row.armed), row.wanted) << row.name;
    EXPECT_EQ(CallsForRetry(settings), row.wanted != RetryStep::Disarm) << row.name;
  }
}

}  // namespace
}  // namespace shell
