#include "platform/process_win.h"

#include <gtest/gtest.h>

#include "platform/files.h"
#include "platform/handles_win.h"
#include "platform/scratch_folder.h"

namespace platform {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

TEST(RunHidden, WaitsForTheCommandToFinish) {
  const ScratchFolder scratch;
  const std::wstring made = scratch.Path(L"made");
  EXPECT_TRUE(RunHidden(L"cmd.exe /c echo x> \"" + made + L"\"", seconds(30)));
  EXPECT_TRUE(IsFile(made));
}

TEST(RunHidden, IgnoresTheCommandsExitCode) {
  EXPECT_TRUE(RunHidden(L"cmd.exe /c exit 3", seconds(30)));
}

TEST(RunHidden, StopsWaitingWithoutEndingTheCommand) {
  const auto before = std::chrono::steady_clock::now();
  EXPECT_TRUE(RunHidden(L"cmd.exe /c ping -n 4 127.0.0.1", milliseconds(1)));
  EXPECT_LT(std::chrono::steady_clock::now() - before, seconds(3));
}

TEST(RunHidden, ReportsACommandThatCouldNotBeStarted) {
  EXPECT_FALSE(RunHidden(L"velmarine-no-such-command.exe now", seconds(1)));
  EXPECT_FALSE(RunHidden(L"", seconds(1)));
}

// A command that creates the file `made` after about `waitedSeconds`.
std::wstring DelayedFileCommand(int waitedSeconds, const std::wstring& made) {
  return L"cmd.exe /c ping -n " + std::to_wstring(waitedSeconds + 1) +
         L" 127.0.0.1 > nul & echo x> \"" + made + L"\"";
}

bool ComesToBe(const std::wstring& path) {
  for (int i = 0; i < 300 && !IsFile(path); ++i) ::Sleep(100);
  return IsFile(path);
}

TEST(StartProgram, ReturnsWhileTheProgramRuns) {
  const ScratchFolder scratch;
  const struct {
    const wchar_t* name;
    SystemResult (*start)(const std::wstring& commandLine);
  } rows[] = {{L"shown", StartProgram}, {L"hidden", StartHiddenProgram}};
  for (const auto& row : rows) {
    const std::wstring made = scratch.Path(row.name);
    const SystemResult result = row.start(DelayedFileCommand(1, made));
    EXPECT_TRUE(result.succeeded);
    EXPECT_EQ(result.errorCode, 0u);
    EXPECT_FALSE(IsFile(made)) << row.name;
    EXPECT_TRUE(ComesToBe(made)) << row.name;
  }
}

TEST(StartProgram, ReportsWhyAProgramCouldNotBeStarted) {
  const ScratchFolder scratch;
  const std::wstring noProgram = scratch.Path(L"no program.exe");
  ASSERT_TRUE(WriteFileBytes(noProgram, "just a text"));
  for (const auto start : {StartProgram, StartHiddenProgram}) {
    const SystemResult missing = start(L"\"" + scratch.Path(L"missing.exe") + L"\"");
    EXPECT_FALSE(missing.succeeded);
    EXPECT_EQ(missing.errorCode, DWORD{ERROR_FILE_NOT_FOUND});
    const SystemResult refused = start(L"\"" + noProgram + L"\"");
    EXPECT_FALSE(refused.succeeded);
    EXPECT_EQ(refused.errorCode, DWORD{ERROR_BAD_EXE_FORMAT});
  }
}

// Waits for this process, which does not end.
TEST(WaitForProcessEnd, WaitsNoLongerThanItsLimit) {
  const auto before = std::chrono::steady_clock::now();
  WaitForProcessEnd(::GetCurrentProcessId(), milliseconds(300));
  const auto waited = std::chrono::steady_clock::now() - before;
  EXPECT_GE(waited, milliseconds(290));
  EXPECT_LT(waited, seconds(60));
}

TEST(WaitForProcessEnd, ReturnsAtOnceForAMissingProcess) {
  const auto before = std::chrono::steady_clock::now();
  WaitForProcessEnd(0, seconds(60));
  WaitForProcessEnd(0x7FFFFFFC, seconds(60));
  EXPECT_LT(std::chrono::steady_clock::now() - before, seconds(30));
}

TEST(WaitForProcessEnd, ReturnsWhenTheProcessEnds) {
  STARTUPINFOW startup{};
  startup.cb = sizeof(startup);
  PROCESS_INFORMATION started{};
  wchar_t command[] = L"cmd.exe /c ping -n 2 127.0.0.1 > nul";
  ASSERT_TRUE(::CreateProcessW(nullptr, command, nullptr, nullptr, FALSE, CREATE_NO_WINDOW, nullptr,
                               nullptr, &startup, &started));
  const ProcessHandle process(started.hProcess);
  const ThreadHandle thread(started.hThread);
  const auto before = std::chrono::steady_clock::now();
  WaitForProcessEnd(started.dwProcessId, seconds(60));
  EXPECT_LT(std::chrono::steady_clock::now() - before, seconds(50));
  EXPECT_EQ(::WaitForSingleObject(process.Get(), 0), DWORD{WAIT_OBJECT_0});
}

}  // namespace
}  // namespace platform
