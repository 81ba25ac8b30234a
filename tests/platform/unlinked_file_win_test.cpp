// Links are faked: Wine follows Linux links and has no Windows ones.
#include "platform/user_folders_win.h"

#include <gtest/gtest.h>

#include <cstring>
#include <cwchar>

#include "platform/files.h"
#include "platform/scratch_folder.h"
#include "win32/calls.h"

namespace platform {
namespace {

using namespace win32;

constexpr DWORD kNoAccess = ERROR_CANT_ACCESS_FILE;

class UnlinkedFiles : public testing::Test {
 protected:
  UnlinkedFiles() { EXPECT_TRUE(CreateFolders(scratch_.Path(L"用户\\Roaming\\config"))); }

  // Writes with the folder "用户" trusted.
  [[nodiscard]] SystemResult Write(const std::string& bytes) const {
    return WriteUnlinkedFile(path_, 3, bytes);
  }
  void ExpectRefused(Calls& calls) const {
    const SystemResult result = Write("new");
    EXPECT_FALSE(result.succeeded);
    EXPECT_EQ(result.errorCode, kNoAccess);
    EXPECT_EQ(calls.Count(Api::SetEndOfFile), 0);
    EXPECT_EQ(calls.Count(Api::WriteFile), 0);
    EXPECT_EQ(calls.Unbalanced(), "");
  }
  // Reports the path `link` as a link.
  static void MakeLink(Calls& calls, const std::wstring& link) {
    calls.AnswerWith<Api::GetFileAttributesW>([link](const wchar_t* path) -> DWORD {
      const DWORD real = Real<Api::GetFileAttributesW>()(path);
      return path == link ? real | FILE_ATTRIBUTE_REPARSE_POINT : real;
    });
  }

