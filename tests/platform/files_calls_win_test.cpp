// Every Windows call of platform/files, with its arguments and its failure.
#include <gtest/gtest.h>

#include "platform/files.h"
#include "platform/scratch_folder.h"
#include "win32/calls.h"

namespace platform {
namespace {

using namespace win32;

constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
constexpr DWORD kChunkBytes = 1 << 20;

class FileCalls : public testing::Test {
 protected:
  static std::string Text(const SystemResult& result) {
    return (result.succeeded ? "ok " : "failed ") + std::to_string(result.errorCode);
  }
  static std::string Text(bool is) { return is ? "true" : "false"; }
  static std::string Text(const std::optional<std::string>& bytes) {
    return bytes.value_or("nothing");
  }

  // The call that truncates or creates `path_`.
  [[nodiscard]] std::string SaidOpenForWriting() const {
    return Said<Api::CreateFileW>(path_, GENERIC_WRITE, FILE_SHARE_READ, nullptr, CREATE_ALWAYS,
                                  FILE_ATTRIBUTE_NORMAL, nullptr);
  }

  const ScratchFolder scratch_;
  const std::wstring path_ = scratch_.Path(L"文件");
  const std::wstring other_ = scratch_.Path(L"other");
};

TEST_F(FileCalls, Read) {
  ASSERT_TRUE(WriteFileBytes(path_, "text"));
  Calls calls;
  EXPECT_EQ(ReadFileBytes(path_), "text");
  EXPECT_TRUE(calls.Were({
      Said<Api::CreateFileW>(path_, GENERIC_READ, kShareAll, nullptr, OPEN_EXISTING,
                             FILE_ATTRIBUTE_NORMAL, nullptr),
      Said<Api::ReadFile>(Handle{1}, Some{}, kChunkBytes, Ref{0}, nullptr),
      Said<Api::ReadFile>(Handle{1}, Some{}, kChunkBytes, Ref{0}, nullptr),
      Said<Api::CloseHandle>(Handle{1}),
  }));
}

TEST_F(FileCalls, ReadNothingWhenOneFails) {
  ASSERT_TRUE(WriteFileBytes(path_, "text"));
  EXPECT_EQ(EachFailure([this] { return Text(ReadFileBytes(path_)); }),
            "all well: text\n"
            "CreateFileW: nothing\n"
            "ReadFile: nothing\n"
            "ReadFile: nothing\n"
            "CloseHandle: text\n");
}

TEST_F(FileCalls, WriteInChunks) {
  const std::string bytes(kChunkBytes + 3, 'x');
  Calls calls;
  EXPECT_TRUE(WriteFileBytes(path_, bytes));
  EXPECT_TRUE(calls.Were({
      SaidOpenForWriting(),
      Said<Api::WriteFile>(Handle{1}, bytes, kChunkBytes, Ref{0}, nullptr),
      Said<Api::WriteFile>(Handle{1}, "xxx", 3, Ref{0}, nullptr),
      Said<Api::CloseHandle>(Handle{1}),
  }));
}

TEST_F(FileCalls, WriteDurably) {
  Calls calls;
  EXPECT_EQ(Text(WriteFileDurably(path_, "text")), "ok 0");
  EXPECT_TRUE(calls.Were({
      SaidOpenForWriting(),
      Said<Api::WriteFile>(Handle{1}, "text", 4, Ref{0}, nullptr),
      Said<Api::FlushFileBuffers>(Handle{1}),
      Said<Api::CloseHandle>(Handle{1}),
  }));
}

TEST_F(FileCalls, WriteOrReportTheFailure) {
  EXPECT_EQ(EachFailure([this] { return Text(WriteFileDurably(path_, "text")); }),
            "all well: ok 0\n"
            "CreateFileW: failed 1450\n"
            "WriteFile: failed 1450\n"
            "FlushFileBuffers: failed 1450\n"
            "CloseHandle: ok 0\n");
  EXPECT_EQ(EachFailure([this] { return Text(WriteFileBytes(path_, "text")); }),
            "all well: true\n"
            "CreateFileW: false\n"
            "WriteFile: false\n"
            "CloseHandle: true\n");
}

TEST_F(FileCalls, RetryFiveTimesToOpenAHeldFile) {
  Calls calls;
  calls.Fail(Api::CreateFileW, ERROR_SHARING_VIOLATION, 0);
  calls.AnswerWith<Api::Sleep>([](DWORD) {});
  EXPECT_EQ(Text(WriteFileDurably(path_, "text")), "failed 32");
  std::vector<std::string> expected;
  for (int attempt = 1; attempt <= 6; ++attempt) {
    if (attempt > 1) expected.push_back(Said<Api::Sleep>(20));
    expected.push_back(SaidOpenForWriting());
    expected.push_back(Said<Api::GetLastError>());
  }
  expected.push_back(Said<Api::GetLastError>());
  EXPECT_TRUE(calls.Were(expected));
}

TEST_F(FileCalls, TreatAShortWriteAsAFullDisk) {
  Calls calls;
  calls.AnswerWith<Api::WriteFile>([](HANDLE, const void*, DWORD, DWORD* taken, OVERLAPPED*) {
    *taken = 3;
    return TRUE;
  });
  EXPECT_EQ(Text(WriteFileDurably(path_, "text")), "failed 112");
  EXPECT_EQ(calls.Unbalanced(), "");
}

TEST_F(FileCalls, AppendToANewOrExistingFile) {
  const std::string open = Said<Api::CreateFileW>(
      path_, FILE_APPEND_DATA | FILE_READ_ATTRIBUTES, FILE_SHARE_READ, nullptr, OPEN_ALWAYS,
      FILE_ATTRIBUTE_NORMAL | FILE_FLAG_OPEN_REPARSE_POINT, nullptr);
  {
    Calls calls;
    AppendToFile(path_, 1, "mark", "one");
    EXPECT_TRUE(calls.Had(open));
    EXPECT_TRUE(calls.WereAmong({Api::WriteFile, Api::CloseHandle},
                                {Said<Api::CloseHandle>(Handle{2}),
                                 Said<Api::WriteFile>(Handle{1}, "mark", 4, Ref{0}, nullptr),
                                 Said<Api::WriteFile>(Handle{1}, "one", 3, Ref{0}, nullptr),
                                 Said<Api::CloseHandle>(Handle{1})}));
  }
  Calls calls;
  AppendToFile(path_, 1, "mark", "two");
  EXPECT_TRUE(calls.Had(open));
  EXPECT_TRUE(calls.WereAmong({Api::WriteFile},
                              {Said<Api::WriteFile>(Handle{1}, "two", 3, Ref{0}, nullptr)}));
}

TEST_F(FileCalls, QueryAFile) {
  ASSERT_TRUE(WriteFileBytes(path_, "text"));
  {
    Calls calls;
    EXPECT_TRUE(IsFile(path_));
    EXPECT_EQ(FileSizeBytes(path_), 4u);
    EXPECT_TRUE(
        calls.Were({Said<Api::GetFileAttributesW>(path_),
                    Said<Api::GetFileAttributesExW>(path_, GetFileExInfoStandard, Some{})}));
  }
  EXPECT_EQ(EachFailure([this] {
              const std::string is = Text(IsFile(path_));
              return is + std::to_string(FileSizeBytes(path_).value_or(99));
            }),
            "all well: true4\nGetFileAttributesW: false4\nGetFileAttributesExW: true99\n");
}

TEST_F(FileCalls, ListFolders) {
  ASSERT_TRUE(CreateFolders(scratch_.Path(L"a")));
  const auto list = [this] { return std::to_string(ListFolders(scratch_.Folder()).size()); };
  {
    Calls calls;
    list();
    EXPECT_TRUE(calls.Were({
        Said<Api::FindFirstFileW>(scratch_.Path(L"*"), Some{}),
        Said<Api::FindNextFileW>(Handle{1}, Some{}),
        Said<Api::FindNextFileW>(Handle{1}, Some{}),
        Said<Api::FindNextFileW>(Handle{1}, Some{}),
        Said<Api::FindClose>(Handle{1}),
    }));
  }
  EXPECT_EQ(EachFailure(list),
            "all well: 1\nFindFirstFileW: 0\nFindNextFileW: 0\nFindNextFileW: 0\n"
            "FindNextFileW: 1\nFindClose: 1\n");
}

// The folder contains the fixture's file and a subfolder.
TEST_F(FileCalls, ListFilesButNoFolders) {
  ASSERT_TRUE(CreateFolders(scratch_.Path(L"a")));
  ASSERT_TRUE(WriteFileBytes(scratch_.Path(L"b.txt"), "x"));
  const std::vector<std::wstring> names = ListFiles(scratch_.Folder());
  EXPECT_NE(std::ranges::find(names, L"b.txt"), names.end());
  EXPECT_EQ(std::ranges::find(names, L"a"), names.end());
  EXPECT_EQ(std::ranges::find(names, L"."), names.end());
}

TEST_F(FileCalls, Delete) {
  const auto makeAndDelete = [this] {
    Real<Api::CloseHandle>()(Real<Api::CreateFileW>()(path_.c_str(), GENERIC_WRITE, 0, nullptr,
                                                      CREATE_ALWAYS, 0, nullptr));
    return Text(DeleteFileAt(path_));
  };
  {
    Calls calls;
    makeAndDelete();
    EXPECT_TRUE(calls.Were({Said<Api::DeleteFileW>(path_)}));
  }
  EXPECT_EQ(EachFailure(makeAndDelete), "all well: true\nDeleteFileW: false\n");
  Calls calls;
  DeleteFileAt(path_);
  EXPECT_TRUE(DeleteFileAt(path_));
  EXPECT_TRUE(calls.Were({Said<Api::DeleteFileW>(path_), Said<Api::DeleteFileW>(path_),
                          Said<Api::GetFileAttributesW>(path_)}));
}

TEST_F(FileCalls, CreateFolders) {
  const std::wstring folder = scratch_.Path(L"a/b");
  const std::wstring absolute = scratch_.Path(L"a\\b");
  {
    Calls calls;
    EXPECT_TRUE(platform::CreateFolders(folder));
    const auto needed = static_cast<DWORD>(absolute.size() + 1);
    EXPECT_TRUE(
        calls.WereAmong({Api::GetFullPathNameW, Api::SHCreateDirectoryExW, Api::GetFileAttributesW},
                        {Said<Api::GetFullPathNameW>(folder, 0, nullptr, nullptr),
                         Said<Api::GetFullPathNameW>(folder, needed, L"", nullptr),
                         Said<Api::SHCreateDirectoryExW>(nullptr, absolute, nullptr)}));
  }
  {
    Calls calls;
    EXPECT_TRUE(platform::CreateFolders(absolute)) << "is there";
    EXPECT_TRUE(
        calls.WereAmong({Api::GetFileAttributesW}, {Said<Api::GetFileAttributesW>(absolute)}));
  }
  EXPECT_EQ(EachFailure([&] { return Text(platform::CreateFolders(folder)); }),
            "all well: true\nGetFullPathNameW: false\nGetFullPathNameW: false\n"
            "SHCreateDirectoryExW: true\nGetFileAttributesW: false\n");
}

}  // namespace
}  // namespace platform
