// Every Windows call that replaces one file with another, and its failure.
#include <gtest/gtest.h>

#include "platform/files.h"
#include "platform/safe_files.h"
#include "platform/scratch_folder.h"
#include "win32/calls.h"

namespace platform {
namespace {

using namespace win32;

constexpr DWORD kShareEverything = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

class FileSwapCalls : public testing::Test {
 protected:
  static std::string Text(const SystemResult& result) {
    return (result.succeeded ? "ok " : "failed ") + std::to_string(result.errorCode);
  }

  const ScratchFolder scratch_;
  const std::wstring path_ = scratch_.Path(L"文件");
  const std::wstring other_ = scratch_.Path(L"other");
};

TEST_F(FileSwapCalls, WriteAndFlushANewFile) {
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

TEST_F(FileSwapCalls, LeaveNoPartlyWrittenFile) {
  Calls calls;
  calls.AnswerWith<Api::WriteFile>([](HANDLE, const void*, DWORD, DWORD* taken, OVERLAPPED*) {
    *taken = 3;  // a full disk may not be reported as an error
    return TRUE;
  });
  EXPECT_EQ(Text(WriteNewFile(path_, "text")), "failed 112");
  EXPECT_TRUE(calls.WereAmong({Api::CloseHandle, Api::DeleteFileW},
                              {Said<Api::DeleteFileW>(path_), Said<Api::CloseHandle>(Handle{1}),
                               Said<Api::DeleteFileW>(path_)}));
  EXPECT_FALSE(IsFile(path_));
}

TEST_F(FileSwapCalls, ReportWhyANewFileMayNotBeOnDisk) {
  Calls calls;
  calls.Fail(Api::FlushFileBuffers, 1450);
  EXPECT_EQ(Text(WriteNewFile(path_, "text")), "ok 1450");
  EXPECT_TRUE(calls.WereAmong({Api::FlushFileBuffers, Api::GetLastError, Api::CloseHandle},
                              {Said<Api::FlushFileBuffers>(Handle{1}), Said<Api::GetLastError>(),
                               Said<Api::CloseHandle>(Handle{1})}));
}

TEST_F(FileSwapCalls, ReportWhyAFileCannotBeHeld) {
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

TEST_F(FileSwapCalls, HoldAFileAgainstChanges) {
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

TEST_F(FileSwapCalls, HoldNoLinkAndNoOversizedOrTruncatedFile) {
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

TEST_F(FileSwapCalls, MoveAndFlushTheMove) {
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

TEST_F(FileSwapCalls, DeleteAReadOnlyFileToo) {
  ASSERT_TRUE(WriteFileBytes(path_, "text"));
  ASSERT_TRUE(::SetFileAttributesW(path_.c_str(), FILE_ATTRIBUTE_READONLY));
  Calls calls;
  DeleteAnyFile(path_);
  EXPECT_TRUE(calls.Were({Said<Api::GetFileAttributesW>(path_),
                          Said<Api::SetFileAttributesW>(path_, FILE_ATTRIBUTE_NORMAL),
                          Said<Api::DeleteFileW>(path_)}));
  EXPECT_FALSE(IsFile(path_));
}

TEST_F(FileSwapCalls, ProbeWhetherAProgramCanBeReplaced) {
  ASSERT_TRUE(WriteFileBytes(path_, "program"));
  const auto probe = [this] { return Text(ProbeReplacement(path_, 4096)); };
  {
    Calls calls;
    EXPECT_EQ(probe(), "ok 0");
    EXPECT_TRUE(calls.WereAmong(
        {Api::CreateFileW, Api::GetDiskFreeSpaceExW, Api::CloseHandle},
        {
            Said<Api::CreateFileW>(path_, DELETE, kShareEverything, nullptr, OPEN_EXISTING,
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

TEST_F(FileSwapCalls, ProbeTheFreeSpaceOnTheDisk) {
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
