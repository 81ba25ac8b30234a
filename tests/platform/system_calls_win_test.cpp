// Every Windows call of platform outside files and sockets, with its arguments and its failure.
#include <gtest/gtest.h>

#include "platform/computer.h"
#include "platform/handles_win.h"
#include "platform/modules_win.h"
#include "platform/path.h"
#include "platform/process_win.h"
#include "platform/system_error.h"
#include "platform/url.h"
#include "text/utf8.h"
#include "win32/calls.h"
// Needs windows.h first.
#include <knownfolders.h>

namespace platform {
namespace {

using namespace win32;
using std::chrono::milliseconds;

// ---- processes

// Fakes the start of a process; each of its handles is an event.
void FakeProcessStart(Calls& calls) {
  calls.AnswerWith<Api::CreateProcessW>([](const wchar_t*, wchar_t*, SECURITY_ATTRIBUTES*,
                                           SECURITY_ATTRIBUTES*, BOOL, DWORD, void*, const wchar_t*,
                                           STARTUPINFOW*, PROCESS_INFORMATION* started) {
    started->hProcess = Real<Api::CreateEventW>()(nullptr, TRUE, TRUE, nullptr);
    started->hThread = Real<Api::CreateEventW>()(nullptr, TRUE, TRUE, nullptr);
    return TRUE;
  });
}

// The child inherits no handles.
std::string SaidCreateProcess(const wchar_t* commandLine, DWORD flags, const std::string& startup) {
  return Said<Api::CreateProcessW>(nullptr, commandLine, nullptr, nullptr, FALSE, flags, nullptr,
                                   nullptr, Text{startup}, Some{});
}

const std::string kHidden = "{104 flags 1 show 0}";  // STARTF_USESHOWWINDOW, SW_HIDE
const std::string kShown = "{104 flags 0 show 0}";

TEST(ProcessCalls, RunACommandHiddenAndWaitForIt) {
  Calls calls;
  FakeProcessStart(calls);
  EXPECT_TRUE(RunHidden(L"sc.exe stop x", milliseconds(3000)));
  EXPECT_TRUE(calls.Were({
      SaidCreateProcess(L"sc.exe stop x", CREATE_NO_WINDOW, kHidden),
      Said<Api::WaitForSingleObject>(Handle{1}, 3000),
      Said<Api::CloseHandle>(Handle{2}),
      Said<Api::CloseHandle>(Handle{1}),
  }));
  EXPECT_EQ(calls.Unbalanced(), "");
}

TEST(ProcessCalls, StartAProgramShownOrHidden) {
  const struct {
    SystemResult (*start)(const std::wstring& commandLine);
    std::string said;
  } rows[] = {{StartProgram, SaidCreateProcess(L"a b", 0, kShown)},
              {StartHiddenProgram, SaidCreateProcess(L"a b", CREATE_NO_WINDOW, kHidden)}};
  for (const auto& row : rows) {
    Calls calls;
    FakeProcessStart(calls);
    EXPECT_TRUE(row.start(L"a b").succeeded);
    EXPECT_TRUE(calls.Were(
        {row.said, Said<Api::CloseHandle>(Handle{2}), Said<Api::CloseHandle>(Handle{1})}));
  }
}

TEST(ProcessCalls, ReportWhyNothingWasStarted) {
  for (const auto start : {StartProgram, StartHiddenProgram}) {
    Calls calls;
    calls.Fail(Api::CreateProcessW, 1450);
    const SystemResult result = start(L"a b");
    EXPECT_FALSE(result.succeeded);
    EXPECT_EQ(result.errorCode, 1450u);
    EXPECT_TRUE(
        calls.WereAmong({Api::GetLastError, Api::CloseHandle}, {Said<Api::GetLastError>()}));
  }
  Calls calls;
  calls.Fail(Api::CreateProcessW, 1450);
  EXPECT_FALSE(RunHidden(L"a", milliseconds(1)));
  EXPECT_EQ(calls.Count(Api::WaitForSingleObject), 0);
}

TEST(ProcessCalls, TreatACommandThatCannotBeAwaitedAsRun) {
  EXPECT_EQ(EachFailure([] {
              return std::string(RunHidden(L"cmd.exe /c exit", milliseconds(30000)) ? "run" : "no");
            }),
            "all well: run\nCreateProcessW: no\nWaitForSingleObject: run\nCloseHandle: run\n"
            "CloseHandle: run\n");
}

TEST(ProcessCalls, WaitForTheEndOfAnotherProcess) {
  const DWORD self = ::GetCurrentProcessId();
  {
    Calls calls;
    calls.AnswerWith<Api::WaitForSingleObject>([](HANDLE, DWORD) { return DWORD{WAIT_TIMEOUT}; });
    WaitForProcessEnd(self, milliseconds(60000));
    EXPECT_TRUE(calls.Were({
        Said<Api::OpenProcess>(SYNCHRONIZE, FALSE, self),
        Said<Api::WaitForSingleObject>(Handle{1}, 60000),
        Said<Api::CloseHandle>(Handle{1}),
    }));
  }
  EXPECT_EQ(EachFailure([self] {
              WaitForProcessEnd(self, milliseconds(0));
              return "back";
            }),
            "all well: back\nOpenProcess: back\nWaitForSingleObject: back\nCloseHandle: back\n");
  Calls calls;
  calls.Fail(Api::OpenProcess, 5);
  WaitForProcessEnd(self, milliseconds(60000));
  EXPECT_TRUE(calls.Were({Said<Api::OpenProcess>(SYNCHRONIZE, FALSE, self)}));
}

// The call must not return, so the fake ends the calling thread.
DWORD WINAPI EndWithSeven(void*) {
  EndProcessAtOnce(7);
}

TEST(ProcessCalls, EndThisProcess) {
  Calls calls(Calls::Threads::All);
  calls.AnswerWith<Api::TerminateProcess>([](HANDLE, UINT) -> BOOL {
    ::ExitThread(0);
    return FALSE;
  });
  const ThreadHandle thread(::CreateThread(nullptr, 0, EndWithSeven, nullptr, 0, nullptr));
  Real<Api::WaitForSingleObject>()(thread.Get(), 30000);
  EXPECT_TRUE(calls.WereAmong({Api::GetCurrentProcess, Api::TerminateProcess},
                              {Said<Api::GetCurrentProcess>(), "TerminateProcess(-1, 7)"}));
}

TEST(ProcessCalls, SuppressSystemBoxesThatAskForADisk) {
  Calls calls;
  calls.AnswerWith<Api::SetErrorMode>([](UINT) { return UINT{0}; });
  RefuseSystemErrorBoxes();
  EXPECT_TRUE(
      calls.Were({Said<Api::SetErrorMode>(SEM_FAILCRITICALERRORS | SEM_NOOPENFILEERRORBOX)}));
}

// ---- the machine

// IsWow64Process2 on various computers, where this program runs natively or under emulation.
template <USHORT native, BOOL result>
BOOL WINAPI TellMachine(HANDLE process, USHORT* processMachine, USHORT* nativeMachine) {
  EXPECT_EQ(process, Real<Api::GetCurrentProcess>()());
  *processMachine = IMAGE_FILE_MACHINE_UNKNOWN;
  *nativeMachine = native;
  return result;
}

TEST(MachineCalls, RecogniseArm64ByTheNativeMachine) {
  constexpr USHORT kArm64 = 0xAA64;
  constexpr USHORT kX64 = 0x8664;
  using Tell = BOOL(WINAPI*)(HANDLE, USHORT*, USHORT*);
  const struct {
    const char* name;
    Tell tell;
    bool isArm64;
  } rows[] = {{"ARM64", TellMachine<kArm64, TRUE>, true},
              {"x64", TellMachine<kX64, TRUE>, false},
              {"refused", TellMachine<kArm64, FALSE>, false},
              {"the first Windows 10", nullptr, false}};
  for (const auto& row : rows) {
    Calls calls;
    calls.AnswerWith<Api::GetProcAddress>([&row](HMODULE, const char*) {
      return reinterpret_cast<FARPROC>(reinterpret_cast<void*>(row.tell));
    });
    EXPECT_EQ(IsArm64Windows(), row.isArm64) << row.name;
    std::vector<std::string> expected = {Said<Api::GetModuleHandleW>(L"kernel32.dll"),
                                         Said<Api::GetProcAddress>(Handle{1}, "IsWow64Process2")};
    if (row.tell != nullptr) expected.push_back(Said<Api::GetCurrentProcess>());
    EXPECT_TRUE(calls.Were(expected)) << row.name;
  }
}

// ---- error texts

constexpr DWORD kFormat = FORMAT_MESSAGE_IGNORE_INSERTS | FORMAT_MESSAGE_ALLOCATE_BUFFER;
constexpr DWORD kUsersLanguage = 0x0400;

TEST(ErrorTextCalls, AskTheSystem) {
  Calls calls;
  EXPECT_NE(SystemErrorText(5), L"");
  EXPECT_TRUE(calls.Were({
      Said<Api::GetModuleHandleW>(L"winhttp.dll"),
      Said<Api::FormatMessageW>(kFormat | FORMAT_MESSAGE_FROM_SYSTEM, nullptr, 5, kUsersLanguage,
                                L"", 0, nullptr),
      Said<Api::LocalFree>(Handle{2}),
  }));
}

TEST(ErrorTextCalls, AskWinHttpForItsOwnCodesAndThenTheSystem) {
  for (const DWORD code : {11999u, 12000u, 12199u, 12200u}) {
    Calls calls;
    calls.Fail(Api::FormatMessageW, 317, 0);
    EXPECT_EQ(SystemErrorText(code), L"");
    std::vector<std::string> expected = {Said<Api::GetModuleHandleW>(L"winhttp.dll")};
    if (code == 12000 || code == 12199) {
      expected.push_back(Said<Api::FormatMessageW>(kFormat | FORMAT_MESSAGE_FROM_HMODULE, Handle{1},
                                                   code, kUsersLanguage, L"", 0, nullptr));
    }
    expected.push_back(Said<Api::FormatMessageW>(kFormat | FORMAT_MESSAGE_FROM_SYSTEM, nullptr,
                                                 code, kUsersLanguage, L"", 0, nullptr));
    EXPECT_TRUE(calls.Were(expected));
  }
}

TEST(ErrorTextCalls, NameTheNumberWhereTheSystemGivesNoText) {
  const std::string text = text::ToUtf8(ErrorReason(5));
  EXPECT_EQ(EachFailure([] { return text::ToUtf8(ErrorReason(5)); }),
            "all well: " + text + "\nGetModuleHandleW: " + text + "\nFormatMessageW: 错误 5\n");
}

// ---- folders

TEST(FolderCalls, AskForTheUsersAndTheComputersFolders) {
  const struct {
    std::wstring (*folder)();
    const KNOWNFOLDERID& id;
  } rows[] = {{RoamingAppDataFolder, FOLDERID_RoamingAppData},
              {LocalAppDataFolder, FOLDERID_LocalAppData},
              {ProgramFilesFolder, FOLDERID_ProgramFiles},
              {ProgramFilesX86Folder, FOLDERID_ProgramFilesX86}};
  for (const auto& row : rows) {
    {
      Calls calls;
      EXPECT_NE(row.folder(), L"");
      EXPECT_TRUE(
          calls.Were({Said<Api::SHGetKnownFolderPath>(row.id, KF_FLAG_DEFAULT, nullptr, Some{}),
                      Said<Api::CoTaskMemFree>(Handle{1})}));
    }
    Calls calls;
    calls.Fail(Api::SHGetKnownFolderPath, 1450);
    EXPECT_EQ(row.folder(), L"");
  }
}

TEST(FolderCalls, FreeAPathReturnedWithAFailure) {
  Calls calls;
  calls.AnswerWith<Api::SHGetKnownFolderPath>(
      [](const KNOWNFOLDERID&, DWORD, HANDLE, wchar_t** path) {
        *path = static_cast<wchar_t*>(::CoTaskMemAlloc(64));
        return E_FAIL;
      });
  EXPECT_EQ(RoamingAppDataFolder(), L"");
  EXPECT_EQ(calls.Count(Api::CoTaskMemFree), 1);
  EXPECT_EQ(calls.Unbalanced(), "");
}

TEST(FolderCalls, AskWithRoomFor259Characters) {
  Calls calls;
  WindowsFolder();
  TemporaryFolder();
  ProgramPath();
  EXPECT_TRUE(
      calls.Were({Said<Api::GetWindowsDirectoryW>(L"", 260), Said<Api::GetTempPathW>(260, L""),
                  Said<Api::GetModuleFileNameW>(nullptr, L"", 260)}));
}

// Returned lengths: a failure, a full buffer, and required lengths beyond the buffer.
TEST(FolderCalls, ReturnNoFolderThatDoesNotFit) {
  for (const DWORD told : {0u, 259u, 260u, 261u}) {
    Calls calls;
    calls.AnswerWith<Api::GetWindowsDirectoryW>([told](wchar_t*, UINT) { return told; });
    calls.AnswerWith<Api::GetTempPathW>([told](DWORD, wchar_t*) { return told; });
    calls.AnswerWith<Api::GetModuleFileNameW>([told](HMODULE, wchar_t*, DWORD) { return told; });
    const std::size_t expected = told == 259 ? 259 : 0;
    EXPECT_EQ(WindowsFolder().size(), expected) << told;
    EXPECT_EQ(TemporaryFolder().size(), expected) << told;
    EXPECT_EQ(ProgramPath().size(), expected) << told;
  }
}

// ---- the clock

TEST(ClockCalls, ReadTheUsersClock) {
  Calls calls;
  calls.AnswerWith<Api::GetLocalTime>(
      [](SYSTEMTIME* time) { *time = {2026, 3, 6, 15, 9, 41, 2, 999}; });
  const LocalTime now = LocalTimeNow();
  EXPECT_TRUE(calls.Were({Said<Api::GetLocalTime>(Some{})}));
  EXPECT_EQ((std::vector{now.year, now.month, now.day, now.hour, now.minute, now.second}),
            (std::vector{2026, 3, 15, 9, 41, 2}));
}

// ---- resources

TEST(ResourceCalls, FindTheBytesOrNothing) {
  static const char bytes[] = "resource";
  static int found = 0;
  static int loaded = 0;
  const auto find = [] {
    const auto span = FindResourceBytes(::GetModuleHandleW(nullptr), 201);
    return std::string(reinterpret_cast<const char*>(span.data()), span.size());
  };
  const auto standIn = [](Calls& calls) {
    calls.AnswerWith<Api::FindResourceW>(
        [](HMODULE, const wchar_t*, const wchar_t*) { return reinterpret_cast<HRSRC>(&found); });
    calls.AnswerWith<Api::LoadResource>(
        [](HMODULE, HRSRC) { return static_cast<HGLOBAL>(&loaded); });
    calls.AnswerWith<Api::LockResource>(
        [](HGLOBAL) { return static_cast<void*>(const_cast<char*>(bytes)); });
    calls.AnswerWith<Api::SizeofResource>([](HMODULE, HRSRC) { return DWORD{8}; });
  };
  {
    Calls calls;
    standIn(calls);
    EXPECT_EQ(find(), "resource");
    EXPECT_TRUE(calls.Were({
        Said<Api::GetModuleHandleW>(nullptr),
        "FindResourceW(h1, #201, #10)",  // RT_RCDATA
        Said<Api::LoadResource>(Handle{1}, Handle{2}),
        Said<Api::LockResource>(Handle{3}),
        Said<Api::SizeofResource>(Handle{1}, Handle{2}),
    }));
  }
  for (const Api api :
       {Api::FindResourceW, Api::LoadResource, Api::LockResource, Api::SizeofResource}) {
    Calls calls;
    standIn(calls);
    calls.Fail(api, 1450);
    EXPECT_EQ(find(), "") << Of(api).name;
  }
}

// ---- addresses

TEST(UrlCalls, AskForEveryPartWithinTheInput) {
  Calls calls;
  calls.AnswerWith<Api::WinHttpCrackUrl>(
      [](const wchar_t* url, DWORD length, DWORD flags, URL_COMPONENTS* parts) {
        EXPECT_EQ(parts->dwStructSize, sizeof(*parts));
        for (const DWORD asked :
             {parts->dwSchemeLength, parts->dwHostNameLength, parts->dwUserNameLength,
              parts->dwPasswordLength, parts->dwUrlPathLength, parts->dwExtraInfoLength}) {
          EXPECT_EQ(asked, ~DWORD{0});
        }
        return Real<Api::WinHttpCrackUrl>()(url, length, flags, parts);
      });
  UrlParts parts;
  EXPECT_TRUE(CrackUrl(L"http://a:81/b?c", parts));
  EXPECT_EQ(parts.path, L"/b?c");
  EXPECT_TRUE(calls.Were({Said<Api::WinHttpCrackUrl>(L"http://a:81/b?c", 15, 0, Some{})}));
}

TEST(UrlCalls, LeaveTheReasonInTheLastError) {
  Calls calls;
  calls.Fail(Api::WinHttpCrackUrl, 1450);
  UrlParts parts;
  EXPECT_FALSE(CrackUrl(L"http://a", parts));
  EXPECT_EQ(::GetLastError(), 1450u);
  EXPECT_FALSE(CrackUrl(L"", parts));
  EXPECT_EQ(::GetLastError(), DWORD{ERROR_WINHTTP_INVALID_URL});
  EXPECT_TRUE(
      calls.WereAmong({Api::SetLastError}, {Said<Api::SetLastError>(ERROR_WINHTTP_INVALID_URL)}));
}

// ---- handles

TEST(HandleCalls, CloseEachKindByItsOwnFunction) {
  HKEY key = nullptr;
  Calls calls;
  ASSERT_EQ(::RegOpenKeyExW(HKEY_CURRENT_USER, L"Software", 0, KEY_READ, &key), ERROR_SUCCESS);
  { const RegistryKey owner(key); }
  { const Module owner(::LoadLibraryW(L"version.dll")); }
  { const HttpHandle owner(::WinHttpOpen(L"t", 1, nullptr, nullptr, 0)); }
  EXPECT_TRUE(calls.WereAmong({Api::RegCloseKey, Api::FreeLibrary, Api::WinHttpCloseHandle},
                              {Said<Api::RegCloseKey>(Handle{1}), Said<Api::FreeLibrary>(Handle{2}),
                               Said<Api::WinHttpCloseHandle>(Handle{3})}));
  EXPECT_EQ(calls.Unbalanced(), "");
}

TEST(HandleCalls, FindAnExport) {
  const HMODULE kernel = ::GetModuleHandleW(L"kernel32.dll");
  Calls calls;
  calls.Fail(Api::GetProcAddress, 127, 2);
  using CurrentProcessId = DWORD(WINAPI*)();
  EXPECT_NE(GetProcAddressAs<CurrentProcessId>(kernel, "GetCurrentProcessId"), nullptr);
  EXPECT_EQ(GetProcAddressAs<CurrentProcessId>(kernel, "GetCurrentProcessId"), nullptr);
  const std::string said = Said<Api::GetProcAddress>(Some{}, "GetCurrentProcessId");
  EXPECT_TRUE(calls.Were({said, said}));
}

}  // namespace
}  // namespace platform
