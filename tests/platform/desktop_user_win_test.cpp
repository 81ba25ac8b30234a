#include <gtest/gtest.h>

#include <lmcons.h>

#include "platform/desktop_user.h"
#include "platform/path.h"
#include "platform/windows_sdk.h"
// After the SDK, which it needs.
#include <sddl.h>

namespace platform {
namespace {

// The id that the system's accounts give for the name of the user who runs this.
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

TEST(DesktopUserEdge, TellsTheUserOfAProcessAndHisFolder) {
  const DesktopUserPorts ports = RealDesktopUserPorts(::GetCurrentProcessId());
  EXPECT_EQ(ports.ownSid(), SidByName());
  EXPECT_EQ(ports.desktopSid(), ports.ownSid()) << "by its token";
  EXPECT_EQ(ports.localAppData(ports.ownSid()), LocalAppDataFolder()) << "by its token";
}

TEST(DesktopUserEdge, AsksTheSessionAndTheRegistryWithoutAShell) {
  const DesktopUserPorts ports = RealDesktopUserPorts(0);
  const std::wstring sid = ports.desktopSid();
  EXPECT_TRUE(sid.empty() || sid == ports.ownSid()) << "the session is this user's";
  EXPECT_EQ(ports.localAppData(L"S-1-5-21-0-0-0-12345"), L"");
  HKEY key = nullptr;
  const std::wstring path =
      ports.ownSid() + L"\\Software\\Microsoft\\Windows\\CurrentVersion\\Explorer\\Shell Folders";
  ASSERT_EQ(::RegOpenKeyExW(HKEY_USERS, path.c_str(), 0, KEY_READ, &key), ERROR_SUCCESS);
  ::RegCloseKey(key);
  EXPECT_EQ(ports.localAppData(ports.ownSid()), LocalAppDataFolder());
}

// Another user, as the program would find him: through functions handed in, for there is only one
// user here.
TEST(DesktopUserEdge, FindsAnotherUserByHisId) {
  DesktopUserPorts ports = RealDesktopUserPorts(::GetCurrentProcessId());
  EXPECT_FALSE(FindOtherDesktopUser(ports).has_value());
  ports.ownSid = [] { return std::wstring(L"S-1-5-21-0-0-0-500"); };
  const auto user = FindOtherDesktopUser(ports);
  ASSERT_TRUE(user.has_value());
  EXPECT_EQ(user->sid, SidByName());
  EXPECT_EQ(user->localAppData, LocalAppDataFolder());
}

TEST(DesktopUserEdge, IsTheProgramsOwnUserHere) {
  EXPECT_FALSE(OtherDesktopUser().has_value());
}

}  // namespace
}  // namespace platform
