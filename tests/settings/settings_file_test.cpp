#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

#include "platform/files.h"
#include "platform/scratch_folder.h"
#include "settings/server_address.h"
#include "settings/settings.h"

namespace settings {
namespace {

class SettingsFileTest : public testing::Test {
 protected:
  Settings LoadBytes(const std::string& bytes) {
    EXPECT_TRUE(platform::WriteFileBytes(path_, bytes));
    Settings settings;
    LoadSettings(path_, settings);
    return settings;
  }

  platform::ScratchFolder scratch_;
  std::wstring path_ = scratch_.Path(L"Client.settings.json");
};

bool IsNewEngineerId(const std::wstring& id) {
  return id.size() == 12 && id.starts_with(L"ENG-") && id[4] != L'0' &&
         id.find_first_not_of(L"0123456789", 4) == std::wstring::npos;
}

// All but the identity as in a fresh record.
void ExpectDefaults(Settings settings) {
  settings.engineerId.clear();
  EXPECT_EQ(WriteSettingsText(settings), WriteSettingsText(Settings()));
  EXPECT_EQ(settings.serverUrl, DefaultServerUrl());
}

TEST_F(SettingsFileTest, MissingFileGivesDefaultsAndANewIdentity) {
  Settings settings;
  LoadSettings(path_, settings);
  EXPECT_TRUE(IsNewEngineerId(settings.engineerId)) << settings.engineerId;
  ExpectDefaults(settings);
  EXPECT_FALSE(platform::IsFile(path_));  // loading writes nothing
}

TEST_F(SettingsFileTest, MissingFileLeavesOtherFieldsAlone) {
  Settings settings;
  settings.deviceName = L"d";
  settings.engineerId = L"old";
  LoadSettings(path_, settings);
  EXPECT_EQ(settings.deviceName, L"d");
  EXPECT_EQ(settings.profileName, L"");
  EXPECT_TRUE(IsNewEngineerId(settings.engineerId));
}

TEST_F(SettingsFileTest, FolderInItsPlaceReadsLikeAMissingFile) {
  Settings settings;
  LoadSettings(scratch_.Folder(), settings);
  EXPECT_TRUE(IsNewEngineerId(settings.engineerId));
}

TEST_F(SettingsFileTest, EmptyFileChangesNothingAndMakesNoIdentity) {
  const Settings settings = LoadBytes("");
  EXPECT_EQ(settings.engineerId, L"");
  ExpectDefaults(settings);
}

TEST_F(SettingsFileTest, BlankFileGivesDefaultsAndANewIdentity) {
  const Settings settings = LoadBytes(" \r\n");
  EXPECT_TRUE(IsNewEngineerId(settings.engineerId));
  ExpectDefaults(settings);
}

TEST_F(SettingsFileTest, BrokenFileThrowsAndChangesNothing) {
  const struct {
    std::string bytes;
    const char* message;
  } rows[] = {{"{\"deviceName\":\"d\"", "Invalid JSON."},
              {"{\"deviceName\":\"d\",}", "Invalid JSON."},
              {"{\"deviceName\":\"d", "Invalid JSON string."},
              {std::string(1'000'000, '['), "Invalid JSON."}};
  for (const auto& row : rows) {
    ASSERT_TRUE(platform::WriteFileBytes(path_, row.bytes));
    Settings settings;
    try {
      LoadSettings(path_, settings);
      ADD_FAILURE() << "read a broken file";
    } catch (const std::runtime_error& error) {
      EXPECT_STREQ(error.what(), row.message);
    }
    EXPECT_EQ(settings.engineerId, L"");
    ExpectDefaults(settings);
  }
}

TEST_F(SettingsFileTest, NewIdentityReachesTheFileWithTheNextSaveOnly) {
  Settings settings = LoadBytes("{\"deviceName\":\"d\"}");
  EXPECT_EQ(platform::ReadFileBytes(path_), "{\"deviceName\":\"d\"}");
  SaveSettings(path_, settings);
  Settings again;
  LoadSettings(path_, again);
  EXPECT_EQ(again.engineerId, settings.engineerId);
}

TEST_F(SettingsFileTest, FileOfWrongKindsGivesDefaults) {
  const Settings settings = LoadBytes(
      "{\"serverUrl\":1,\"deviceSecret\":true,\"engineerId\":[],\"autoStartEnabled\":\"true\","
      "\"discoveryModeEnabled\":1,\"siteProfiles\":{\"name\":\"x\"}}");
  EXPECT_TRUE(IsNewEngineerId(settings.engineerId));
  ExpectDefaults(settings);
}

TEST_F(SettingsFileTest, FileThatHoldsNoObjectGivesDefaults) {
  for (const char* bytes : {"[{\"deviceName\":\"d\"}]", "5", "null", "\"text\"", "plain text"}) {
    const Settings settings = LoadBytes(bytes);
    EXPECT_TRUE(IsNewEngineerId(settings.engineerId)) << bytes;
    ExpectDefaults(settings);
  }
}

TEST_F(SettingsFileTest, ReadsUtf8WithOrWithoutAByteOrderMark) {
  EXPECT_EQ(LoadBytes("{\"deviceName\":\"\xE6\xB3\xB5\xE7\xAB\x99\"}").deviceName, L"\x6CF5\x7AD9");
  EXPECT_EQ(LoadBytes("\xEF\xBB\xBF{\"deviceName\":\"d\"}").deviceName, L"d");
}

TEST_F(SettingsFileTest, ReadsInvalidUtf8AsReplacementCharacters) {
  EXPECT_EQ(LoadBytes("{\"deviceName\":\"a\xFF"
                      "b\"}")
                .deviceName,
            L"a\xFFFD"
            L"b");
}

TEST_F(SettingsFileTest, SavesUtf8WithLineFeedsAndNoMark) {
  Settings settings;
  settings.deviceName = L"\x6CF5\xD83D\xDE00";
  SaveSettings(path_, settings);
  const std::string bytes = platform::ReadFileBytes(path_).value();
  EXPECT_TRUE(bytes.starts_with("{\n  \"serverUrl\": \"http://"));
  EXPECT_TRUE(bytes.ends_with("  \"siteProfiles\": []\n}\n"));
  EXPECT_EQ(bytes.find('\r'), std::string::npos);
  EXPECT_NE(bytes.find("\"deviceName\": \"\xE6\xB3\xB5\xF0\x9F\x98\x80\""), std::string::npos);
}

TEST_F(SettingsFileTest, KeepsQuotesAndControlCharactersOfTheSecret) {
  Settings settings;
  settings.deviceSecret =
      L"a\"b\x0001"
      L"c";
  SaveSettings(path_, settings);
  EXPECT_NE(platform::ReadFileBytes(path_)->find("a\\\"b\x01"
                                                 "c"),
            std::string::npos);
  Settings loaded;
  LoadSettings(path_, loaded);
  EXPECT_EQ(loaded.deviceSecret, settings.deviceSecret);
}

TEST_F(SettingsFileTest, SavesOverALongerFileWhole) {
  ASSERT_TRUE(platform::WriteFileBytes(path_, std::string(100'000, 'x')));
  SaveSettings(path_, Settings());
  EXPECT_LT(platform::ReadFileBytes(path_)->size(), 2000u);
}

TEST_F(SettingsFileTest, SavingMakesTheFolderWithItsParents) {
  const std::wstring path = scratch_.Path(L"Roaming\\Velmarine\\Client.settings.json");
  SaveSettings(path, Settings());
  EXPECT_TRUE(platform::IsFile(path));
}

TEST_F(SettingsFileTest, LosesASaveThatCannotBeWrittenSilently) {
  ASSERT_TRUE(platform::WriteFileBytes(path_, "kept"));
  EXPECT_NO_THROW(SaveSettings(path_ + L"\\below a file", Settings()));
  EXPECT_NO_THROW(SaveSettings(scratch_.Folder(), Settings()));
  EXPECT_EQ(platform::ReadFileBytes(path_), "kept");
}

}  // namespace
}  // namespace settings
