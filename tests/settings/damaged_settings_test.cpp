#include "settings/damaged_settings.h"

#include <gtest/gtest.h>

#include <string>

#include "platform/files.h"
#include "platform/scratch_folder.h"

namespace settings {
namespace {

constexpr const wchar_t* kTime = L"20260315_094102";

TEST(DamagedSettings, AreNamedAfterTheFileAndTheTime) {
  EXPECT_EQ(DamagedSettingsPath(L"C:\\V\\Client.settings.json", kTime),
            L"C:\\V\\Client.settings.damaged-20260315_094102.json");
  EXPECT_EQ(DamagedSettingsPath(L"C:\\V\\Client.settings.json", kTime, 2),
            L"C:\\V\\Client.settings.damaged-20260315_094102-2.json");
  EXPECT_EQ(DamagedSettingsPath(L"C:\\V\\other", kTime),
            L"C:\\V\\other.damaged-20260315_094102.json");
}

TEST(DamagedSettings, AreMovedOutOfTheWayUnchanged) {
  const platform::ScratchFolder scratch;
  const std::wstring path = scratch.Path(L"Client.settings.json");
  ASSERT_TRUE(platform::WriteFileBytes(path, "{\"siteProfiles\": [{"));
  const std::wstring kept = KeepDamagedSettings(path, kTime);
  EXPECT_EQ(kept, scratch.Path(L"Client.settings.damaged-20260315_094102.json"));
  EXPECT_EQ(platform::ReadFileBytes(kept), "{\"siteProfiles\": [{");
  EXPECT_FALSE(platform::IsFile(path));
}

TEST(DamagedSettings, NeverReplaceAnEarlierFileOfTheSameSecond) {
  const platform::ScratchFolder scratch;
  const std::wstring path = scratch.Path(L"Client.settings.json");
  for (const char* bytes : {"first", "second", "third"}) {
    ASSERT_TRUE(platform::WriteFileBytes(path, bytes));
    ASSERT_NE(KeepDamagedSettings(path, kTime), L"");
  }
  EXPECT_EQ(platform::ReadFileBytes(DamagedSettingsPath(path, kTime, 1)), "first");
  EXPECT_EQ(platform::ReadFileBytes(DamagedSettingsPath(path, kTime, 2)), "second");
  EXPECT_EQ(platform::ReadFileBytes(DamagedSettingsPath(path, kTime, 3)), "third");
}

TEST(DamagedSettings, SayWhenTheyCouldNotBeKept) {
  const platform::ScratchFolder scratch;
  EXPECT_EQ(KeepDamagedSettings(scratch.Path(L"missing.json"), kTime), L"");
}

}  // namespace
}  // namespace settings
