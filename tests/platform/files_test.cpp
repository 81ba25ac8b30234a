#include "platform/files.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "platform/scratch_folder.h"
#include "platform/system_error.h"

namespace platform {
namespace {

class FilesTest : public testing::Test {
 protected:
  ScratchFolder scratch_;
};

TEST_F(FilesTest, ReadsBackWhatItWrote) {
  const std::string everyByte = [] {
    std::string bytes;
    for (int i = 0; i < 256; ++i) bytes.push_back(static_cast<char>(i));
    return bytes;
  }();
  const std::wstring path = scratch_.Path(L"\x5DE5\x5177 \xD83D\xDE00.json");
  for (const std::string& bytes : {std::string(), std::string("\r\n\x1A\n"), everyByte,
                                   std::string((1 << 20), 'x'), std::string((1 << 20) + 1, 'y')}) {
    ASSERT_TRUE(WriteFileBytes(path, bytes));
    const auto read = ReadFileBytes(path);
    ASSERT_TRUE(read.has_value());
    EXPECT_TRUE(*read == bytes) << bytes.size();
  }
}

TEST_F(FilesTest, ReplacesALongerFileWhole) {
  const std::wstring path = scratch_.Path(L"a");
  ASSERT_TRUE(WriteFileBytes(path, "a long text"));
  ASSERT_TRUE(WriteFileBytes(path, "short"));
  EXPECT_EQ(ReadFileBytes(path), "short");
}

TEST_F(FilesTest, ReadsNothingWhereThereIsNoFile) {
  EXPECT_EQ(ReadFileBytes(scratch_.Path(L"missing")), std::nullopt);
  EXPECT_EQ(ReadFileBytes(scratch_.Path(L"missing\\deeper")), std::nullopt);
  EXPECT_EQ(ReadFileBytes(scratch_.Folder()), std::nullopt);
}

TEST_F(FilesTest, WritesNothingWithoutItsFolder) {
  EXPECT_FALSE(WriteFileBytes(scratch_.Path(L"missing\\a"), "x"));
  EXPECT_FALSE(WriteFileBytes(scratch_.Folder(), "x"));
}

TEST_F(FilesTest, WritesDurablyOrReportsTheFailure) {
  const std::wstring path = scratch_.Path(L"a");
  for (const std::string& bytes : {std::string("a long text"), std::string("short"), std::string(),
                                   std::string((1 << 20) + 1, 'y')}) {
    EXPECT_TRUE(WriteFileDurably(path, bytes).succeeded);
    EXPECT_TRUE(ReadFileBytes(path) == bytes) << bytes.size();
  }
  for (const std::wstring& nowhere : {scratch_.Path(L"missing\\a"), scratch_.Folder()}) {
    const SystemResult result = WriteFileDurably(nowhere, "x");
    EXPECT_FALSE(result.succeeded);
    EXPECT_NE(result.errorCode, 0u);
    EXPECT_NE(ErrorReason(result.errorCode), L"");
  }
}

TEST_F(FilesTest, DistinguishesFilesFromFolders) {
  ASSERT_TRUE(WriteFileBytes(scratch_.Path(L"a"), ""));
  EXPECT_TRUE(IsFile(scratch_.Path(L"a")));
  EXPECT_FALSE(IsFile(scratch_.Folder()));
  EXPECT_FALSE(IsFile(scratch_.Path(L"missing")));
}

TEST_F(FilesTest, ReportsTheSizeOfAFile) {
  for (const std::size_t sizeBytes : {std::size_t{0}, std::size_t{1}, std::size_t{1'048'577}}) {
    ASSERT_TRUE(WriteFileBytes(scratch_.Path(L"a"), std::string(sizeBytes, 'x')));
    EXPECT_EQ(FileSizeBytes(scratch_.Path(L"a")), sizeBytes);
  }
  EXPECT_EQ(FileSizeBytes(scratch_.Folder()), std::nullopt);
  EXPECT_EQ(FileSizeBytes(scratch_.Path(L"missing")), std::nullopt);
}

TEST_F(FilesTest, ListsOnlyFolders) {
  for (const wchar_t* const name : {L"b", L".hidden", L"\x674E \xD83D\xDE00", L"a"}) {
    ASSERT_TRUE(CreateFolders(scratch_.Path(name)));
  }
  ASSERT_TRUE(CreateFolders(scratch_.Path(L"a\\deeper")));
  ASSERT_TRUE(WriteFileBytes(scratch_.Path(L"file"), ""));
  std::vector<std::wstring> names = ListFolders(scratch_.Folder());
  std::sort(names.begin(), names.end());
  EXPECT_EQ(names, (std::vector<std::wstring>{L".hidden", L"a", L"b", L"\x674E \xD83D\xDE00"}));
  EXPECT_TRUE(ListFolders(scratch_.Path(L"b")).empty());
  EXPECT_TRUE(ListFolders(scratch_.Path(L"file")).empty());
  EXPECT_TRUE(ListFolders(scratch_.Path(L"missing")).empty());
}

TEST_F(FilesTest, DeletesAFileButNoFolder) {
  ASSERT_TRUE(WriteFileBytes(scratch_.Path(L"a"), "x"));
  EXPECT_TRUE(DeleteFileAt(scratch_.Path(L"a")));
  EXPECT_FALSE(IsFile(scratch_.Path(L"a")));
  EXPECT_TRUE(DeleteFileAt(scratch_.Path(L"a")));
  EXPECT_TRUE(DeleteFileAt(scratch_.Path(L"missing\\a")));
  ASSERT_TRUE(CreateFolders(scratch_.Path(L"b")));
  DeleteFileAt(scratch_.Path(L"b"));
  EXPECT_TRUE(WriteFileBytes(scratch_.Path(L"b\\file"), "x"));
}

TEST_F(FilesTest, CreatesFoldersWithTheirParents) {
  const std::wstring deep = scratch_.Path(L"a\\\x4E2D\x6587/c");
  EXPECT_TRUE(CreateFolders(deep));
  EXPECT_TRUE(CreateFolders(deep));  // one that exists is fine
  EXPECT_TRUE(WriteFileBytes(deep + L"\\file", "x"));
}

TEST_F(FilesTest, CreatesNoFolderInPlaceOfAFile) {
  ASSERT_TRUE(WriteFileBytes(scratch_.Path(L"a"), ""));
  EXPECT_FALSE(CreateFolders(scratch_.Path(L"a")));
  EXPECT_FALSE(CreateFolders(scratch_.Path(L"a\\b")));
  EXPECT_FALSE(CreateFolders(L""));
}

TEST_F(FilesTest, AppendsAndStartsANewFileWithItsMark) {
  const std::wstring path = scratch_.Path(L"\x65E5\x5FD7.log");
  AppendToFile(path, 1, "mark ", "one\r\n");
  AppendToFile(path, 1, "mark ", "two\r\n");
  EXPECT_EQ(ReadFileBytes(path), "mark one\r\ntwo\r\n");
  AppendToFile(path, 1, "mark ", std::string("\0\x1A", 2));
  EXPECT_EQ(ReadFileBytes(path), "mark one\r\ntwo\r\n" + std::string("\0\x1A", 2));
}

TEST_F(FilesTest, AppendsToAnExistingFileWithoutAMark) {
  ASSERT_TRUE(WriteFileBytes(scratch_.Path(L"empty"), ""));
  AppendToFile(scratch_.Path(L"empty"), 1, "mark ", "one");
  EXPECT_EQ(ReadFileBytes(scratch_.Path(L"empty")), "one");
}

TEST_F(FilesTest, AppendsNothingWhereNoFileIsPossible) {
  AppendToFile(scratch_.Path(L"missing\\a"), 1, "mark ", "one");
  AppendToFile(scratch_.Folder(), 1, "mark ", "one");
  EXPECT_FALSE(IsFile(scratch_.Path(L"missing\\a")));
}

}  // namespace
}  // namespace platform