  const ScratchFolder scratch_;
  const std::wstring trusted_ = scratch_.Path(L"用户");
  const std::wstring folder_ = trusted_ + L"\\Roaming\\config";
  const std::wstring path_ = folder_ + L"\\RustDesk2.toml";
};

TEST_F(UnlinkedFiles, AreReplacedWhole) {
  for (const char* text : {"a long text", "short", ""}) {
    EXPECT_TRUE(Write(text).succeeded);
    EXPECT_EQ(ReadFileBytes(path_), text);
  }
}

TEST_F(UnlinkedFiles, AreOpenedWithoutFollowingALinkAndTruncatedOnceTheirPlaceIsKnown) {
  // Includes the prefix of a real path and the terminator.
  const auto sizeUnits = [](const std::wstring& path) {
    return static_cast<DWORD>(path.size() + 5);
  };
  Calls calls;
  ASSERT_TRUE(Write("text").succeeded);
  EXPECT_TRUE(calls.WereAmong(
      {Api::CreateFileW, Api::GetFileInformationByHandle, Api::GetFileAttributesW,
       Api::GetFinalPathNameByHandleW, Api::SetEndOfFile, Api::WriteFile, Api::CloseHandle},
      {
          Said<Api::CreateFileW>(path_, GENERIC_WRITE | FILE_READ_ATTRIBUTES, 0, nullptr,
                                 OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL | FILE_FLAG_OPEN_REPARSE_POINT,
                                 nullptr),
          Said<Api::GetFileInformationByHandle>(Handle{1}, Some{}),
          Said<Api::GetFileAttributesW>(path_),
          Said<Api::GetFileAttributesW>(folder_),
          Said<Api::GetFileAttributesW>(trusted_ + L"\\Roaming"),
          Said<Api::GetFinalPathNameByHandleW>(Handle{1}, nullptr, 0, FILE_NAME_NORMALIZED),
          Said<Api::GetFinalPathNameByHandleW>(Handle{1}, L"", sizeUnits(path_),
                                               FILE_NAME_NORMALIZED),
          Said<Api::CreateFileW>(trusted_ + L"\\", 0,
                                 FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                 OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr),
          Said<Api::GetFinalPathNameByHandleW>(Handle{2}, nullptr, 0, FILE_NAME_NORMALIZED),
          Said<Api::GetFinalPathNameByHandleW>(Handle{2}, L"", sizeUnits(trusted_),
                                               FILE_NAME_NORMALIZED),
          Said<Api::CloseHandle>(Handle{2}),
          Said<Api::SetEndOfFile>(Handle{1}),
          Said<Api::WriteFile>(Handle{1}, "text", 4, Ref{0}, nullptr),
          Said<Api::CloseHandle>(Handle{1}),
      }));
}

TEST_F(UnlinkedFiles, AreLeftAloneBehindALinkOfTheUsers) {
  ASSERT_TRUE(Write("old").succeeded);
  for (const std::wstring& link : {path_, folder_, trusted_ + L"\\Roaming"}) {
    Calls calls;
    MakeLink(calls, link);
    ExpectRefused(calls);
  }
  Calls calls;
  MakeLink(calls, trusted_);
  EXPECT_TRUE(Write("new").succeeded) << "what an administrator has made may be one";
}

TEST_F(UnlinkedFiles, AreLeftAloneWithASecondName) {
  ASSERT_TRUE(Write("old").succeeded);
  Calls calls;
  calls.AnswerWith<Api::GetFileInformationByHandle>(
      [](HANDLE file, BY_HANDLE_FILE_INFORMATION* info) {
        const BOOL result = Real<Api::GetFileInformationByHandle>()(file, info);
        info->nNumberOfLinks = 2;
        return result;
      });
  ExpectRefused(calls);
  EXPECT_TRUE(IsFile(path_)) << "it was there before";
}

// A link created between the check of the folders and the opening of the file.
TEST_F(UnlinkedFiles, AreLeftAloneInAnotherPlace) {
  Calls calls;
  int asked = 0;
  calls.AnswerWith<Api::GetFinalPathNameByHandleW>(
      [&asked](HANDLE file, wchar_t* path, DWORD sizeUnits, DWORD flags) -> DWORD {
        constexpr wchar_t kElsewhere[] = L"\\\\?\\C:\\Windows\\RustDesk2.toml";
        if (++asked > 2)
          return Real<Api::GetFinalPathNameByHandleW>()(file, path, sizeUnits, flags);
        if (sizeUnits == 0) return static_cast<DWORD>(std::size(kElsewhere));
        std::wcscpy(path, kElsewhere);
        return static_cast<DWORD>(std::size(kElsewhere) - 1);
      });
  ExpectRefused(calls);
  EXPECT_TRUE(calls.WereAmong({Api::DeleteFileW}, {Said<Api::DeleteFileW>(path_)}));
  EXPECT_FALSE(IsFile(path_)) << "the empty file that opening made is gone";
}

TEST_F(UnlinkedFiles, AreWrittenIfTheFileSystemDoesNotReportTheirPlace) {
  Calls calls;
  calls.Fail(Api::GetFinalPathNameByHandleW, ERROR_INVALID_FUNCTION, 0);
  EXPECT_TRUE(Write("text").succeeded);
}

TEST_F(UnlinkedFiles, ReportWhatFailed) {
  const auto write = [this] {
    const SystemResult result = Write("text");
    return (result.succeeded ? "ok " : "failed ") + std::to_string(result.errorCode);
  };
  EXPECT_EQ(EachFailure(write),
            "all well: ok 0\n"
            "CreateFileW: failed 1450\n"
            "GetFileInformationByHandle: failed 1920\n"
            "GetFileAttributesW: ok 0\n"
            "GetFileAttributesW: ok 0\n"
            "GetFileAttributesW: ok 0\n"
            "GetFinalPathNameByHandleW: ok 0\n"
            "GetFinalPathNameByHandleW: ok 0\n"
            "CreateFileW: ok 0\n"
            "GetFinalPathNameByHandleW: ok 0\n"
            "GetFinalPathNameByHandleW: ok 0\n"
            "CloseHandle: ok 0\n"
            "SetEndOfFile: failed 1450\n"
            "WriteFile: failed 1450\n"
            "CloseHandle: ok 0\n");
}

TEST_F(UnlinkedFiles, KeepTheCodeOfAFailure) {
  Calls calls;
  calls.Fail(Api::SetEndOfFile, 1450);
  EXPECT_EQ(Write("text").errorCode, 1450U);
  EXPECT_TRUE(calls.WereAmong(
      {Api::SetEndOfFile, Api::GetLastError},
      {Said<Api::GetLastError>(), Said<Api::SetEndOfFile>(Handle{1}), Said<Api::GetLastError>()}));
}

TEST_F(UnlinkedFiles, HaveTheirFoldersCreatedUnlessOneIsALink) {
  const std::wstring base = scratch_.Path(L"neu\\Roaming");
  const std::wstring folder = base + L"\\RustDesk\\config";
  EXPECT_TRUE(CreateUnlinkedFolders(folder, 2));
  EXPECT_TRUE(CreateUnlinkedFolders(folder, 2)) << "they are there";
  for (const std::wstring& link : {folder, base + L"\\RustDesk"}) {
    Calls calls;
    MakeLink(calls, link);
    EXPECT_FALSE(CreateUnlinkedFolders(folder, 2));
  }
  ASSERT_TRUE(WriteFileBytes(base + L"\\file", "text"));
  EXPECT_FALSE(CreateUnlinkedFolders(base + L"\\file", 1));
  EXPECT_FALSE(CreateUnlinkedFolders(base + L"\\file\\x", 1));
}

}  // namespace
}  // namespace platform
