#include "settings/settings_file.h"

#include <gtest/gtest.h>

#include <string>

#include "platform/files.h"
#include "platform/scratch_folder.h"
#include "settings/settings_file_fixture.h"

namespace settings {
namespace {

TEST_F(SettingsFileTest, MissingFileGivesDefaultsAndANewIdentity) {
  const Settings settings = disk_.Load();
  EXPECT_TRUE(IsNewEngineerId(settings.engineerId)) << settings.engineerId;
  ExpectDefaults(settings);
  EXPECT_EQ(disk_.loadReport, L"");
  EXPECT_TRUE(disk_.files.empty());  // loading writes nothing
}

TEST_F(SettingsFileTest, MissingFileLeavesOtherFieldsAlone) {
  Settings settings;
  settings.deviceName = L"d";
  settings.engineerId = L"old";
  EXPECT_EQ(disk_.File().Load(settings), L"");
  EXPECT_EQ(settings.deviceName, L"d");
  EXPECT_EQ(settings.profileName, L"");
  EXPECT_TRUE(IsNewEngineerId(settings.engineerId));
}

TEST_F(SettingsFileTest, MissingFileMeansAFirstStartEvenWithASecondCopy) {
  disk_.files[kLastPath] = FileBytes(Worked());
  ExpectDefaults(disk_.Load());
  EXPECT_EQ(disk_.loadReport, L"");
}

TEST_F(SettingsFileTest, EmptyFileChangesNothingAndMakesNoIdentity) {
  const Settings settings = LoadBytes("");
  EXPECT_EQ(settings.engineerId, L"");
  EXPECT_EQ(disk_.loadReport, L"");
  ExpectDefaults(settings);
}

TEST_F(SettingsFileTest, FileWithWrongTypesGivesDefaults) {
  const Settings settings = LoadBytes(
      "{\"serverUrl\":1,\"deviceSecret\":true,\"engineerId\":[],\"autoStartEnabled\":\"true\","
      "\"discoveryModeEnabled\":1,\"siteProfiles\":{\"name\":\"x\"}}");
  EXPECT_TRUE(IsNewEngineerId(settings.engineerId));
  EXPECT_EQ(disk_.loadReport, L"");
  ExpectDefaults(settings);
}

TEST_F(SettingsFileTest, NewIdentityIsWrittenOnlyByTheNextSave) {
  const Settings settings = LoadBytes("{\"deviceName\":\"d\"}");
  EXPECT_EQ(disk_.files[kPath], "{\"deviceName\":\"d\"}");
  Save(settings);
  EXPECT_EQ(disk_.Load().engineerId, settings.engineerId);
}

TEST_F(SettingsFileTest, ReadsEveryEncodingThatEditorsWrite) {
  using namespace std::string_view_literals;
  EXPECT_EQ(LoadBytes("{\"deviceName\":\"\xE6\xB3\xB5\xE7\xAB\x99\"}").deviceName, L"\x6CF5\x7AD9");
  EXPECT_EQ(LoadBytes("\xEF\xBB\xBF{\"deviceName\":\"d\"}").deviceName, L"d");
  const std::wstring text = WriteSettingsText(Worked());
  for (const std::string& bytes : {LittleEndian(text), BigEndian(text)}) {
    EXPECT_EQ(FileBytes(LoadBytes(bytes)), FileBytes(Worked()));
    EXPECT_EQ(disk_.loadReport, L"");
  }
}

TEST_F(SettingsFileTest, AcceptsTextThatAnEditorLeavesAroundTheObject) {
  for (const char* bytes : {" \r\n{\"deviceName\":\"d\"}", "{\"deviceName\":\"d\"}\r\n\t ",
                            "{\"deviceName\":\"d\",\"siteProfiles\":[]} // mine"}) {
    EXPECT_EQ(LoadBytes(bytes).deviceName, L"d") << bytes;
    EXPECT_EQ(disk_.loadReport, L"") << bytes;
  }
}

TEST_F(SettingsFileTest, ReadsInvalidUtf8AsReplacementCharacters) {
  EXPECT_EQ(LoadBytes("{\"deviceName\":\"a\xFF"
                      "b\"}")
                .deviceName,
            L"a\xFFFD"
            L"b");
}

// ---- saving

TEST_F(SettingsFileTest, SavesUtf8WithLineFeedsAndNoMark) {
  Settings settings;
  settings.deviceName = L"\x6CF5\xD83D\xDE00";
  Save(settings);
  const std::string bytes = disk_.files[kPath];
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
  Save(settings);
  EXPECT_NE(disk_.files[kPath].find("a\\\"b\x01"
                                    "c"),
            std::string::npos);
  EXPECT_EQ(disk_.Load().deviceSecret, settings.deviceSecret);
}

TEST_F(SettingsFileTest, KeepsTheLastGoodTextBesideIt) {
  EXPECT_EQ(Save(Settings()).failure, L"");
  EXPECT_EQ(disk_.written, (Paths{kPath, kLastPath}));
  EXPECT_EQ(disk_.files[kLastPath], disk_.files[kPath]);
  Save(Worked());
  EXPECT_EQ(disk_.written, (Paths{kPath, kLastPath}));
  EXPECT_EQ(disk_.files[kLastPath], FileBytes(Worked()));
}

TEST_F(SettingsFileTest, UnchangedSettingsAreNotWritten) {
  Save(Worked());
  EXPECT_EQ(Save(Worked()).failure, L"");
  EXPECT_TRUE(disk_.written.empty());
}

// A file of an earlier version or of an editor has no second copy yet.
TEST_F(SettingsFileTest, CopiesTheExistingFileBeforeTheFirstTruncation) {
  disk_.files[kPath] = "{\"deviceName\":\"by hand\"}";
  Save(Worked());
  EXPECT_EQ(disk_.written, (Paths{kLastPath, kPath, kLastPath}));
  disk_.files.erase(kLastPath);
  disk_.refuse = [](const std::wstring& path) {
    return std::wstring(path == kLastPath ? L"磁盘空间不足。" : L"");
  };
  EXPECT_EQ(Save(Settings()).failure, std::wstring(L"磁盘空间不足。（") + kLastPath + L"）");
  EXPECT_EQ(disk_.files[kPath], FileBytes(Worked())) << "not without a second copy";
}

TEST_F(SettingsFileTest, WritesAFailedSecondCopyLater) {
  disk_.refuse = [](const std::wstring& path) {
    return std::wstring(path == kLastPath ? L"磁盘空间不足。" : L"");
  };
  EXPECT_EQ(Save(Worked()).failure, L"") << "the settings themselves are on the disk";
  disk_.refuse = nullptr;
  Save(Worked());
  EXPECT_EQ(disk_.files[kLastPath], FileBytes(Worked()));
}

// Every write succeeds, but the final flush to the disk fails.
TEST_F(SettingsFileTest, RewritesFilesThatWereNotFlushed) {
  SettingsFile file = disk_.File();
  disk_.doubt = [](const std::wstring&) { return std::wstring(L"设备未就绪。"); };
  const std::wstring failure = std::wstring(L"设备未就绪。（") + kPath + L"）";
  EXPECT_EQ(file.Save(Worked()).failure, failure);
  EXPECT_EQ(disk_.files[kPath], FileBytes(Worked()));
  EXPECT_NE(file.Save(Worked()).failure, L"") << "reading well is no success";

  disk_.doubt = nullptr;
  disk_.written.clear();
  EXPECT_EQ(file.Save(Worked()).failure, L"");
  EXPECT_EQ(disk_.written, (Paths{kLastPath, kPath})) << "one of the two is whole at any moment";
  disk_.written.clear();
  EXPECT_EQ(file.Save(Worked()).failure, L"");
  EXPECT_TRUE(disk_.written.empty());
}

TEST_F(SettingsFileTest, ReportsWhyItCouldNotBeWritten) {
  disk_.refuse = [](const std::wstring&) { return std::wstring(L"拒绝访问。"); };
  EXPECT_EQ(Save(Worked()).failure, std::wstring(L"拒绝访问。（") + kPath + L"）");
}

// ---- the connection in force

Settings Connected() {
  Settings settings = Worked();
  settings.connectionId = L"c1";
  settings.granted = {L"c1", L"http://granted:1", L"ENG-87654321", {L"10.1.0.0/16", L"\"odd\""}};
  return settings;
}

TEST_F(SettingsFileTest, ConnectionInForceIsWrittenBeforeTheSettingsThatNameIt) {
  Save(Connected());
  EXPECT_EQ(disk_.written, (Paths{kGrantPath, kPath, kLastPath}));
  EXPECT_EQ(disk_.Load().granted, Connected().granted);
  Save(Connected());
  EXPECT_TRUE(disk_.written.empty());
}

TEST_F(SettingsFileTest, OutdatedConnectionIsNotInForce) {
  Save(Connected());
  Settings later = Connected();
  later.connectionId = L"c2";
  later.granted = {};
  Save(later);
  EXPECT_EQ(disk_.Load().granted, GrantedConnection());
  for (const char* bytes : {"", "{", "5"}) {
    disk_.files[kGrantPath] = bytes;
    EXPECT_EQ(disk_.Load().granted, GrantedConnection()) << bytes;
  }
}

TEST_F(SettingsFileTest, GrantOfAnotherConnectionIsNotWritten) {
  Settings settings = Connected();
  for (const wchar_t* connectionId : {L"c2", L""}) {
    settings.connectionId = connectionId;
    EXPECT_EQ(Save(settings).failure, L"");
    EXPECT_FALSE(disk_.files.contains(kGrantPath));
  }
}

TEST_F(SettingsFileTest, ConnectionThatCannotBeWrittenIsReportedAndTheRestIsSaved) {
  disk_.refuse = [](const std::wstring& path) {
    return std::wstring(path == kGrantPath ? L"拒绝访问。" : L"");
  };
  EXPECT_EQ(Save(Connected()).failure, std::wstring(L"拒绝访问。（") + kGrantPath + L"）");
  EXPECT_EQ(disk_.files[kPath], FileBytes(Connected()));
}

// ---- the real disk

TEST(SettingsOnDisk, AreSavedWithTheirFolderAndReadAgain) {
  const platform::ScratchFolder scratch;
  const std::wstring path = scratch.Path(L"Roaming\\Velmarine\\Client.settings.json");
  SettingsFile file(path, platform::RealFiles(), [] { return std::wstring(L"now"); });
  Settings first;
  EXPECT_EQ(file.Load(first), L"");
  EXPECT_EQ(file.Save(Connected()).failure, L"");
  Settings loaded;
  EXPECT_EQ(file.Load(loaded), L"");
  EXPECT_EQ(FileBytes(loaded), FileBytes(Connected()));
  EXPECT_EQ(loaded.granted, Connected().granted);
  ASSERT_TRUE(platform::WriteFileBytes(path, "damaged"));
  EXPECT_EQ(file.Load(loaded), kRestored);
  EXPECT_NE(file.Save(loaded).report.find(L".damaged-now.json"), std::wstring::npos);
}

TEST(SettingsOnDisk, FolderOfTheSameNameReadsAsMissingAndFailsTheSave) {
  const platform::ScratchFolder scratch;
  SettingsFile file(scratch.Folder(), platform::RealFiles(), [] { return std::wstring(); });
  Settings settings;
  EXPECT_EQ(file.Load(settings), L"");
  EXPECT_TRUE(IsNewEngineerId(settings.engineerId));
  const std::wstring failure = file.Save(settings).failure;
  EXPECT_NE(failure.find(scratch.Folder()), std::wstring::npos) << "the reason names the file";
}

}  // namespace
}  // namespace settings
