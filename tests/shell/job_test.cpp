#include "shell/job.h"

#include <gtest/gtest.h>

#include <stdexcept>

#include "shell/fake_tunnel.h"

namespace shell {
namespace {

struct Row {
  const char* name;
  Job job;
  const wchar_t* wanted;
};

TEST(RunJob, GivesTheJobsTextOrWhatItThrew) {
  const Row rows[] = {
      {"text", [](auto&, auto&) { return std::wstring(L"好"); }, L"好"},
      {"exception",
       [](auto&, auto&) -> std::wstring { throw std::runtime_error("no route \xE4\xB8\xAD"); },
       L"Error: no route 中"},
      {"anything else", [](auto&, auto&) -> std::wstring { throw 7; }, L"Unknown error."},
  };
  for (const Row& row : rows) {
    settings::Settings settings;
    FakeTunnel tunnel;
    EXPECT_EQ(RunJob(row.job, settings, tunnel), row.wanted) << row.name;
  }
}

TEST(RunJob, HandsOverSettingsAndTunnel) {
  settings::Settings settings;
  settings.deviceSecret = L"s";
  FakeTunnel tunnel;
  RunJob(
      [](settings::Settings& given, tunnel::Tunnel& slot) {
        given.deviceSecret += L"!";
        return slot.Stop();
      },
      settings, tunnel);
  EXPECT_EQ(settings.deviceSecret, L"s!");
  EXPECT_EQ(tunnel.stops, 1);
}

struct CheckRow {
  const char* name;
  UpdateCheck check;
  const wchar_t* wanted;
};

TEST(RunUpdateCheck, GivesTheNoticeOrWhatTheCheckThrew) {
  const CheckRow rows[] = {
      {"nothing to say", [](auto&) { return std::wstring(); }, L""},
      {"notice", [](auto&) { return std::wstring(L"新版本"); }, L"新版本"},
      {"exception", [](auto&) -> std::wstring { throw std::runtime_error("Invalid JSON."); },
       L"自动更新检查异常：Invalid JSON."},
      {"anything else", [](auto&) -> std::wstring { throw 7; },
       L"自动更新检查异常：Unknown error."},
  };
  for (const CheckRow& row : rows) {
    EXPECT_EQ(RunUpdateCheck(row.check, settings::Settings()), row.wanted) << row.name;
  }
}

}  // namespace
}  // namespace shell
