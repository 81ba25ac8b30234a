#include "settings/settings.h"

#include <gtest/gtest.h>

#include <variant>
#include <vector>

namespace settings {
namespace {

enum class Wins { Window, Job, Site };

// A field of the settings, and whose change wins a conflict. Site: the window's if it also changed
// the access key, otherwise the job's.
struct Field {
  const char* name;
  std::variant<std::wstring Settings::*, bool Settings::*> member;
  Wins wins;
};

const std::vector<Field> kFields = {
    {"serverUrl", &Settings::serverUrl, Wins::Window},
    {"deviceNumber", &Settings::deviceNumber, Wins::Site},
    {"deviceSecret", &Settings::deviceSecret, Wins::Window},
    {"deviceName", &Settings::deviceName, Wins::Site},
    {"profileName", &Settings::profileName, Wins::Window},
    {"networkInterfaceName", &Settings::networkInterfaceName, Wins::Window},
    {"sharedNetworksText", &Settings::sharedNetworksText, Wins::Job},
    {"targetNetwork", &Settings::targetNetwork, Wins::Window},
    {"engineerId", &Settings::engineerId, Wins::Job},
    {"rustDeskPath", &Settings::rustDeskPath, Wins::Job},
    {"rustDeskAccessPassword", &Settings::rustDeskAccessPassword, Wins::Job},
    {"rustDeskId", &Settings::rustDeskId, Wins::Job},
    {"rustDeskServiceRunning", &Settings::rustDeskServiceRunning, Wins::Job},
    {"connectionId", &Settings::connectionId, Wins::Job},
    {"assignedAddress", &Settings::assignedAddress, Wins::Job},
    {"routesText", &Settings::routesText, Wins::Site},
    {"accessRoutesText", &Settings::accessRoutesText, Wins::Job},
    {"routeMappingsText", &Settings::routeMappingsText, Wins::Job},
    {"testIp", &Settings::testIp, Wins::Window},
    {"latencyText", &Settings::latencyText, Wins::Job},
    {"heartbeatAccepted", &Settings::heartbeatAccepted, Wins::Job},
    {"heartbeatMessage", &Settings::heartbeatMessage, Wins::Job},
    {"autoStartEnabled", &Settings::autoStartEnabled, Wins::Window},
    {"discoveryModeEnabled", &Settings::discoveryModeEnabled, Wins::Window},
};

// Settings with a value in every field.
Settings Base() {
  Settings settings;
  for (const Field& field : kFields) {
    if (const auto* text = std::get_if<std::wstring Settings::*>(&field.member)) {
      settings.*(*text) = std::wstring(L"base ") + static_cast<wchar_t>(field.name[0]);
    }
  }
  settings.siteProfiles = {{L"base", L"", L"", L"", L"", {}}};
  settings.granted = {L"base", L"", L"", {}};
  return settings;
}

// Writes `who` into a text field and flips a boolean one.
void Change(Settings& settings, const Field& field, const wchar_t* who) {
  if (const auto* text = std::get_if<std::wstring Settings::*>(&field.member)) {
    settings.*(*text) = who;
  } else {
    bool& flag = settings.*std::get<bool Settings::*>(field.member);
    flag = !flag;
  }
}

bool Same(const Settings& one, const Settings& other, const Field& field) {
  return std::visit([&](auto member) { return one.*member == other.*member; }, field.member);
}

void ExpectSame(const Settings& merged, const Settings& wanted) {
  for (const Field& field : kFields) EXPECT_TRUE(Same(merged, wanted, field)) << field.name;
  EXPECT_EQ(merged.siteProfiles, wanted.siteProfiles);
  EXPECT_EQ(merged.granted, wanted.granted);
}

TEST(MergeSettings, TestsEveryMemberOfTheFile) {
  // Each row changes one line of the file, and together they change all but three.
  Settings changed = Base();
  for (const Field& field : kFields) Change(changed, field, L"changed");
  std::wstring before = WriteSettingsText(Base());
  std::wstring after = WriteSettingsText(changed);
  int same = 0;
  while (!before.empty()) {
    if (before.substr(0, before.find(L'\n')) == after.substr(0, after.find(L'\n'))) ++same;
    before.erase(0, before.find(L'\n') + 1);
    after.erase(0, after.find(L'\n') + 1);
  }
  EXPECT_EQ(same, 3) << "both braces and the profiles";
}

TEST(MergeSettings, ReturnsTheRecordWhenNothingChanged) {
  ExpectSame(MergeSettings(Base(), Base(), Base()), Base());
}

TEST(MergeSettings, TakesAChangeOfEitherSide) {
  for (const Field& field : kFields) {
    SCOPED_TRACE(field.name);
    Settings changed = Base();
    Change(changed, field, L"changed");
    ExpectSame(MergeSettings(Base(), changed, Base()), changed);
    ExpectSame(MergeSettings(Base(), Base(), changed), changed);
  }
}

TEST(MergeSettings, ResolvesConflictsByTheFieldsOwner) {
  for (const Field& field : kFields) {
    SCOPED_TRACE(field.name);
    Settings window = Base();
    Settings job = Base();
    Change(window, field, L"window");
    Change(job, field, L"job");
    ExpectSame(MergeSettings(Base(), window, job), field.wins == Wins::Window ? window : job);
  }
}

// Two fields at a time, each changed by the window, the job or both. Fields do not affect each
// other, except that a new access key keeps the window's device fields.
TEST(MergeSettings, MergesEveryPairOfFieldsIndependently) {
  constexpr int kWindow = 1;
  constexpr int kJob = 2;
  for (const Field& first : kFields) {
    for (const Field& second : kFields) {
      if (&first == &second) continue;
      for (int firstBy = 1; firstBy <= 3; ++firstBy) {
        for (int secondBy = 1; secondBy <= 3; ++secondBy) {
          SCOPED_TRACE(std::string(first.name) + " " + std::to_string(firstBy) + ", " +
                       second.name + " " + std::to_string(secondBy));
          Settings window = Base();
          Settings job = Base();
          if (firstBy & kWindow) Change(window, first, L"window");
          if (firstBy & kJob) Change(job, first, L"job");
          if (secondBy & kWindow) Change(window, second, L"window");
          if (secondBy & kJob) Change(job, second, L"job");
          const bool anotherKey = window.deviceSecret != Base().deviceSecret;
          const auto winner = [&](const Field& field, int by) -> const Settings& {
            if (field.wins == Wins::Site && anotherKey) return window;
            if (by == (kWindow | kJob)) return field.wins == Wins::Window ? window : job;
            return by == kWindow ? window : job;
          };
          const Settings merged = MergeSettings(Base(), window, job);
          ASSERT_TRUE(Same(merged, winner(first, firstBy), first));
          ASSERT_TRUE(Same(merged, winner(second, secondBy), second));
        }
      }
    }
  }
}

TEST(MergeSettings, TakesProfilesFromTheWindowAndTheGrantFromTheJob) {
  Settings window = Base();
  Settings job = Base();
  window.siteProfiles = {{L"window", L"", L"", L"", L"", {}}};
  window.granted.connectionId = L"window";
  job.siteProfiles = {{L"job", L"", L"", L"", L"", {}}};
  job.granted.connectionId = L"job";
  const Settings merged = MergeSettings(Base(), window, job);
  EXPECT_EQ(merged.siteProfiles, window.siteProfiles);
  EXPECT_EQ(merged.granted, job.granted);
  EXPECT_EQ(MergeSettings(Base(), window, Base()).siteProfiles, window.siteProfiles);
  EXPECT_EQ(MergeSettings(Base(), window, Base()).granted, window.granted);
  EXPECT_EQ(MergeSettings(Base(), Base(), job).siteProfiles, job.siteProfiles);
  EXPECT_EQ(MergeSettings(Base(), Base(), job).granted, job.granted);
}

// The engineer loads another site's profile while 取网段 or 连接 is running for the first.
TEST(MergeSettings, KeepsTheDeviceOfANewKeyInTheForm) {
  Settings base;
  base.deviceSecret = L"first key";
  Settings window = base;
  window.deviceSecret = L"second key";
  window.routesText = L"10.2.0.0/16";
  window.serverUrl = L"http://second:1";
  Settings job = base;
  job.deviceNumber = L"first number";
  job.deviceName = L"first name";
  job.profileName = L"first name";
  job.routesText = L"10.1.0.0/16";
  job.connectionId = L"c1";
  const Settings merged = MergeSettings(base, window, job);
  EXPECT_EQ(merged.deviceSecret, L"second key");
  EXPECT_EQ(merged.deviceNumber, L"") << "its profile knows none";
  EXPECT_EQ(merged.deviceName, L"");
  EXPECT_EQ(merged.routesText, L"10.2.0.0/16");
  EXPECT_EQ(merged.connectionId, L"c1");
}

}  // namespace
}  // namespace settings
