// The calls of an update: their arguments, and the effect of a failure.
#include <gtest/gtest.h>

#include "platform/handles_win.h"
#include "platform/path.h"
#include "update/update_deps.h"
#include "win32/calls.h"

namespace update {
namespace {

using namespace win32;

constexpr char kShown[] = "{104 flags 0 show 0}";
constexpr char kHidden[] = "{104 flags 1 show 0}";  // STARTF_USESHOWWINDOW, SW_HIDE

std::string SaidCreateProcess(const wchar_t* commandLine, DWORD flags, const char* startup) {
  return Said<Api::CreateProcessW>(nullptr, commandLine, nullptr, nullptr, FALSE, flags, nullptr,
                                   nullptr, Text{startup}, Some{});
}

// A disk and processes for which every call succeeds and does nothing.
void SimulateSystem(Calls& calls) {
  calls.AnswerWith<Api::DeleteFileW>([](const wchar_t*) { return TRUE; });
  calls.AnswerWith<Api::MoveFileExW>([](const wchar_t*, const wchar_t*, DWORD) { return TRUE; });
  calls.AnswerWith<Api::CreateProcessW>([](const wchar_t*, wchar_t*, SECURITY_ATTRIBUTES*,
                                           SECURITY_ATTRIBUTES*, BOOL, DWORD, void*, const wchar_t*,
                                           STARTUPINFOW*, PROCESS_INFORMATION* started) {
    started->hProcess = ::CreateMutexW(nullptr, FALSE, nullptr);
    started->hThread = ::CreateMutexW(nullptr, FALSE, nullptr);
    return TRUE;
  });
  calls.AnswerWith<Api::OpenProcess>(
      [](DWORD, BOOL, DWORD) { return ::CreateMutexW(nullptr, FALSE, nullptr); });
}

TEST(UpdateDepsCalls, KnowTheProgramItsProcessAndTheDownload) {
  Calls calls;
  const RealUpdateDeps deps({L"1.0"});
  EXPECT_EQ(deps.processId, Real<Api::GetCurrentProcessId>()());
  EXPECT_TRUE(deps.programPath.ends_with(L"\\update_test.exe"));
  EXPECT_TRUE(deps.downloadTarget.ends_with(L"\\Velmarine.Client.update.exe"));
  EXPECT_EQ(deps.currentVersion, L"1.0");
  EXPECT_TRUE(calls.Were({Said<Api::GetModuleFileNameW>(nullptr, L"", 260),
                          Said<Api::GetCurrentProcessId>(), Said<Api::GetTempPathW>(260, L"")}));
}

TEST(UpdateDepsCalls, HaveNoDownloadAndNoLogWithoutATemporaryFolder) {
  Calls calls;
  calls.Fail(Api::GetTempPathW, 1450, 0);
  EXPECT_EQ(RealUpdateDeps({L"1.0"}).downloadTarget, L"");
  WriteUpdateLog(L"lost");
  EXPECT_EQ(calls.Count(Api::CreateFileW), 0);
}

TEST(UpdateDepsCalls, StartTheUpdaterHidden) {
  Calls calls;
  SimulateSystem(calls);
  RealUpdateDeps deps({});
  EXPECT_TRUE(deps.StartHidden(L"\"b\" x").succeeded);
  calls.Fail(Api::CreateProcessW, 1450);
  EXPECT_FALSE(deps.StartHidden(L"\"b\" x").succeeded);
  const std::string start = SaidCreateProcess(L"\"b\" x", CREATE_NO_WINDOW, kHidden);
  EXPECT_TRUE(calls.WereAmong({Api::CreateProcessW}, {start, start}));
}

TEST(UpdateDepsCalls, SwapTheFilesAndStartTheNewProgram) {
  Calls calls;
  SimulateSystem(calls);
  RealUpdateDeps deps({});
  deps.WaitForEnd(4711, std::chrono::milliseconds(60000));
  deps.Remove(L"bak");
  EXPECT_TRUE(deps.MoveOver(L"dst", L"bak").succeeded);
  EXPECT_TRUE(deps.Start(L"\"dst\"").succeeded);
  constexpr DWORD kMoveFlags = MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH;
  EXPECT_TRUE(calls.WereAmong({Api::OpenProcess, Api::WaitForSingleObject, Api::DeleteFileW,
                               Api::MoveFileExW, Api::CreateProcessW},
                              {
                                  Said<Api::OpenProcess>(SYNCHRONIZE, FALSE, 4711),
                                  Said<Api::WaitForSingleObject>(Handle{1}, 60000),
                                  Said<Api::DeleteFileW>(L"bak"),
                                  Said<Api::MoveFileExW>(L"dst", L"bak", kMoveFlags),
                                  SaidCreateProcess(L"\"dst\"", 0, kShown),
                              }));
}

TEST(UpdateDepsCalls, PauseForTheGivenTime) {
  RealUpdateDeps deps({});
  const auto before = std::chrono::steady_clock::now();
  deps.Pause(std::chrono::milliseconds(60));
  EXPECT_GE(std::chrono::steady_clock::now() - before, std::chrono::milliseconds(59));
}

// The call does not return: its thread ends inside it.
DWORD WINAPI EndProcess(void*) {
  RealUpdateDeps({L"1.0"}).EndProcess();
  return 1;
}

TEST(UpdateDepsCalls, EndTheProgramWithCodeZero) {
  Calls calls(Calls::Threads::All);
  calls.AnswerWith<Api::TerminateProcess>([](HANDLE, UINT) -> BOOL {
    ::ExitThread(0);
    return FALSE;
  });
  const platform::ThreadHandle thread(::CreateThread(nullptr, 0, EndProcess, nullptr, 0, nullptr));
  Real<Api::WaitForSingleObject>()(thread.Get(), 30000);
  EXPECT_TRUE(calls.WereAmong({Api::TerminateProcess}, {"TerminateProcess(-1, 0)"}));
}

TEST(UpdateDepsCalls, WriteALineToTheLog) {
  const std::wstring path = platform::TemporaryFolder() + kUpdateLogName;
  Calls calls;
  calls.AnswerWith<Api::GetLocalTime>(
      [](SYSTEMTIME* time) { *time = {2026, 3, 6, 15, 9, 41, 2, 0}; });
  calls.AnswerWith<Api::CreateFileW>(
      [](const wchar_t*, DWORD, DWORD, SECURITY_ATTRIBUTES*, DWORD, DWORD, HANDLE) {
        HANDLE made = ::CreateMutexW(nullptr, FALSE, nullptr);
        ::SetLastError(0);  // as for a new file
        return made;
      });
  calls.AnswerWith<Api::WriteFile>(
      [](HANDLE, const void*, DWORD, DWORD*, OVERLAPPED*) { return TRUE; });
  calls.AnswerWith<Api::GetFileInformationByHandle>([](HANDLE, BY_HANDLE_FILE_INFORMATION* info) {
    *info = {};
    info->nNumberOfLinks = 1;
    return TRUE;
  });
  calls.Fail(Api::GetFinalPathNameByHandleW, ERROR_INVALID_FUNCTION, 0);
  WriteUpdateLog(L"x");
  const std::string line = "[2026-03-15 09:41:02] x\r\n";
  EXPECT_TRUE(calls.WereAmong(
      {Api::WriteFile}, {
                            Said<Api::WriteFile>(Handle{1}, "\xEF\xBB\xBF", 3, Ref{0}, nullptr),
                            Said<Api::WriteFile>(Handle{1}, line, line.size(), Ref{0}, nullptr),
                        }));
  EXPECT_TRUE(calls.Had(Said<Api::CreateFileW>(
      path, FILE_APPEND_DATA | FILE_READ_ATTRIBUTES, FILE_SHARE_READ, nullptr, OPEN_ALWAYS,
      FILE_ATTRIBUTE_NORMAL | FILE_FLAG_OPEN_REPARSE_POINT, nullptr)));
  EXPECT_EQ(calls.Unbalanced(), "");
}

}  // namespace
}  // namespace update
