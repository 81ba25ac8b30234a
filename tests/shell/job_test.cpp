#include "shell/job.h"

#include <gtest/gtest.h>

#include <stdexcept>

#include "settings/memory_disk.h"
#include "shell/fake_tunnel.h"

namespace shell {
namespace {

struct JobRow {
  const char* name;
  Job job;
  const wchar_t* wanted;
};

TEST(RunJob, ReturnsTheJobsTextOrTheErrorText) {
  const JobRow rows[] = {
      {"text", [](auto&, auto&, auto&) { return std::wstring(L"好"); }, L"好"},
      {"exception",
       [](auto&, auto&, auto&) -> std::wstring {
         throw std::runtime_error("no route \xE4\xB8\xAD");
       },
       L"Error: no route 中"},
      {"anything else", [](auto&, auto&, auto&) -> std::wstring { throw 7; }, L"Unknown error."},
  };
  for (const JobRow& row : rows) {
    settings::MemoryDisk disk;
    settings::SettingsStore store(disk.File(), settings::Settings());
    settings::JobSettings settings(store);
    FakeTunnel tunnel;
    EXPECT_EQ(RunJob(row.job, settings, tunnel, {}), row.wanted) << row.name;
  }
}

TEST(RunJob, HandsOverSettingsTunnelAndLink) {
  settings::MemoryDisk disk;
  settings::SettingsStore store(disk.File(), settings::Settings());
  settings::JobSettings settings(store);
  settings.record.deviceSecret = L"s";
  FakeTunnel tunnel;
  std::stop_source closing;
  closing.request_stop();
  std::wstring noticed;
  RunJob(
      [](settings::JobSettings& given, tunnel::Tunnel& slot, const JobLink& link) {
        given.record.deviceSecret += link.closing.stop_requested() ? L"!" : L"?";
        link.notice(L"later");
        return slot.Stop();
      },
      settings, tunnel,
      {closing.get_token(), [&noticed](const std::wstring& text) { noticed = text; }});
  EXPECT_EQ(settings.record.deviceSecret, L"s!");
  EXPECT_EQ(noticed, L"later");
  EXPECT_EQ(tunnel.stops, 1);
}

// ---- delivery of a result

struct Delivery {
  int attempts = 0;
  int pauses = 0;
  ResultBox box;

  void Run(int refusals) {
    DeliverResult(
        L"结果",
        [&](const std::wstring& text) { return text == L"结果" && attempts++ >= refusals; },
        [&] { ++pauses; }, box);
  }
};

TEST(DeliverResult, PostsOnceIfAccepted) {
  Delivery delivery;
  delivery.Run(0);
  EXPECT_EQ(delivery.attempts, 1);
  EXPECT_EQ(delivery.pauses, 0);
  EXPECT_EQ(delivery.box.Take(), std::nullopt);
}

TEST(DeliverResult, TriesAgainAfterAPause) {
  Delivery delivery;
  delivery.Run(4);
  EXPECT_EQ(delivery.attempts, 5);
  EXPECT_EQ(delivery.pauses, 4);
  EXPECT_EQ(delivery.box.Take(), std::nullopt);
}

TEST(DeliverResult, KeepsAnUndeliveredResultForOneReader) {
  Delivery delivery;
  delivery.Run(1000);
  EXPECT_EQ(delivery.attempts, 5);
  EXPECT_EQ(delivery.box.Take(), L"结果");
  EXPECT_EQ(delivery.box.Take(), std::nullopt);
}

TEST(ResultBox, KeepsTheLatestResult) {
  ResultBox box;
  EXPECT_EQ(box.Take(), std::nullopt);
  box.Put(L"earlier");
  box.Put(L"later");
  EXPECT_EQ(box.Take(), L"later");
  EXPECT_EQ(box.Take(), std::nullopt);
}

struct CheckRow {
  const char* name;
  UpdateCheck check;
  const wchar_t* wanted;
};

TEST(RunUpdateCheck, ReturnsTheNoticeOrTheErrorText) {
  const CheckRow rows[] = {
      {"nothing to say", [](auto&, auto&) { return std::wstring(); }, L""},
      {"notice", [](auto&, auto&) { return std::wstring(L"新版本"); }, L"新版本"},
      {"exception", [](auto&, auto&) -> std::wstring { throw std::runtime_error("Invalid JSON."); },
       L"自动更新检查异常：Invalid JSON."},
      {"anything else", [](auto&, auto&) -> std::wstring { throw 7; },
       L"自动更新检查异常：Unknown error."},
  };
  for (const CheckRow& row : rows) {
    std::stop_source closing;
    EXPECT_EQ(RunUpdateCheck(row.check, settings::Settings(), closing.get_token()), row.wanted)
        << row.name;
    closing.request_stop();
    EXPECT_EQ(RunUpdateCheck(row.check, settings::Settings(), closing.get_token()), L"")
        << row.name << ", closing";
  }
}

// ---- the retry

struct RetryRow {
  const char* name;
  const wchar_t* connectionId;
  const wchar_t* code;
  bool armed;
  RetryStep wanted;
};

TEST(DecideRetry, RetriesOnlyWhileTheRequestIsRefused) {
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
