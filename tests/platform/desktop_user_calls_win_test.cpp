// Every Windows call about the desktop's user, with its arguments and its failure.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "platform/desktop_user.h"
#include "text/utf8.h"
#include "win32/calls.h"
// Needs windows.h first.
#include <knownfolders.h>

namespace platform {
namespace {

using namespace win32;

constexpr DWORD kShell = 4711;
constexpr wchar_t kSid[] = L"S-1-5-21-1-2-3";
constexpr wchar_t kSessionSid[] = L"S-1-5-21-4-5-6";
constexpr wchar_t kFolder[] = L"C:\\Users\\li";
constexpr wchar_t kFolderInRegistry[] = L"D:\\li";
constexpr wchar_t kFoldersKey[] =
    L"S-1-5-21-1-2-3\\Software\\Microsoft\\Windows\\CurrentVersion\\Explorer\\Shell Folders";
// The structure and the id share one buffer of the caller.
constexpr DWORD kTokenUserBytes = sizeof(TOKEN_USER) + SECURITY_MAX_SID_SIZE;

// The id in its binary form.
BYTE binarySid[] = {1, 4, 0, 0, 0, 0, 0, 5, 21, 0, 0, 0, 1, 0, 0, 0, 2, 0, 0, 0, 3, 0, 0, 0};
BYTE binarySessionSid[] = {1, 4, 0, 0, 0, 0, 0, 5, 21, 0, 0, 0, 4, 0, 0, 0, 5, 0, 0, 0, 6, 0, 0, 0};

wchar_t* LocalCopy(const std::wstring& text) {
  const std::size_t sizeBytes = (text.size() + 1) * sizeof(wchar_t);
  return static_cast<wchar_t*>(
      std::memcpy(::LocalAlloc(LMEM_FIXED, sizeBytes), text.c_str(), sizeBytes));
}

wchar_t* TaskCopy(const std::wstring& text) {
  const std::size_t sizeBytes = (text.size() + 1) * sizeof(wchar_t);
  return static_cast<wchar_t*>(std::memcpy(::CoTaskMemAlloc(sizeBytes), text.c_str(), sizeBytes));
}

// A shell with an accessible process, token and folder.
void AnswerToken(Calls& calls) {
  calls.AnswerWith<Api::OpenProcess>(
      [](DWORD, BOOL, DWORD) { return ::CreateMutexW(nullptr, FALSE, nullptr); });
  calls.AnswerWith<Api::OpenProcessToken>([](HANDLE, DWORD, HANDLE* token) {
    *token = ::CreateMutexW(nullptr, FALSE, nullptr);
    return TRUE;
  });
  calls.AnswerWith<Api::GetTokenInformation>(
      [](HANDLE, TOKEN_INFORMATION_CLASS, void* buffer, DWORD sizeBytes, DWORD* neededBytes) {
        *neededBytes = kTokenUserBytes;
        if (sizeBytes < kTokenUserBytes) return FALSE;
        static_cast<TOKEN_USER*>(buffer)->User.Sid = binarySid;
        return TRUE;
      });
  calls.AnswerWith<Api::SHGetKnownFolderPath>(
      [](const GUID&, DWORD, HANDLE, wchar_t** path) -> HRESULT {
        *path = TaskCopy(kFolder);
        return S_OK;
      });
}

// A session and an account of the user, with his folder in the registry.
void AnswerSession(Calls& calls, SID_NAME_USE use) {
  calls.AnswerWith<Api::WTSQuerySessionInformationW>(
      [](HANDLE, DWORD, WTS_INFO_CLASS what, wchar_t** text, DWORD* sizeBytes) {
        *text = LocalCopy(what == WTSUserName ? L"li" : L"PLANT");
        *sizeBytes = 0;
        return TRUE;
      });
  calls.AnswerWith<Api::WTSFreeMemory>([](void* memory) { Real<Api::LocalFree>()(memory); });
  calls.AnswerWith<Api::LookupAccountNameW>([use](const wchar_t*, const wchar_t*, void* sid,
                                                  DWORD* sidBytes, wchar_t*, DWORD*,
                                                  SID_NAME_USE* toldUse) {
    std::memcpy(sid, binarySessionSid, sizeof(binarySessionSid));
    *sidBytes = sizeof(binarySessionSid);
    *toldUse = use;
    return TRUE;
  });
  calls.AnswerWith<Api::RegGetValueW>(
      [](HKEY, const wchar_t*, const wchar_t*, DWORD, DWORD*, void* value, DWORD* sizeBytes) {
        std::memcpy(value, kFolderInRegistry, sizeof(kFolderInRegistry));
        *sizeBytes = sizeof(kFolderInRegistry);
        return LSTATUS{ERROR_SUCCESS};
      });
}

void AnswerAll(Calls& calls) {
  AnswerToken(calls);
  AnswerSession(calls, SidTypeUser);
}

class DesktopUserCalls : public testing::Test {
 protected:
  DesktopUserCalls() { AnswerAll(calls_); }

