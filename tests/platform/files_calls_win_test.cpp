// Every call that platform's files make, with its arguments, and what comes of each one's failure.
#include <gtest/gtest.h>

#include "platform/file_swap.h"
#include "platform/files.h"
#include "platform/held_file.h"
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

  // The call that empties or makes `path_`.
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

TEST_F(FileCalls, WriteOrSayWhyNot) {
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

TEST_F(FileCalls, TryFiveTimesMoreToOpenAFileThatOthersHold) {
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

TEST_F(FileCalls, TakeAShortWriteForAFullDisk) {
  Calls calls;
  calls.AnswerWith<Api::WriteFile>([](HANDLE, const void*, DWORD, DWORD* taken, OVERLAPPED*) {
    *taken = 3;
    return TRUE;
  });
  EXPECT_EQ(Text(WriteFileDurably(path_, "text")), "failed 112");
  EXPECT_EQ(calls.Unbalanced(), "");
}

TEST_F(FileCalls, AppendToAFileThatIsMadeOrThere) {
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

TEST_F(FileCalls, AskForAFile) {
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

// ---- putting files into the place of others

TEST_F(FileCalls, WriteANewFileAndHaveTheDiskTakeIt) {
  const auto write = [this] { return Text(WriteNewFile(path_, "text")); };
  {
    Calls calls;
    EXPECT_EQ(write(), "ok 0");
    EXPECT_TRUE(
        calls.WereAmong({Api::GetFileAttributesW, Api::DeleteFileW, Api::CreateFileW,
                         Api::WriteFile, Api::FlushFileBuffers, Api::CloseHandle},
                        {
                            Said<Api::GetFileAttributesW>(path_),
                            Said<Api::DeleteFileW>(path_),
                            Said<Api::CreateFileW>(path_, GENERIC_WRITE, 0, nullptr, CREATE_NEW,
                                                   FILE_ATTRIBUTE_NORMAL, nullptr),
                            Said<Api::WriteFile>(Handle{1}, "text", 4, Ref{0}, nullptr),
                            Said<Api::FlushFileBuffers>(Handle{1}),
                            Said<Api::CloseHandle>(Handle{1}),
                        }));
  }
  EXPECT_EQ(EachFailure(write),
            "all well: ok 0\n"
            "GetFileAttributesW: ok 0\n"
            "DeleteFileW: failed 80\n"
            "CreateFileW: failed 1450\n"
            "WriteFile: failed 1450\n"
            "FlushFileBuffers: ok 1450\n"
            "CloseHandle: ok 0\n");
}

TEST_F(FileCalls, LeaveNoFileThatWasNotWrittenWhole) {
  Calls calls;
  calls.AnswerWith<Api::WriteFile>([](HANDLE, const void*, DWORD, DWORD* taken, OVERLAPPED*) {
    *taken = 3;  // a full disk need not call it an error
    return TRUE;
  });
  EXPECT_EQ(Text(WriteNewFile(path_, "text")), "failed 112");
  EXPECT_TRUE(calls.WereAmong({Api::CloseHandle, Api::DeleteFileW},
                              {Said<Api::DeleteFileW>(path_), Said<Api::CloseHandle>(Handle{1}),
                               Said<Api::DeleteFileW>(path_)}));
  EXPECT_FALSE(IsFile(path_));
}

TEST_F(FileCalls, SayWhyTheDiskMayNotHaveANewFile) {
  Calls calls;
  calls.Fail(Api::FlushFileBuffers, 1450);
  EXPECT_EQ(Text(WriteNewFile(path_, "text")), "ok 1450");
  EXPECT_TRUE(calls.WereAmong({Api::FlushFileBuffers, Api::GetLastError, Api::CloseHandle},
                              {Said<Api::FlushFileBuffers>(Handle{1}), Said<Api::GetLastError>(),
                               Said<Api::CloseHandle>(Handle{1})}));
}

TEST_F(FileCalls, SayWhyAFileCannotBeHeld) {
  ASSERT_TRUE(WriteFileBytes(path_, "text"));
  for (const Api api : {Api::GetFileSizeEx, Api::ReadFile}) {
    Calls calls;
    calls.Fail(api, 1450);
    EXPECT_EQ(Text(HoldFile(path_).result), "failed 1450");
    EXPECT_TRUE(calls.WereAmong(
        {Api::GetLastError, Api::CloseHandle},
        {Said<Api::GetLastError>(), Said<Api::GetLastError>(), Said<Api::CloseHandle>(Handle{1})}));
  }
}

TEST_F(FileCalls, HoldAFileAgainstEverybodyElse) {
  ASSERT_TRUE(WriteFileBytes(path_, "text"));
  {
    Calls calls;
    EXPECT_EQ(HoldFile(path_).bytes, "text");
    EXPECT_TRUE(calls.Were({
        Said<Api::CreateFileW>(path_, GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                               FILE_ATTRIBUTE_NORMAL | FILE_FLAG_OPEN_REPARSE_POINT, nullptr),
        Said<Api::GetLastError>(),
        Said<Api::GetFileInformationByHandleEx>(Handle{1}, FileAttributeTagInfo, Some{},
                                                sizeof(FILE_ATTRIBUTE_TAG_INFO)),
        Said<Api::GetFileSizeEx>(Handle{1}, Some{}),
        Said<Api::ReadFile>(Handle{1}, Some{}, 4, Ref{0}, nullptr),
        Said<Api::CloseHandle>(Handle{1}),
    }));
  }
  EXPECT_EQ(EachFailure([this] { return Text(HoldFile(path_).result); }),
            "all well: ok 0\n"
            "CreateFileW: failed 1450\n"
            "GetFileInformationByHandleEx: ok 0\n"
            "GetFileSizeEx: failed 1450\n"
            "ReadFile: failed 1450\n"
            "CloseHandle: ok 0\n");
}

TEST_F(FileCalls, HoldNoLinkAndNothingWithoutMeasure) {
  ASSERT_TRUE(WriteFileBytes(path_, "text"));
  {
    Calls calls;
    calls.AnswerWith<Api::GetFileInformationByHandleEx>([](HANDLE, FILE_INFO_BY_HANDLE_CLASS,
                                                           void* info, DWORD) {
      static_cast<FILE_ATTRIBUTE_TAG_INFO*>(info)->FileAttributes = FILE_ATTRIBUTE_REPARSE_POINT;
      return TRUE;
    });
    EXPECT_EQ(Text(HoldFile(path_).result), "failed 1920");
  }
  const struct {
    LONGLONG sizeBytes;
    const char* result;
  } rows[] = {{(LONGLONG{512} << 20) + 1, "failed 223"}, {5, "failed 38"}, {3, "ok 0"}};
  for (const auto& row : rows) {
    Calls calls;
    calls.AnswerWith<Api::GetFileSizeEx>([&row](HANDLE, LARGE_INTEGER* size) {
      size->QuadPart = row.sizeBytes;
      return TRUE;
    });
    EXPECT_EQ(Text(HoldFile(path_).result), row.result) << row.sizeBytes;
  }
}

TEST_F(FileCalls, MoveAndHaveTheDiskTakeTheMove) {
  constexpr DWORD kFlags = MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH;
  Calls calls;
  calls.AnswerWith<Api::MoveFileExW>([](const wchar_t*, const wchar_t*, DWORD) { return TRUE; });
  calls.Fail(Api::MoveFileExW, 1450, 2);
  EXPECT_EQ(Text(MoveFileOver(path_, other_)), "ok 0");
  EXPECT_EQ(Text(MoveFileOver(path_, other_)), "failed 1450");
  EXPECT_TRUE(calls.Were(
      {Said<Api::GetFileAttributesW>(other_), Said<Api::MoveFileExW>(path_, other_, kFlags),
       Said<Api::GetFileAttributesW>(other_), Said<Api::MoveFileExW>(path_, other_, kFlags),
       Said<Api::GetLastError>()}));
}

TEST_F(FileCalls, DeleteAReadOnlyFileToo) {
  ASSERT_TRUE(WriteFileBytes(path_, "text"));
  ASSERT_TRUE(::SetFileAttributesW(path_.c_str(), FILE_ATTRIBUTE_READONLY));
  Calls calls;
  DeleteAnyFile(path_);
  EXPECT_TRUE(calls.Were({Said<Api::GetFileAttributesW>(path_),
                          Said<Api::SetFileAttributesW>(path_, FILE_ATTRIBUTE_NORMAL),
                          Said<Api::DeleteFileW>(path_)}));
  EXPECT_FALSE(IsFile(path_));
}

TEST_F(FileCalls, ProbeWhetherAProgramCanBeReplaced) {
  ASSERT_TRUE(WriteFileBytes(path_, "program"));
  const auto probe = [this] { return Text(ProbeReplacement(path_, 4096)); };
  {
    Calls calls;
    EXPECT_EQ(probe(), "ok 0");
    EXPECT_TRUE(calls.WereAmong(
        {Api::CreateFileW, Api::GetDiskFreeSpaceExW, Api::CloseHandle},
        {
            Said<Api::CreateFileW>(path_, DELETE, kShareAll, nullptr, OPEN_EXISTING,
                                   FILE_ATTRIBUTE_NORMAL, nullptr),
            Said<Api::CreateFileW>(path_ + L".probe", GENERIC_WRITE | DELETE, 0, nullptr,
                                   CREATE_NEW, FILE_ATTRIBUTE_NORMAL | FILE_FLAG_DELETE_ON_CLOSE,
                                   nullptr),
            Said<Api::GetDiskFreeSpaceExW>(scratch_.Folder(), Some{}, nullptr, nullptr),
            Said<Api::CloseHandle>(Handle{2}),
            Said<Api::CloseHandle>(Handle{1}),
        }));
  }
  EXPECT_FALSE(IsFile(path_ + L".probe"));
  EXPECT_EQ(ReadFileBytes(path_), "program");
  EXPECT_EQ(EachFailure(probe),
            "all well: ok 0\n"
            "CreateFileW: failed 1450\n"
            "GetFileAttributesW: ok 0\n"
            "DeleteFileW: ok 0\n"
            "CreateFileW: failed 1450\n"
            "GetDiskFreeSpaceExW: ok 0\n"
            "CloseHandle: ok 0\n"
            "CloseHandle: ok 0\n");
}

TEST_F(FileCalls, ProbeTheRoomOnTheDisk) {
  ASSERT_TRUE(WriteFileBytes(path_, "program"));
  Calls calls;
  calls.AnswerWith<Api::GetDiskFreeSpaceExW>(
      [](const wchar_t*, ULARGE_INTEGER* freeBytes, ULARGE_INTEGER*, ULARGE_INTEGER*) {
        freeBytes->QuadPart = 4096;
        return TRUE;
      });
  EXPECT_EQ(Text(ProbeReplacement(path_, 4096)), "ok 0");
  EXPECT_EQ(Text(ProbeReplacement(path_, 4097)), "failed 112");
}

}  // namespace
}  // namespace platform
