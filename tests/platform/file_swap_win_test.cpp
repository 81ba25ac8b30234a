#include "platform/file_swap.h"

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

TEST_F(FileSwap, CopiesOverAFileThatIsThereOrNot) {
  for (const std::wstring& to : {to_, scratch_.Path(L"another")}) {
    const SystemResult result = CopyFileOver(from_, to);
    EXPECT_TRUE(result.succeeded);
    EXPECT_EQ(result.errorCode, 0u);
    EXPECT_EQ(ReadFileBytes(to), "new");
    EXPECT_EQ(ReadFileBytes(from_), "new");
  }
}

// Such a copy cannot be opened for writing any more.
TEST_F(FileSwap, CopiesAReadOnlyFile) {
  const std::wstring to = scratch_.Path(L"another");
  ASSERT_TRUE(::SetFileAttributesW(from_.c_str(), FILE_ATTRIBUTE_READONLY));
  EXPECT_TRUE(CopyFileOver(from_, to).succeeded);
  EXPECT_EQ(ReadFileBytes(to), "new");
  EXPECT_NE(::GetFileAttributesW(to.c_str()) & FILE_ATTRIBUTE_READONLY, 0u);
  for (const std::wstring& path : {from_, to}) {
    ::SetFileAttributesW(path.c_str(), FILE_ATTRIBUTE_NORMAL);
  }
}

TEST_F(FileSwap, TellsWhyACopyFailed) {
  const SystemResult missing = CopyFileOver(scratch_.Path(L"missing"), to_);
  EXPECT_FALSE(missing.succeeded);
  EXPECT_EQ(missing.errorCode, DWORD{ERROR_FILE_NOT_FOUND});
  const FileHandle holder = Hold(to_, FILE_SHARE_READ);
  ASSERT_TRUE(holder);
  const SystemResult locked = CopyFileOver(from_, to_);
  EXPECT_FALSE(locked.succeeded);
  EXPECT_EQ(locked.errorCode, DWORD{ERROR_SHARING_VIOLATION});
  EXPECT_EQ(ReadFileBytes(to_), "what was there");
}

TEST_F(FileSwap, MovesOverAFileThatIsThereOrNot) {
  EXPECT_TRUE(MoveFileOver(from_, to_).succeeded);
  EXPECT_EQ(ReadFileBytes(to_), "new");
  EXPECT_FALSE(IsFile(from_));
  EXPECT_TRUE(MoveFileOver(to_, from_).succeeded);
  EXPECT_EQ(ReadFileBytes(from_), "new");
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
