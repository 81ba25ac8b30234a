#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "settings/settings_file_fixture.h"

// Damaged settings files: truncated, overwritten or unreadable.
namespace settings {
namespace {

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

TEST_F(SettingsFileTest, DamagedFileIsReplacedByTheSecondCopyAndReportedInOneLine) {
  for (const Damage& row : Damages()) {
    disk_.files[kLastPath] = FileBytes(Worked());
    EXPECT_EQ(FileBytes(LoadBytes(row.bytes)), FileBytes(Worked())) << row.name;
    EXPECT_EQ(disk_.loadReport, kRestored) << row.name;
  }
}

TEST_F(SettingsFileTest, DamagedFileWithoutAGoodSecondCopyIsReadAsFarAsPossible) {
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

// No save leaves an object followed by other text, but reading it is better than nothing.
TEST_F(SettingsFileTest, DamagedFileWithoutASecondCopyYieldsItsFirstObject) {
  constexpr wchar_t kText[] = L"{\"deviceName\":\"d\",\"engineerId\":\"ENG-12345678\"} \x6CF5";
  for (const std::string& bytes : {text::ToUtf8(kText), LittleEndian(kText), BigEndian(kText)}) {
    const Settings settings = LoadBytes(bytes);
    EXPECT_EQ(settings.deviceName, L"d");
    EXPECT_EQ(settings.engineerId, L"ENG-12345678");
    EXPECT_EQ(disk_.loadReport, kDefaults);
  }
}

TEST_F(SettingsFileTest, DamagedFileThatYieldsNothingKeepsTheCurrentIdentity) {
  for (const Damage& row : Damages()) {
    disk_.files[kPath] = row.bytes;
    Settings settings;
    settings.engineerId = L"ENG-12345678";
    EXPECT_EQ(disk_.File().Load(settings), kDefaults) << row.name;
    EXPECT_EQ(settings.engineerId, L"ENG-12345678") << row.name;
  }
}

// A file saved by an editor is copied unchanged before it is overwritten for the first time.
TEST_F(SettingsFileTest, SecondCopyAndConnectionAreReadInUtf16Too) {
  Settings held = Worked();
  held.connectionId = L"c1";
  held.granted = {L"c1", L"http://granted:1", L"ENG-87654321", {L"10.1.0.0/16"}};
  disk_.files[kGrantPath] = BigEndian(WriteGrantedConnection(held.granted));
  for (const std::string& last : {LittleEndian(WriteSettingsText(held)),  //
                                  BigEndian(WriteSettingsText(held))}) {
    disk_.files[kLastPath] = last;
    const Settings settings = LoadBytes("damaged");
    EXPECT_EQ(FileBytes(settings), FileBytes(held));
    EXPECT_EQ(settings.granted, held.granted);
    EXPECT_EQ(disk_.loadReport, kRestored);
  }
}

TEST_F(SettingsFileTest, TextAfterACompleteFileIsNotDamage) {
  const std::string bytes = FileBytes(Worked()) + "// mine";
  EXPECT_EQ(FileBytes(LoadBytes(bytes)), FileBytes(Worked()));
  EXPECT_EQ(disk_.loadReport, L"");
  EXPECT_EQ(Save(Worked()).report, L"");
  EXPECT_EQ(disk_.written, (Paths{kLastPath, kPath, kLastPath}));
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

TEST_F(SettingsFileTest, EmptyFileIsNotSetAside) {
  disk_.files[kPath] = "";
  EXPECT_EQ(Save(Worked()).report, L"");
  EXPECT_EQ(disk_.written, (Paths{kPath, kLastPath}));
}

TEST_F(SettingsFileTest, FilesSetAsideInTheSameSecondAreNumbered) {
  for (const char* bytes : {"first", "second", "third"}) {
    disk_.files[kPath] = bytes;
    Save(Worked());
  }
  EXPECT_EQ(disk_.files[kDamagedPath], "first");
  EXPECT_EQ(disk_.files[L"V\\Client.settings.damaged-20260315_094102-2.json"], "second");
  EXPECT_EQ(disk_.files[L"V\\Client.settings.damaged-20260315_094102-3.json"], "third");
}

TEST_F(SettingsFileTest, LockedFileSetAsideEarlierIsNotOverwritten) {
  disk_.files = {{kPath, "second"}, {kDamagedPath, "first"}};
  disk_.unreadable = kDamagedPath;
  EXPECT_EQ(Save(Worked()).failure, L"");
  EXPECT_EQ(disk_.files[kDamagedPath], "first");
  EXPECT_EQ(disk_.files[L"V\\Client.settings.damaged-20260315_094102-2.json"], "second");
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

// While a connection is retried, the settings are saved every few seconds.
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
  EXPECT_EQ(disk_.written, (Paths{kDamagedPath, kLastPath}));
  EXPECT_EQ(FileBytes(disk_.Load()), FileBytes(Worked())) << "from the second copy";

  disk_.files[kPath] = "damaged otherwise";
  EXPECT_NE(file.Save(Worked()).report, L"");
  EXPECT_EQ(disk_.files.size(), 4u) << "each damage once";
  disk_.files.erase(L"V\\Client.settings.damaged-20260315_094102-2.json");
  EXPECT_NE(file.Save(Worked()).report, L"") << "not while it is kept nowhere";
  disk_.refuse = nullptr;
  EXPECT_EQ(file.Save(Worked()).failure, L"");
  EXPECT_EQ(disk_.files[kPath], FileBytes(Worked()));
}

}  // namespace
}  // namespace settings
