#include "platform/safe_files.h"

#include <gtest/gtest.h>

#include "platform/files.h"
#include "platform/handles_win.h"
#include "platform/scratch_folder.h"

namespace platform {
namespace {

class FileSwap : public testing::Test {
 protected:
  FileSwap() {
    EXPECT_TRUE(WriteFileBytes(from_, "new"));
    EXPECT_TRUE(WriteFileBytes(to_, "what was there"));
  }

  static FileHandle Hold(const std::wstring& path, DWORD share) {
    return FileHandle(::CreateFileW(path.c_str(), GENERIC_READ, share, nullptr, OPEN_EXISTING,
                                    FILE_ATTRIBUTE_NORMAL, nullptr));
  }

  ScratchFolder scratch_;
  const std::wstring from_ = scratch_.Path(L"新 文件.exe");
  const std::wstring to_ = scratch_.Path(L"旧 文件.exe");
};

TEST_F(FileSwap, CopiesOverAnExistingOrMissingFile) {
  for (const std::wstring& to : {to_, scratch_.Path(L"another")}) {
    const SystemResult result = CopyFileOver(from_, to);
    EXPECT_TRUE(result.succeeded);
    EXPECT_EQ(result.errorCode, 0u);
    EXPECT_EQ(ReadFileBytes(to), "new");
    EXPECT_EQ(ReadFileBytes(from_), "new");
  }
}

TEST_F(FileSwap, CopiesFromAndOverReadOnlyFiles) {
  for (const std::wstring& path : {from_, to_}) {
    ASSERT_TRUE(::SetFileAttributesW(path.c_str(), FILE_ATTRIBUTE_READONLY));
  }
  EXPECT_TRUE(CopyFileOver(from_, to_).succeeded);
  EXPECT_EQ(ReadFileBytes(to_), "new");
  EXPECT_EQ(::GetFileAttributesW(to_.c_str()) & FILE_ATTRIBUTE_READONLY, 0u);
  ::SetFileAttributesW(from_.c_str(), FILE_ATTRIBUTE_NORMAL);
}

TEST_F(FileSwap, ACopyThatCannotTakeItsPlaceLeavesNothingBehind) {
  const std::wstring folder = scratch_.Path(L"folder");
  ASSERT_TRUE(CreateFolders(folder));
  EXPECT_FALSE(CopyFileOver(from_, folder).succeeded);
  EXPECT_FALSE(IsFile(folder + L".part"));
}

TEST_F(FileSwap, ReportsWhyACopyFailed) {
  const SystemResult missing = CopyFileOver(scratch_.Path(L"missing"), to_);
  EXPECT_FALSE(missing.succeeded);
  EXPECT_EQ(missing.errorCode, DWORD{ERROR_FILE_NOT_FOUND});
  const FileHandle holder = Hold(to_, FILE_SHARE_READ);
  ASSERT_TRUE(holder);
  const SystemResult locked = CopyFileOver(from_, to_);
  EXPECT_FALSE(locked.succeeded);
  EXPECT_TRUE(locked.errorCode == ERROR_SHARING_VIOLATION ||
              locked.errorCode == ERROR_ACCESS_DENIED)
      << locked.errorCode;
  EXPECT_EQ(ReadFileBytes(to_), "what was there");
}

TEST_F(FileSwap, MovesOverAnExistingOrMissingFile) {
  EXPECT_TRUE(MoveFileOver(from_, to_).succeeded);
  EXPECT_EQ(ReadFileBytes(to_), "new");
  EXPECT_FALSE(IsFile(from_));
  EXPECT_TRUE(MoveFileOver(to_, from_).succeeded);
  EXPECT_EQ(ReadFileBytes(from_), "new");
}

TEST_F(FileSwap, MovesOverAReadOnlyFile) {
  ASSERT_TRUE(::SetFileAttributesW(to_.c_str(), FILE_ATTRIBUTE_READONLY));
  EXPECT_TRUE(MoveFileOver(from_, to_).succeeded);
  EXPECT_EQ(ReadFileBytes(to_), "new");
}

// Others can read a held file but cannot write, move or delete it.
TEST_F(FileSwap, AHeldFileCannotBeChanged) {
  HeldFile held = HoldFile(from_);
  ASSERT_TRUE(held.result.succeeded);
  EXPECT_EQ(ReadFileBytes(from_), "new");
  EXPECT_FALSE(WriteFileBytes(from_, "another"));
  EXPECT_FALSE(MoveFileOver(to_, from_).succeeded);
  EXPECT_FALSE(MoveFileOver(from_, scratch_.Path(L"elsewhere")).succeeded);
  DeleteAnyFile(from_);
  EXPECT_EQ(ReadFileBytes(from_), "new");
  held = {};
  EXPECT_TRUE(MoveFileOver(to_, from_).succeeded) << "as long as it is held";
}

TEST_F(FileSwap, AProgramThatOthersHoldCannotBeReplaced) {
  EXPECT_TRUE(ProbeReplacement(to_, 0).succeeded);
  const FileHandle holder = Hold(to_, FILE_SHARE_READ);
  const SystemResult probed = ProbeReplacement(to_, 0);
  EXPECT_FALSE(probed.succeeded);
  EXPECT_EQ(probed.errorCode, DWORD{ERROR_SHARING_VIOLATION});
}

TEST_F(FileSwap, AMoveThatFailsChangesNothing) {
  const SystemResult missing = MoveFileOver(scratch_.Path(L"missing"), to_);
  EXPECT_FALSE(missing.succeeded);
  EXPECT_EQ(missing.errorCode, DWORD{ERROR_FILE_NOT_FOUND});
  const FileHandle holder = Hold(from_, FILE_SHARE_READ);
  ASSERT_TRUE(holder);
  EXPECT_FALSE(MoveFileOver(from_, to_).succeeded);
  EXPECT_EQ(ReadFileBytes(from_), "new");
  EXPECT_EQ(ReadFileBytes(to_), "what was there");
}

}  // namespace
}  // namespace platform
