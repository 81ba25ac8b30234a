#include "settings/settings_file.h"

#include <gtest/gtest.h>

#include <string>

#include "platform/files.h"
#include "platform/scratch_folder.h"
#include "settings/memory_disk.h"
#include "settings/server_address.h"

namespace settings {
namespace {

using Paths = std::vector<std::wstring>;

constexpr wchar_t kDefaults[] =
    L"警告：设置文件无法读取，已使用默认设置；原文件将在首次保存前另行保留。";
constexpr wchar_t kRestored[] =
    L"警告：设置文件无法读取，已恢复上次保存的设置；原文件将在首次保存前另行保留。";

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

// A record as an engineer has one who has worked for a while.
Settings Worked() {
  Settings settings;
  settings.engineerId = L"ENG-12345678";
  settings.deviceName = L"\x6CF5\x7AD9";
  settings.profileName = L"\x6CF5\x7AD9";
  for (const wchar_t* name : {L"A", L"B"}) {
    settings.siteProfiles.push_back(
        {name, L"http://h:1", L"D", std::wstring(L"key ") + name, L"ALL", {L"10.1.0.0/16"}});
  }
  return settings;
}

class SettingsFileTest : public testing::Test {
 protected:
  Settings LoadBytes(const std::string& bytes) {
    disk_.files[kPath] = bytes;
    return disk_.Load();
  }
  SettingsFile::Saved Save(const Settings& settings) {
    disk_.written.clear();
    return disk_.File().Save(settings);
  }

