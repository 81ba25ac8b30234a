#include <gtest/gtest.h>

#include "platform/files.h"
#include "platform/handles_win.h"
#include "platform/known_folders.h"
#include "platform/scratch_folder.h"
#include "settings/settings.h"

namespace settings {
namespace {

TEST(SettingsFileOnWindows, LiesInTheRoamingFolder) {
  EXPECT_EQ(SettingsFilePath(),
            platform::RoamingAppDataFolder() + L"\\Velmarine\\Client.settings.json");
}

// A file that may be read but not written: loading works, a save is lost without a word.
TEST(SettingsFileOnWindows, ReadOnlyFileIsReadAndASaveIsLost) {
  const platform::ScratchFolder scratch;
  const std::wstring path = scratch.Path(L"Client.settings.json");
  Settings settings;
  settings.deviceName = L"first";
  SaveSettings(path, settings);
  const auto before = platform::ReadFileBytes(path);
  const platform::FileHandle holder(::CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ,
                                                  nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL,
                                                  nullptr));
  ASSERT_TRUE(holder);
  Settings loaded;
  LoadSettings(path, loaded);
  EXPECT_EQ(loaded.deviceName, L"first");
  loaded.deviceName = L"second";
  EXPECT_NO_THROW(SaveSettings(path, loaded));
  EXPECT_EQ(platform::ReadFileBytes(path), before);
}

}  // namespace
}  // namespace settings