  Calls calls_;
};

template <typename Process>
std::string SaidToken(const Process& process, DWORD access) {
  return Said<Api::OpenProcessToken>(process, access, Some{});
}

std::string SaidSize(int token) {
  return Said<Api::GetTokenInformation>(Handle{token}, TokenUser, nullptr, 0, Ref{0});
}

std::string SaidUser(int token) {
  return Said<Api::GetTokenInformation>(Handle{token}, TokenUser, Some{}, kTokenUserBytes,
                                        Ref{kTokenUserBytes});
}

std::string SaidOpenShell() {
  return Said<Api::OpenProcess>(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, kShell);
}

TEST_F(DesktopUserCalls, TakeTheOwnUserFromTheOwnToken) {
  EXPECT_EQ(OwnSid(), kSid);
  EXPECT_TRUE(calls_.Were({
      Said<Api::GetCurrentProcess>(),
      SaidToken(Text{"-1"}, TOKEN_QUERY),
      SaidSize(1),
      SaidUser(1),
      Said<Api::ConvertSidToStringSidW>(Some{}, Some{}),
      Said<Api::LocalFree>(Handle{2}),
      Said<Api::CloseHandle>(Handle{1}),
  }));
  EXPECT_EQ(calls_.Unbalanced(), "");
}

TEST_F(DesktopUserCalls, TakeTheDesktopsUserFromTheShellsToken) {
  EXPECT_EQ(DesktopSid(kShell), kSid);
  EXPECT_TRUE(calls_.Were({
      SaidOpenShell(),
      SaidToken(Handle{1}, TOKEN_QUERY),
      Said<Api::CloseHandle>(Handle{1}),
      SaidSize(2),
      SaidUser(2),
      Said<Api::ConvertSidToStringSidW>(Some{}, Some{}),
      Said<Api::LocalFree>(Handle{3}),
      Said<Api::CloseHandle>(Handle{2}),
  }));
  EXPECT_EQ(calls_.Unbalanced(), "");
}

// Without a shell, the session and the accounts identify the user.
TEST_F(DesktopUserCalls, TakeTheDesktopsUserFromTheSession) {
  EXPECT_EQ(DesktopSid(0), kSessionSid);
  const auto saidText = [](WTS_INFO_CLASS what) {
    return Said<Api::WTSQuerySessionInformationW>(nullptr, WTS_CURRENT_SESSION, what, Some{},
                                                  Ref{0});
  };
  EXPECT_TRUE(calls_.Were({
      saidText(WTSUserName),
      Said<Api::WTSFreeMemory>(Handle{1}),
      saidText(WTSDomainName),
      Said<Api::WTSFreeMemory>(Handle{2}),
      Said<Api::LookupAccountNameW>(nullptr, L"PLANT\\li", Some{}, Ref{SECURITY_MAX_SID_SIZE}, L"",
                                    Ref{MAX_PATH}, Some{}),
      Said<Api::ConvertSidToStringSidW>(Some{}, Some{}),
      Said<Api::LocalFree>(Handle{3}),
  }));
  EXPECT_EQ(calls_.Unbalanced(), "");
}

TEST_F(DesktopUserCalls, TakeHisFolderByTheShellsToken) {
  EXPECT_EQ(DesktopLocalAppData(kShell, kSid), kFolder);
  EXPECT_TRUE(calls_.Were({
      SaidOpenShell(),
      SaidToken(Handle{1}, TOKEN_QUERY | TOKEN_IMPERSONATE),
      Said<Api::CloseHandle>(Handle{1}),
      Said<Api::SHGetKnownFolderPath>(FOLDERID_LocalAppData, 0, Handle{2}, Some{}),
      Said<Api::CoTaskMemFree>(Handle{3}),
      Said<Api::CloseHandle>(Handle{2}),
  }));
  EXPECT_EQ(calls_.Unbalanced(), "");
}

TEST_F(DesktopUserCalls, TakeHisFolderFromHisRegistry) {
  EXPECT_EQ(DesktopLocalAppData(0, kSid), kFolderInRegistry);
  EXPECT_TRUE(
      calls_.Were({Said<Api::RegGetValueW>(HKEY_USERS, kFoldersKey, L"Local AppData", RRF_RT_REG_SZ,
                                           nullptr, Some{}, Ref{MAX_PATH * sizeof(wchar_t)})}));
}

TEST_F(DesktopUserCalls, FindNoUserForAnotherKindOfAccount) {
  AnswerSession(calls_, SidTypeGroup);
  EXPECT_EQ(DesktopSid(0), L"");
}

// Whatever fails, every kernel handle must be closed.
TEST(DesktopUserFailures, LeaveTheOwnUserUnknown) {
  EXPECT_EQ(EachFailure([] { return text::ToUtf8(OwnSid()); }, ERROR_ACCESS_DENIED, AnswerToken),
            "all well: S-1-5-21-1-2-3\n"
            "OpenProcessToken: \n"
            "GetTokenInformation: \n"
            "GetTokenInformation: \n"
            "ConvertSidToStringSidW: \n"
            "CloseHandle: S-1-5-21-1-2-3\n");
}

TEST(DesktopUserFailures, FallBackFromTheShellToTheSession) {
  const auto find = [] { return text::ToUtf8(DesktopSid(kShell)); };
  EXPECT_EQ(EachFailure(find, ERROR_ACCESS_DENIED, AnswerAll),
            "all well: S-1-5-21-1-2-3\n"
            "OpenProcess: S-1-5-21-4-5-6\n"
            "OpenProcessToken: S-1-5-21-4-5-6\n"
            "CloseHandle: S-1-5-21-1-2-3\n"
            "GetTokenInformation: S-1-5-21-4-5-6\n"
            "GetTokenInformation: S-1-5-21-4-5-6\n"
            "ConvertSidToStringSidW: S-1-5-21-4-5-6\n"
            "CloseHandle: S-1-5-21-1-2-3\n");
}

TEST(DesktopUserFailures, LeaveTheSessionsUserUnknown) {
  EXPECT_EQ(EachFailure([] { return text::ToUtf8(DesktopSid(0)); }, ERROR_ACCESS_DENIED, AnswerAll),
            "all well: S-1-5-21-4-5-6\n"
            "WTSQuerySessionInformationW: \n"
            "WTSQuerySessionInformationW: S-1-5-21-4-5-6\n"
            "LookupAccountNameW: \n"
            "ConvertSidToStringSidW: \n");
}

TEST(DesktopUserFailures, FallBackFromTheTokenToTheRegistry) {
  const auto find = [] { return text::ToUtf8(DesktopLocalAppData(kShell, kSid)); };
  EXPECT_EQ(EachFailure(find, ERROR_ACCESS_DENIED, AnswerAll),
            "all well: C:\\Users\\li\n"
            "OpenProcess: D:\\li\n"
            "OpenProcessToken: D:\\li\n"
            "CloseHandle: C:\\Users\\li\n"
            "SHGetKnownFolderPath: D:\\li\n"
            "CloseHandle: C:\\Users\\li\n");
}

TEST(DesktopUserFailures, LeaveHisFolderUnknown) {
  const auto find = [] { return text::ToUtf8(DesktopLocalAppData(0, kSid)); };
  EXPECT_EQ(EachFailure(find, ERROR_ACCESS_DENIED, AnswerAll),
            "all well: D:\\li\nRegGetValueW: \n");
}

TEST(DesktopUserShell, IsTheProcessOfTheShellsWindow) {
  Calls calls;
  const HWND window = reinterpret_cast<HWND>(std::uintptr_t{0x101});
  calls.AnswerWith<Api::GetShellWindow>([window] { return window; });
  calls.AnswerWith<Api::GetWindowThreadProcessId>([](HWND, DWORD* process) -> DWORD {
    *process = kShell;
    return 1;
  });
  EXPECT_EQ(ShellProcess(), kShell);
  EXPECT_TRUE(calls.Were(
      {Said<Api::GetShellWindow>(), Said<Api::GetWindowThreadProcessId>(Handle{1}, Ref{0})}));
  calls.Fail(Api::GetWindowThreadProcessId, ERROR_INVALID_WINDOW_HANDLE);
  EXPECT_EQ(ShellProcess(), 0u);
  calls.Fail(Api::GetShellWindow, 0);
  EXPECT_EQ(ShellProcess(), 0u);
  EXPECT_EQ(calls.Count(Api::GetWindowThreadProcessId), 2) << "nobody's window is not asked about";
}

}  // namespace
}  // namespace platform