  MemoryDisk disk_;
};

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

TEST_F(SettingsFileTest, MissingFileIsAFirstStartEvenBesideASecondCopy) {
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

TEST_F(SettingsFileTest, FileOfWrongKindsGivesDefaults) {
  const Settings settings = LoadBytes(
      "{\"serverUrl\":1,\"deviceSecret\":true,\"engineerId\":[],\"autoStartEnabled\":\"true\","
      "\"discoveryModeEnabled\":1,\"siteProfiles\":{\"name\":\"x\"}}");
  EXPECT_TRUE(IsNewEngineerId(settings.engineerId));
  EXPECT_EQ(disk_.loadReport, L"");
  ExpectDefaults(settings);
}

TEST_F(SettingsFileTest, NewIdentityReachesTheFileWithTheNextSaveOnly) {
  const Settings settings = LoadBytes("{\"deviceName\":\"d\"}");
  EXPECT_EQ(disk_.files[kPath], "{\"deviceName\":\"d\"}");
  Save(settings);
  EXPECT_EQ(disk_.Load().engineerId, settings.engineerId);
}

TEST_F(SettingsFileTest, ReadsEveryEncodingThatAnEditorSaves) {
  using namespace std::string_view_literals;
  EXPECT_EQ(LoadBytes("{\"deviceName\":\"\xE6\xB3\xB5\xE7\xAB\x99\"}").deviceName, L"\x6CF5\x7AD9");
  EXPECT_EQ(LoadBytes("\xEF\xBB\xBF{\"deviceName\":\"d\"}").deviceName, L"d");
  std::string littleEndian = "\xFF\xFE";
  std::string bigEndian = "\xFE\xFF";
  for (const wchar_t unit : WriteSettingsText(Worked())) {
    const auto high = static_cast<char>(unit >> 8 & 0xFF);
    const auto low = static_cast<char>(unit & 0xFF);
    littleEndian.append({low, high});
    bigEndian.append({high, low});
  }
  for (const std::string& bytes : {littleEndian, bigEndian}) {
    EXPECT_EQ(FileBytes(LoadBytes(bytes)), FileBytes(Worked()));
    EXPECT_EQ(disk_.loadReport, L"");
  }
}

TEST_F(SettingsFileTest, TrustsWhatAnEditorLeavesAroundTheObject) {
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

// ---- files that cannot be trusted

struct Damage {
  const char* name;
  std::string bytes;
};

std::vector<Damage> Damages() {
  const std::string good = FileBytes(Worked());
  std::vector<Damage> rows = {
      {"cut in a member", good.substr(0, good.size() / 2)},
      {"cut before the last brace", good.substr(0, good.size() - 2)},
      {"cut in a string", "{\"deviceName\":\"d"},
      {"a comma too many", "{\"deviceName\":\"d\",}"},
      {"all zeros", std::string(good.size(), '\0')},
      {"zeros at the end", good.substr(0, 300) + std::string(good.size() - 300, '\0')},
      {"a stray letter in front", "x" + good},
      {"a comment in front", "// mine\n" + good},
      {"front half lost", good.substr(good.size() / 2)},
      {"front lost up to a profile", good.substr(good.find("{\"name\":\"B\""))},
      {"blanks", " \r\n"},
      {"a list", "[{\"deviceName\":\"d\"}]"},
      {"a number", "5"},
      {"plain text", "plain text"},
      {"nested too deep", std::string(100'000, '[')},
  };
  return rows;
}

TEST_F(SettingsFileTest, DamagedFileIsReplacedByTheSecondCopyAndToldInOneLine) {
  for (const Damage& row : Damages()) {
    disk_.files[kLastPath] = FileBytes(Worked());
    EXPECT_EQ(FileBytes(LoadBytes(row.bytes)), FileBytes(Worked())) << row.name;
    EXPECT_EQ(disk_.loadReport, kRestored) << row.name;
  }
}

TEST_F(SettingsFileTest, DamagedFileWithoutAGoodSecondCopyReadsAsFarAsItGoes) {
  for (const Damage& row : Damages()) {
    for (const std::string& last : {std::string("{"), std::string()}) {
      disk_.files[kLastPath] = last;
      const Settings settings = LoadBytes(row.bytes);
      EXPECT_TRUE(IsNewEngineerId(settings.engineerId)) << row.name;
      EXPECT_TRUE(settings.siteProfiles.empty()) << row.name;
      EXPECT_EQ(disk_.loadReport, kDefaults) << row.name;
    }
  }
}

TEST_F(SettingsFileTest, EmptyFileIsReplacedByTheSecondCopy) {
  disk_.files[kLastPath] = FileBytes(Worked());
  EXPECT_EQ(FileBytes(LoadBytes("")), FileBytes(Worked()));
  EXPECT_EQ(disk_.loadReport, L"警告：设置文件为空，已恢复上次保存的设置。");
}

TEST_F(SettingsFileTest, FileThatCannotBeReadCountsAsDamaged) {
  disk_.files[kPath] = FileBytes(Worked());
  disk_.unreadable = kPath;
  Settings settings = disk_.Load();
  EXPECT_TRUE(IsNewEngineerId(settings.engineerId));
  ExpectDefaults(settings);
  EXPECT_EQ(disk_.loadReport, kDefaults);
  EXPECT_EQ(Save(settings).failure, std::wstring(L"原设置文件无法读取：") + kPath);
  EXPECT_TRUE(disk_.written.empty());
  disk_.files[kLastPath] = FileBytes(Worked());
  EXPECT_EQ(FileBytes(disk_.Load()), FileBytes(Worked()));
}

TEST_F(SettingsFileTest, DamagedFileIsSetAsideBeforeItIsOverwritten) {
  for (const Damage& row : Damages()) {
    disk_.files = {{kPath, row.bytes}, {kLastPath, FileBytes(Worked())}};
    const SettingsFile::Saved saved = Save(Worked());
    EXPECT_EQ(saved.failure, L"") << row.name;
    EXPECT_EQ(saved.report, std::wstring(L"警告：无法读取的设置文件已另行保留：") + kDamagedPath);
    EXPECT_EQ(disk_.files[kDamagedPath], row.bytes) << row.name;
    EXPECT_EQ(disk_.files[kPath], FileBytes(Worked())) << row.name;
    EXPECT_EQ(disk_.written, (Paths{kDamagedPath, kPath})) << row.name;
  }
}

TEST_F(SettingsFileTest, EmptyFileIsNotWorthSettingAside) {
  disk_.files[kPath] = "";
  EXPECT_EQ(Save(Worked()).report, L"");
  EXPECT_EQ(disk_.written, (Paths{kPath, kLastPath}));
}

TEST_F(SettingsFileTest, FilesSetAsideInOneSecondHaveNumbers) {
  for (const char* bytes : {"first", "second", "third"}) {
    disk_.files[kPath] = bytes;
    Save(Worked());
  }
  EXPECT_EQ(disk_.files[kDamagedPath], "first");
  EXPECT_EQ(disk_.files[L"V\\Client.settings.damaged-20260315_094102-2.json"], "second");
  EXPECT_EQ(disk_.files[L"V\\Client.settings.damaged-20260315_094102-3.json"], "third");
}

TEST_F(SettingsFileTest, DamagedFileThatCannotBeSetAsideStays) {
  disk_.files[kPath] = "x{}";
  disk_.refuse = [](const std::wstring& path) {
    return std::wstring(path == kDamagedPath ? L"拒绝访问。" : L"");
  };
  EXPECT_EQ(Save(Worked()).failure,
            std::wstring(L"原设置文件未能另行保留，拒绝访问。（") + kDamagedPath + L"）");
  EXPECT_EQ(disk_.files[kPath], "x{}");
  EXPECT_TRUE(disk_.written.empty());
  disk_.refuse = nullptr;
  EXPECT_EQ(Save(Worked()).failure, L"");
  EXPECT_EQ(disk_.files[kDamagedPath], "x{}");
  EXPECT_EQ(disk_.files[kPath], FileBytes(Worked()));
}

// A save comes every few seconds while a connection is retried.
TEST_F(SettingsFileTest, DamagedFileThatCannotBeOverwrittenIsSetAsideOnce) {
  disk_.files[kPath] = "damaged";
  disk_.refuse = [](const std::wstring& path) {
    return std::wstring(path == kPath ? L"拒绝访问。" : L"");
  };
  SettingsFile file = disk_.File();
  EXPECT_NE(file.Save(Worked()).report, L"");
  for (int times = 0; times < 3; ++times) {
    const SettingsFile::Saved saved = file.Save(Worked());
    EXPECT_EQ(saved.failure, std::wstring(L"拒绝访问。（") + kPath + L"）");
    EXPECT_EQ(saved.report, L"");
  }
  EXPECT_EQ(disk_.written, Paths{kDamagedPath});

  disk_.files[kPath] = "damaged otherwise";
  EXPECT_NE(file.Save(Worked()).report, L"");
  EXPECT_EQ(disk_.files.size(), 3u) << "each damage once";
  disk_.files.erase(L"V\\Client.settings.damaged-20260315_094102-2.json");
  EXPECT_NE(file.Save(Worked()).report, L"") << "not while it is kept nowhere";
  disk_.refuse = nullptr;
  EXPECT_EQ(file.Save(Worked()).failure, L"");
  EXPECT_EQ(disk_.files[kPath], FileBytes(Worked()));
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

TEST_F(SettingsFileTest, SaveThatChangesNothingWritesNothing) {
  Save(Worked());
  EXPECT_EQ(Save(Worked()).failure, L"");
  EXPECT_TRUE(disk_.written.empty());
}

// A file of an earlier version, or one that an editor has changed, has no second copy yet.
TEST_F(SettingsFileTest, CopiesWhatIsThereBeforeTheFirstTruncation) {
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

TEST_F(SettingsFileTest, MakesUpForASecondCopyThatCouldNotBeWritten) {
  disk_.refuse = [](const std::wstring& path) {
    return std::wstring(path == kLastPath ? L"磁盘空间不足。" : L"");
  };
  EXPECT_EQ(Save(Worked()).failure, L"") << "the settings themselves are on the disk";
  disk_.refuse = nullptr;
  Save(Worked());
  EXPECT_EQ(disk_.files[kLastPath], FileBytes(Worked()));
}

TEST_F(SettingsFileTest, SaysWhyItCouldNotBeWritten) {
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

TEST_F(SettingsFileTest, ConnectionOfAnotherTimeIsNotInForce) {
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

TEST_F(SettingsFileTest, ConnectionThatCannotBeWrittenIsToldButKeepsNothingBack) {
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
  SettingsFile file(path, RealSettingsDisk([] { return std::wstring(L"now"); }));
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

TEST(SettingsOnDisk, FolderInTheFilesPlaceReadsLikeAMissingFileAndTakesNoSave) {
  const platform::ScratchFolder scratch;
  SettingsFile file(scratch.Folder(), RealSettingsDisk([] { return std::wstring(); }));
  Settings settings;
  EXPECT_EQ(file.Load(settings), L"");
  EXPECT_TRUE(IsNewEngineerId(settings.engineerId));
  const std::wstring failure = file.Save(settings).failure;
  EXPECT_NE(failure.find(scratch.Folder()), std::wstring::npos) << "the reason names the file";
}

}  // namespace
}  // namespace settings
