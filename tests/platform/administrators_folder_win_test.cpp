#include "platform/user_folders_win.h"

#include <gtest/gtest.h>

#include "platform/files.h"
#include "platform/scratch_folder.h"
#include "win32/calls.h"

namespace platform {
namespace {

using namespace win32;

constexpr SECURITY_INFORMATION kOwnerAndList =
    OWNER_SECURITY_INFORMATION | DACL_SECURITY_INFORMATION;

// Checks the requested rights only; their effect on a user has not been tested on Windows.
class AdministratorsFolder : public testing::Test {
 protected:
  FileHandle Take() const { return TakeFolderForAdministrators(folder_, {L"a.dll", L"b.sys"}); }

  static std::string SaidOpen(const std::wstring& path) {
    return Said<Api::CreateFileW>(path, FILE_READ_DATA | READ_CONTROL | WRITE_DAC | WRITE_OWNER,
                                  FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING,
                                  FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OPEN_REPARSE_POINT,
                                  nullptr);
  }

  const ScratchFolder scratch_;
  const std::wstring folder_ = scratch_.Path(L"Velmarine\\Runtime");
};

TEST_F(AdministratorsFolder, IsCreatedForAdministratorsOnly) {
  Calls calls;
  const FileHandle held = Take();
  EXPECT_TRUE(held);
  EXPECT_TRUE(calls.Had(Said<Api::ConvertStringSecurityDescriptorToSecurityDescriptorW>(
      L"O:BAG:BAD:P(A;OICI;FA;;;SY)(A;OICI;FA;;;BA)(A;OICI;FRFX;;;BU)", 1, Some{}, nullptr)));
  EXPECT_TRUE(
      calls.WereAmong({Api::CreateDirectoryW, Api::CreateFileW, Api::SetKernelObjectSecurity},
                      {Said<Api::CreateDirectoryW>(folder_, Some{}), SaidOpen(folder_),
                       Said<Api::SetKernelObjectSecurity>(Handle{1}, kOwnerAndList, Some{}),
                       SaidOpen(folder_ + L"\\a.dll"), SaidOpen(folder_ + L"\\b.sys")}));
}

TEST_F(AdministratorsFolder, IsTakenTogetherWithItsContents) {
  ASSERT_TRUE(CreateFolders(folder_));
  ASSERT_TRUE(WriteFileBytes(folder_ + L"\\b.sys", "a driver"));
  Calls calls;
  EXPECT_TRUE(Take());
  EXPECT_TRUE(
      calls.WereAmong({Api::SetKernelObjectSecurity},
                      {Said<Api::SetKernelObjectSecurity>(Handle{1}, kOwnerAndList, Some{}),
                       Said<Api::SetKernelObjectSecurity>(Handle{2}, kOwnerAndList, Some{})}));
  EXPECT_EQ(ReadFileBytes(folder_ + L"\\b.sys"), "a driver");
}

TEST_F(AdministratorsFolder, CannotBeReplacedWhileItIsHeld) {
  const FileHandle held = Take();
  ASSERT_TRUE(held);
  EXPECT_FALSE(::MoveFileExW(folder_.c_str(), scratch_.Path(L"elsewhere").c_str(), 0));
  EXPECT_TRUE(WriteFileBytes(folder_ + L"\\a.dll", "laid out")) << "but files go on being made";
}

TEST_F(AdministratorsFolder, LosesAFileWithASecondHardLink) {
  ASSERT_TRUE(CreateFolders(folder_));
  ASSERT_TRUE(WriteFileBytes(folder_ + L"\\a.dll", "somebody's"));
  ASSERT_TRUE(::CreateHardLinkW(scratch_.Path(L"other.dll").c_str(), (folder_ + L"\\a.dll").c_str(),
                                nullptr));
  Calls calls;
  EXPECT_TRUE(Take());
  EXPECT_TRUE(calls.WereAmong({Api::DeleteFileW}, {Said<Api::DeleteFileW>(folder_ + L"\\a.dll")}));
  EXPECT_FALSE(IsFile(folder_ + L"\\a.dll"));
  EXPECT_TRUE(IsFile(scratch_.Path(L"other.dll")));
}

// A caller that may not change the owner may still change the access list.
TEST_F(AdministratorsFolder, IsProtectedEvenIfItsOwnerStays) {
  Calls calls;
  calls.Fail(Api::SetKernelObjectSecurity, ERROR_INVALID_OWNER);
  EXPECT_TRUE(Take());
  EXPECT_TRUE(
      calls.WereAmong({Api::SetKernelObjectSecurity},
                      {Said<Api::SetKernelObjectSecurity>(Handle{1}, kOwnerAndList, Some{}),
                       Said<Api::SetKernelObjectSecurity>(
                           Handle{1}, SECURITY_INFORMATION{DACL_SECURITY_INFORMATION}, Some{})}));
}

TEST_F(AdministratorsFolder, ReplacesALink) {
  ASSERT_TRUE(CreateFolders(folder_));
  Calls calls;
  int asked = 0;
  calls.AnswerWith<Api::GetFileInformationByHandle>(
      [&asked](HANDLE file, BY_HANDLE_FILE_INFORMATION* info) {
        const BOOL result = Real<Api::GetFileInformationByHandle>()(file, info);
        if (++asked == 1) info->dwFileAttributes |= FILE_ATTRIBUTE_REPARSE_POINT;
        return result;
      });
  EXPECT_TRUE(Take());
  EXPECT_TRUE(calls.WereAmong(
      {Api::CreateDirectoryW, Api::RemoveDirectoryW},
      {Said<Api::CreateDirectoryW>(folder_, Some{}), Said<Api::RemoveDirectoryW>(folder_),
       Said<Api::CreateDirectoryW>(folder_, Some{})}));
}

TEST_F(AdministratorsFolder, IsReportedIfItCouldNotBeProtected) {
  EXPECT_EQ(EachFailure([this] { return std::string(Take() ? "theirs" : "not theirs"); }),
            "all well: theirs\n"
            "ConvertStringSecurityDescriptorToSecurityDescriptorW: not theirs\n"
            "GetFullPathNameW: theirs\n"
            "GetFullPathNameW: theirs\n"
            "SHCreateDirectoryExW: theirs\n"
            "GetFileAttributesW: theirs\n"
            "CreateDirectoryW: theirs\n"
            "CreateFileW: not theirs\n"
            "GetFileInformationByHandle: theirs\n"
            "SetKernelObjectSecurity: theirs\n"
            "CreateFileW: theirs\n"
            "CreateFileW: theirs\n"
            "CloseHandle: theirs\n");
}

}  // namespace
}  // namespace platform
