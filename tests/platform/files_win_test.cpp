#include <gtest/gtest.h>

#include "platform/files.h"
#include "platform/handles_win.h"
#include "platform/scratch_folder.h"
#include "win32/calls.h"

namespace platform {
namespace {

// Under Wine the host's root user can write read-only files, so probe first.
TEST(FilesOnWindows, WritesAReadOnlyFileOnlyWhereTheSystemOpensOne) {
  const ScratchFolder scratch;
  const std::wstring path = scratch.Path(L"a");
  ASSERT_TRUE(WriteFileBytes(path, "kept"));
  ASSERT_TRUE(::SetFileAttributesW(path.c_str(), FILE_ATTRIBUTE_READONLY));
  const bool writable(FileHandle(::CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr,
                                               OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr)));
  EXPECT_EQ(WriteFileBytes(path, "written"), writable);
  EXPECT_EQ(ReadFileBytes(path), writable ? "written" : "kept");
  ::SetFileAttributesW(path.c_str(), FILE_ATTRIBUTE_NORMAL);
}

TEST(FilesOnWindows, WritesNothingWhileOthersKeepWritersOut) {
  const ScratchFolder scratch;
  const std::wstring path = scratch.Path(L"a");
  ASSERT_TRUE(WriteFileBytes(path, "kept"));
  const FileHandle holder(::CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr,
                                        OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
  ASSERT_TRUE(holder);
  EXPECT_FALSE(WriteFileBytes(path, "lost"));
  EXPECT_EQ(ReadFileBytes(path), "kept");
}

TEST(FilesOnWindows, DurableWriteWaitsForABrieflyHeldFile) {
  const ScratchFolder scratch;
  const std::wstring path = scratch.Path(L"a");
  ASSERT_TRUE(WriteFileBytes(path, "kept"));
  FileHandle holder(::CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr,
                                  OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
  ASSERT_TRUE(holder);
  EXPECT_EQ(WriteFileDurably(path, "lost").errorCode, DWORD{ERROR_SHARING_VIOLATION});
  win32::Calls calls;
  calls.AnswerWith<win32::Api::Sleep>([&holder](DWORD) { holder.Reset(); });  // in the first pause
  EXPECT_TRUE(WriteFileDurably(path, "written").succeeded);
  EXPECT_EQ(calls.Count(win32::Api::Sleep), 1);
  EXPECT_EQ(ReadFileBytes(path), "written");
}

TEST(FilesOnWindows, ReadsNothingFromAnExclusivelyOpenFile) {
  const ScratchFolder scratch;
  const std::wstring path = scratch.Path(L"a");
  ASSERT_TRUE(WriteFileBytes(path, "x"));
  const FileHandle holder(::CreateFileW(path.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING,
                                        FILE_ATTRIBUTE_NORMAL, nullptr));
  ASSERT_TRUE(holder);
  EXPECT_EQ(ReadFileBytes(path), std::nullopt);
  EXPECT_FALSE(WriteFileBytes(path, "y"));
}

TEST(FilesOnWindows, ReportsASizeBeyondFourGibibytes) {
  const ScratchFolder scratch;
  const std::wstring path = scratch.Path(L"sparse");
  {
    const FileHandle file(::CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS,
                                        FILE_ATTRIBUTE_NORMAL, nullptr));
    LARGE_INTEGER size;
    size.QuadPart = (LONGLONG{5} << 32) + 7;
    ASSERT_TRUE(::SetFilePointerEx(file.Get(), size, nullptr, FILE_BEGIN));
    ASSERT_TRUE(::SetEndOfFile(file.Get()));
  }
  EXPECT_EQ(FileSizeBytes(path), (std::uint64_t{5} << 32) + 7);
}

TEST(FilesOnWindows, KnowsThatAFileInUseIsStillThere) {
  const ScratchFolder scratch;
  const std::wstring path = scratch.Path(L"a");
  ASSERT_TRUE(WriteFileBytes(path, "x"));
  {
    const FileHandle holder(::CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr,
                                          OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    EXPECT_FALSE(DeleteFileAt(path));
  }
  EXPECT_TRUE(DeleteFileAt(path));
}

TEST(FilesOnWindows, AppendsWhileOthersReadButNotWhileTheyWrite) {
  const ScratchFolder scratch;
  const std::wstring path = scratch.Path(L"a");
  ASSERT_TRUE(WriteFileBytes(path, "1"));
  FileHandle holder(::CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                  nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
  ASSERT_TRUE(holder);
  AppendToFile(path, 1, "mark", "2");
  EXPECT_EQ(ReadFileBytes(path), "12");
  holder.Reset(::CreateFileW(path.c_str(), GENERIC_READ | GENERIC_WRITE,
                             FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING,
                             FILE_ATTRIBUTE_NORMAL, nullptr));
  ASSERT_TRUE(holder);
  AppendToFile(path, 1, "mark", "3");
  holder.Reset();
  EXPECT_EQ(ReadFileBytes(path), "12");
}

}  // namespace
}  // namespace platform
