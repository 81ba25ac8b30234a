#include <gtest/gtest.h>

#include "platform/files.h"
#include "platform/handles_win.h"
#include "platform/path.h"
#include "platform/scratch_folder.h"
#include "platform/system_error.h"
#include "settings/settings_file.h"

namespace settings {
namespace {

class SettingsFileOnWindows : public testing::Test {
 protected:
  // Opens the file for reading with this sharing mode.
  [[nodiscard]] platform::FileHandle Hold(DWORD sharing) const {
    return platform::FileHandle(::CreateFileW(path_.c_str(), GENERIC_READ, sharing, nullptr,
                                              OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
  }

  platform::ScratchFolder scratch_;
  std::wstring path_ = scratch_.Path(L"Client.settings.json");
  SettingsFile file_{path_, platform::RealFiles(), [] { return std::wstring(L"now"); }};
};

TEST_F(SettingsFileOnWindows, IsInTheRoamingFolder) {
  EXPECT_EQ(SettingsFilePath(),
            platform::RoamingAppDataFolder() + L"\\Velmarine\\Client.settings.json");
}

TEST_F(SettingsFileOnWindows, LockedAgainstWritingItIsReadAndASaveReportsWhyItFailed) {
  Settings settings;
  settings.deviceName = L"first";
  ASSERT_EQ(file_.Save(settings).failure, L"");
  const auto before = platform::ReadFileBytes(path_);
  const platform::FileHandle holder = Hold(FILE_SHARE_READ);
  ASSERT_TRUE(holder);
  Settings loaded;
  EXPECT_EQ(file_.Load(loaded), L"");
  EXPECT_EQ(loaded.deviceName, L"first");
  loaded.deviceName = L"second";
  EXPECT_EQ(file_.Save(loaded).failure,
            platform::ErrorReason(ERROR_SHARING_VIOLATION) + L"（" + path_ + L"）");
  EXPECT_EQ(platform::ReadFileBytes(path_), before);
}

// A file that cannot be renamed, because another program has it open, can still be copied.
TEST_F(SettingsFileOnWindows, DamagedFileIsSetAsideWhileOpenElsewhere) {
  ASSERT_TRUE(platform::WriteFileBytes(path_, "damaged"));
  const platform::FileHandle holder = Hold(FILE_SHARE_READ | FILE_SHARE_WRITE);
  ASSERT_TRUE(holder);
  ASSERT_FALSE(::MoveFileExW(path_.c_str(), scratch_.Path(L"renamed").c_str(), 0));
  EXPECT_EQ(file_.Save(Settings()).failure, L"");
  EXPECT_EQ(platform::ReadFileBytes(scratch_.Path(L"Client.settings.damaged-now.json")), "damaged");
  Settings loaded;
  EXPECT_EQ(file_.Load(loaded), L"");
}

TEST_F(SettingsFileOnWindows, DamagedFileLockedAgainstReadingIsNotOverwritten) {
  ASSERT_TRUE(platform::WriteFileBytes(path_, "damaged"));
  {
    const platform::FileHandle holder = Hold(0);
    ASSERT_TRUE(holder);
    EXPECT_EQ(file_.Save(Settings()).failure, L"原设置文件无法读取：" + path_);
  }
  EXPECT_EQ(platform::ReadFileBytes(path_), "damaged");
}

}  // namespace
}  // namespace settings
