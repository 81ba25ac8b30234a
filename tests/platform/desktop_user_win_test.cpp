#include <gtest/gtest.h>

#include <lmcons.h>

#include "platform/desktop_user.h"
#include "platform/path.h"
#include "platform/windows_sdk.h"
// Needs windows.h first.
#include <sddl.h>

namespace platform {
namespace {

// Looks up the id of the current user by name.
std::wstring SidByName() {
  wchar_t name[UNLEN + 1];
  DWORD nameUnits = UNLEN + 1;
  ::GetUserNameW(name, &nameUnits);
  BYTE sid[SECURITY_MAX_SID_SIZE];
  DWORD sidBytes = sizeof(sid);
  wchar_t domain[MAX_PATH];
  DWORD domainUnits = MAX_PATH;
  SID_NAME_USE use = SidTypeUnknown;
  if (::LookupAccountNameW(nullptr, name, sid, &sidBytes, domain, &domainUnits, &use) == FALSE) {
    return L"(none)";
  }
  wchar_t* text = nullptr;
  ::ConvertSidToStringSidW(sid, &text);
  const std::wstring copy(text);
  ::LocalFree(text);
  return copy;
}

TEST(DesktopUserEdge, FindsTheUserOfAProcessAndHisFolder) {
  const DWORD shell = ::GetCurrentProcessId();
  EXPECT_EQ(OwnSid(), SidByName());
  EXPECT_EQ(DesktopSid(shell), OwnSid()) << "by its token";
  EXPECT_EQ(DesktopLocalAppData(shell, OwnSid()), LocalAppDataFolder()) << "by its token";
}

TEST(DesktopUserEdge, UsesTheSessionAndTheRegistryWithoutAShell) {
  const std::wstring sid = DesktopSid(0);
  EXPECT_TRUE(sid.empty() || sid == OwnSid()) << "the session is this user's";
  EXPECT_EQ(DesktopLocalAppData(0, L"S-1-5-21-0-0-0-12345"), L"");
  HKEY key = nullptr;
  const std::wstring path =
      OwnSid() + L"\\Software\\Microsoft\\Windows\\CurrentVersion\\Explorer\\Shell Folders";
  ASSERT_EQ(::RegOpenKeyExW(HKEY_USERS, path.c_str(), 0, KEY_READ, &key), ERROR_SUCCESS);
  ::RegCloseKey(key);
  EXPECT_EQ(DesktopLocalAppData(0, OwnSid()), LocalAppDataFolder());
}

// Wine has only one user, so the program's own user is fake.
TEST(DesktopUserEdge, FindsAnotherUserByHisId) {
  const DWORD shell = ::GetCurrentProcessId();
  const auto folderOf = [shell](const std::wstring& sid) {
    return DesktopLocalAppData(shell, sid);
  };
  EXPECT_FALSE(FindOtherDesktopUser(OwnSid(), DesktopSid(shell), folderOf).has_value());
  const auto user = FindOtherDesktopUser(L"S-1-5-21-0-0-0-500", DesktopSid(shell), folderOf);
  ASSERT_TRUE(user.has_value());
  EXPECT_EQ(user->sid, SidByName());
  EXPECT_EQ(user->localAppData, LocalAppDataFolder());
}

TEST(DesktopUserEdge, IsTheProgramsOwnUserHere) {
  EXPECT_FALSE(OtherDesktopUser().has_value());
}

}  // namespace
}  // namespace platform
