#include "update/apply_update.h"

#include <gtest/gtest.h>

#include "update/fake_computer.h"

namespace update {
namespace {

using platform::SystemResult;
using std::chrono::milliseconds;
using Texts = std::vector<std::wstring>;
using Files = std::map<std::wstring, std::string>;

constexpr wchar_t kSource[] = L"C:\\Temp 夹\\new.exe";
constexpr wchar_t kDestination[] = L"D:\\工具\\Client.exe";
constexpr wchar_t kBackup[] = L"D:\\工具\\Client.exe.bak";
constexpr wchar_t kFresh[] = L"D:\\工具\\Client.exe.new";
constexpr char kOld[] = "the old program";
constexpr char kNew[] = "the new program, which is longer";

class ApplyUpdateTest : public testing::Test {
 protected:
  ApplyUpdateTest() { computer_.files = {{kSource, kNew}, {kDestination, kOld}}; }

  int Apply() { return ApplyUpdate(4711, kSource, kDestination, computer_); }

  const std::wstring begun_ =
      std::wstring(L"开始执行强制更新。src=") + kSource + L" dst=" + kDestination + L" parent=4711";
  FakeComputer computer_;
};

TEST_F(ApplyUpdateTest, ReplacesTheProgramAndStartsTheNewOneInThisOrder) {
  const std::wstring source = kSource;
  const std::wstring destination = kDestination;
  const std::wstring backup = kBackup;
  const std::wstring fresh = kFresh;
  EXPECT_EQ(Apply(), 0);
  EXPECT_EQ(
      computer_.events,
      (Texts{L"prepare log files", L"log", L"wait", L"pause", L"hold " + source, L"trust " + source,
             L"write " + fresh, L"write, second half", L"remove " + backup,
             L"move " + destination + L" > " + backup, L"move " + fresh + L" > " + destination,
             L"remove " + source, L"remove " + backup, L"start \"" + destination + L"\"", L"log"}));
  EXPECT_EQ(computer_.log, (Texts{begun_, L"更新成功，已重启主程序。"}));
  EXPECT_EQ(computer_.files, (Files{{kDestination, kNew}}));
}

TEST_F(ApplyUpdateTest, KeepsTheBackupWhileTheDiskMayNotHaveTheNewProgram) {
  computer_.flushError = 32;
  EXPECT_EQ(Apply(), 0);
  EXPECT_EQ(computer_.files, (Files{{kDestination, kNew}, {kBackup, kOld}}));
  EXPECT_EQ(computer_.log.back(), L"更新成功，已重启主程序。");
}

TEST_F(ApplyUpdateTest, WithoutASourceNothingIsChangedOrAwaited) {
  computer_.files.erase(kSource);
  for (const std::wstring& source : {std::wstring(), std::wstring(kSource)}) {
    computer_.events.clear();
    computer_.log.clear();
    EXPECT_EQ(ApplyUpdate(1, source, kDestination, computer_), 2);
    EXPECT_EQ(computer_.events, (Texts{L"prepare log files", L"log", L"log"}));
    EXPECT_EQ(computer_.log,
              (Texts{L"开始执行强制更新。src=" + source + L" dst=" + kDestination + L" parent=1",
                     L"更新失败：下载文件不存在。"}));
  }
  EXPECT_EQ(computer_.File(kDestination), kOld);
}

// Unlikely, but a system might report a file for an empty path.
TEST_F(ApplyUpdateTest, AnEmptySourceIsMissingWhateverTheSystemReports) {
  computer_.files[L""] = "?";
  EXPECT_EQ(ApplyUpdate(1, L"", kDestination, computer_), 2);
}

TEST_F(ApplyUpdateTest, WaitsForTheOldProgramAndPausesAfterIt) {
  const struct {
    const char* name;
    std::uint32_t parentPid;
    std::optional<milliseconds> endsAt;
    milliseconds startedAt;
  } rows[] = {
      {"one that has ended", 0, std::nullopt, milliseconds(800)},
      {"one that ends at once", 4711, milliseconds(0), milliseconds(800)},
      {"one that ends later", 4711, milliseconds(12345), milliseconds(13145)},
      {"one that ends just in time", 4711, milliseconds(59999), milliseconds(60799)},
      {"one that never ends", 4711, std::nullopt, milliseconds(60800)},
      {"another process", 4712, std::nullopt, milliseconds(800)},
  };
  for (const auto& row : rows) {
    computer_ = FakeComputer();
    computer_.files = {{kSource, kNew}, {kDestination, kOld}};
    computer_.parentPid = row.parentPid;
    computer_.parentEndsAt = row.endsAt;
    EXPECT_EQ(Apply(), 0) << row.name;
    EXPECT_EQ(computer_.startedAt, row.startedAt) << row.name;
  }
}

TEST_F(ApplyUpdateTest, ARunningOldProgramKeepsItsFile) {
  computer_.parentPid = 4711;
  computer_.locked = {kDestination};
  EXPECT_EQ(Apply(), 32);
  EXPECT_EQ(computer_.log, (Texts{begun_, L"更新失败：覆盖主程序失败，错误码 32"}));
  EXPECT_EQ(computer_.files, (Files{{kSource, kNew}, {kDestination, kOld}}));
  EXPECT_EQ(computer_.now, milliseconds(60800));
  EXPECT_FALSE(computer_.startedAt);
}

TEST_F(ApplyUpdateTest, ANewProgramThatCannotBeWrittenLeavesTheOldOne) {
  const struct {
    SystemResult failure;
    int exitCode;
    const wchar_t* line;
  } rows[] = {
      {{false, 5}, 5, L"更新失败：覆盖主程序失败，错误码 5"},
      {{false, 112}, 112, L"更新失败：覆盖主程序失败，错误码 112"},
      {{false, 0}, 3, L"更新失败：覆盖主程序失败，错误码 0"},
  };
  for (const auto& row : rows) {
    computer_ = FakeComputer();
    computer_.files = {{kSource, kNew}, {kDestination, kOld}};
    computer_.writeFailure = row.failure;
    EXPECT_EQ(Apply(), row.exitCode) << row.line;
    EXPECT_EQ(computer_.log, (Texts{begun_, row.line}));
    EXPECT_EQ(computer_.files, (Files{{kSource, kNew}, {kDestination, kOld}})) << row.line;
    EXPECT_FALSE(computer_.startedAt);
  }
}

TEST_F(ApplyUpdateTest, ADownloadThatCannotBeReadChangesNothing) {
  computer_.locked = {kSource};
  EXPECT_EQ(Apply(), 32);
  EXPECT_EQ(computer_.log, (Texts{begun_, L"更新失败：覆盖主程序失败，错误码 32"}));
  EXPECT_EQ(computer_.files, (Files{{kSource, kNew}, {kDestination, kOld}}));
}

TEST_F(ApplyUpdateTest, AnUntrustedProgramChangesNothingAndTheOldOneContinues) {
  computer_.distrust = L"新程序不是由指定的发布者签名。";
  EXPECT_EQ(Apply(), 5);
  EXPECT_EQ(computer_.log, (Texts{begun_, L"更新失败：新程序不是由指定的发布者签名。"}));
  EXPECT_EQ(computer_.files, (Files{{kSource, kNew}, {kDestination, kOld}}));
  EXPECT_EQ(computer_.events.back(), L"start \"" + std::wstring(kDestination) + L"\"");
}

// Even if another program changes the file right after the check.
TEST_F(ApplyUpdateTest, InstallsTheBytesThatWereChecked) {
  computer_.replacedAfterCheck = "somebody else's program";
  EXPECT_EQ(ApplyUpdate(4711, kSource, kDestination, computer_), 0);
  EXPECT_EQ(computer_.File(kDestination), kNew);
}

// ---- obstacles

TEST_F(ApplyUpdateTest, WithTheBackupsNameTakenTheNewProgramReplacesTheOldOneInOneStep) {
  computer_.folders = {kBackup};
  EXPECT_EQ(Apply(), 0);
  EXPECT_EQ(computer_.files, (Files{{kDestination, kNew}}));
}

// It is older than the program that it would replace.
TEST_F(ApplyUpdateTest, NeverRestoresABackupThatItDidNotMake) {
  computer_.files[kBackup] = "older still";
  computer_.locked = {kBackup, kDestination};
  EXPECT_EQ(Apply(), 32);
  EXPECT_EQ(computer_.files,
            (Files{{kSource, kNew}, {kDestination, kOld}, {kBackup, "older still"}}));
}

TEST_F(ApplyUpdateTest, TheOldProgramIsRestoredIfTheNewOneCannotBeMoved) {
  computer_.unmovable = kFresh;
  computer_.moveFailure = {false, 1224};
  EXPECT_EQ(ApplyUpdate(4711, kSource, kDestination, computer_), 1224);
  EXPECT_EQ(computer_.log, (Texts{begun_, L"更新失败：覆盖主程序失败，错误码 1224"}));
  EXPECT_EQ(computer_.files, (Files{{kSource, kNew}, {kDestination, kOld}}));
}

TEST_F(ApplyUpdateTest, AFolderWithTheNewProgramsNameFailsOnlyTheUpdate) {
  computer_.folders = {kFresh};
  EXPECT_EQ(Apply(), 5);
  EXPECT_EQ(computer_.files, (Files{{kSource, kNew}, {kDestination, kOld}}));
}

TEST_F(ApplyUpdateTest, AFullOrReadOnlyDiskKeepsTheOldProgram) {
  computer_.freeBytes = std::string(kNew).size() - 1;
  EXPECT_EQ(Apply(), 112);
  computer_.freeBytes.reset();
  computer_.isReadOnlyDisk = true;
  EXPECT_EQ(Apply(), 19);
  EXPECT_EQ(computer_.files, (Files{{kSource, kNew}, {kDestination, kOld}}));
}

TEST_F(ApplyUpdateTest, AMissingDestinationIsCreated) {
  computer_.files.erase(kDestination);
  EXPECT_EQ(Apply(), 0);
  EXPECT_EQ(computer_.files, (Files{{kDestination, kNew}}));
}

TEST_F(ApplyUpdateTest, AFailureWithoutAnOldProgramLeavesNoProgram) {
  computer_.files.erase(kDestination);
  computer_.writeFailure = SystemResult{false, 3};
  EXPECT_EQ(Apply(), 3);
  EXPECT_EQ(computer_.events.back(), L"log");
  EXPECT_EQ(computer_.files, (Files{{kSource, kNew}}));
}

TEST_F(ApplyUpdateTest, AnEarlierBackupIsReplaced) {
  computer_.files[kBackup] = "older still";
  EXPECT_EQ(Apply(), 0);
  EXPECT_EQ(computer_.files, (Files{{kDestination, kNew}}));
}

TEST_F(ApplyUpdateTest, ABackupThatCannotBeRemovedDoesNotMatter) {
  computer_.files[kBackup] = "in use";
  computer_.locked = {kBackup};
  EXPECT_EQ(Apply(), 0);
  EXPECT_EQ(computer_.File(kDestination), kNew);
  EXPECT_EQ(computer_.File(kBackup), "in use");
}

TEST_F(ApplyUpdateTest, ADownloadThatCannotBeRemovedDoesNotMatter) {
  computer_.undeletable = kSource;
  EXPECT_EQ(ApplyUpdate(4711, kSource, kDestination, computer_), 0);
  EXPECT_EQ(computer_.files, (Files{{kSource, kNew}, {kDestination, kNew}}));
}

TEST_F(ApplyUpdateTest, ANewProgramThatDoesNotStartRemainsInPlace) {
  const struct {
    SystemResult result;
    int exitCode;
    const wchar_t* line;
  } rows[] = {
      {{false, 193}, 193, L"更新已覆盖，但重启失败，错误码 193"},
      {{false, 740}, 740, L"更新已覆盖，但重启失败，错误码 740"},
      {{false, 0}, 4, L"更新已覆盖，但重启失败，错误码 0"},
  };
  for (const auto& row : rows) {
    computer_ = FakeComputer();
    computer_.files = {{kSource, kNew}, {kDestination, kOld}};
    computer_.startResult = row.result;
    EXPECT_EQ(Apply(), row.exitCode) << row.line;
    EXPECT_EQ(computer_.log, (Texts{begun_, row.line}));
    EXPECT_EQ(computer_.files, (Files{{kDestination, kNew}}));
  }
}

TEST_F(ApplyUpdateTest, QuotesTheProgramItStarts) {
  computer_.files[L"D:\\a \"b\".exe"] = kOld;
  EXPECT_EQ(ApplyUpdate(1, kSource, L"D:\\a \"b\".exe", computer_), 0);
  EXPECT_EQ(computer_.events.at(computer_.events.size() - 2), L"start \"D:\\a \\\"b\\\".exe\"");
}

// ---- power failures between any two steps, or during the write

struct Cut {
  const char* before;
  std::optional<std::string> destination;
  std::optional<std::string> backup;
};

void ExpectAfterEveryCut(const std::vector<Cut>& cuts, FakeComputer computer) {
  for (std::size_t step = 0; step < cuts.size(); ++step) {
    FakeComputer cutComputer = computer;
    cutComputer.stepsLeft = static_cast<int>(step);
    EXPECT_THROW(ApplyUpdate(4711, kSource, kDestination, cutComputer), PowerCut) << step;
    const Cut& cut = cuts[step];
    EXPECT_EQ(cutComputer.File(kDestination), cut.destination) << "before " << cut.before;
    EXPECT_EQ(cutComputer.File(kBackup), cut.backup) << "before " << cut.before;
    const bool hasProgram = cutComputer.File(kDestination) == kOld ||
                            cutComputer.File(kDestination) == kNew ||
                            cutComputer.File(kBackup) == kOld;
    EXPECT_TRUE(hasProgram) << "before " << cut.before;
  }
  computer.stepsLeft = static_cast<int>(cuts.size());
  EXPECT_NO_THROW(ApplyUpdate(4711, kSource, kDestination, computer)) << "a step is missing";
}

TEST_F(ApplyUpdateTest, APowerCutAnywhereLeavesAProgram) {
  ExpectAfterEveryCut(
      {
          {"the writing begins", kOld, std::nullopt},
          {"the writing ends", kOld, std::nullopt},
          {"an old backup is removed", kOld, std::nullopt},
          {"the old program is set aside", kOld, std::nullopt},
          {"the new program takes its place", std::nullopt, kOld},
          {"the download is removed", kNew, kOld},
          {"the backup is removed", kNew, kOld},
          {"the new program starts", kNew, std::nullopt},
      },
      computer_);
}

TEST_F(ApplyUpdateTest, APowerCutAnywhereLeavesAProgramWhenTheDiskIsFull) {
  computer_.writeFailure = SystemResult{false, 112};
  ExpectAfterEveryCut(
      {
          {"the writing begins", kOld, std::nullopt},
          {"the writing fails", kOld, std::nullopt},
      },
      computer_);
}

TEST_F(ApplyUpdateTest, APowerCutAnywhereLeavesAProgramWhereABackupLay) {
  computer_.files[kBackup] = "older still";
  ExpectAfterEveryCut(
      {
          {"the writing begins", kOld, "older still"},
          {"the writing ends", kOld, "older still"},
          {"an old backup is removed", kOld, "older still"},
          {"the old program is set aside", kOld, std::nullopt},
          {"the new program takes its place", std::nullopt, kOld},
          {"the download is removed", kNew, kOld},
          {"the backup is removed", kNew, kOld},
          {"the new program starts", kNew, std::nullopt},
      },
      computer_);
}

TEST_F(ApplyUpdateTest, APowerCutAnywhereLeavesAProgramWhereNoBackupCanBe) {
  computer_.folders = {kBackup};
  ExpectAfterEveryCut(
      {
          {"the writing begins", kOld, std::nullopt},
          {"the writing ends", kOld, std::nullopt},
          {"an old backup is removed", kOld, std::nullopt},
          {"the old program is set aside", kOld, std::nullopt},
          {"the new program takes its place", kOld, std::nullopt},
          {"the download is removed", kNew, std::nullopt},
          {"the backup is removed", kNew, std::nullopt},
          {"the new program starts", kNew, std::nullopt},
      },
      computer_);
}

}  // namespace
}  // namespace update
