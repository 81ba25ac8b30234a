// The program's start: the order of its steps, its Windows calls and their failures.
#include <gtest/gtest.h>

#include "platform/files.h"
#include "platform/path.h"
#include "shell/log_file.h"
#include "shell/main_window.h"
#include "shell/runtime_files_win.h"
#include "shell/start_up.h"
#include "shell/test_folder_win.h"
#include "shell/window_fixture.h"
#include "win32/calls.h"

namespace shell {
namespace {

using namespace win32;
using Lines = std::vector<std::wstring>;

class StartUp : public WindowTest {
 protected:
  StartUp() {
    onStartLog_ = [this] {
      logged_.push_back(L"(log)");
      return std::wstring(L"D:\\工具\\Log\\x.log");
    };
    onLayOut_ = [this] {
      logged_.push_back(L"(runtime files)");
      return foreign_;
    };
    onOpenSettings_ = [this] { logged_.push_back(L"(state)"); };
  }

  // Runs the client and closes its window when it is first shown.
  int Run(Calls& calls) {
    calls.AnswerWith<Api::ShowWindow>(
        [](HWND window, int) { return ::PostMessageW(window, WM_CLOSE, 0, 0); });
    return RunClient(::GetModuleHandleW(nullptr), SW_SHOWMAXIMIZED, deps_);
  }

  std::wstring foreign_;  // the warning returned by laying out the runtime files
};

TEST_F(StartUp, RunsItsStepsInOrder) {
  Calls calls;
  EXPECT_EQ(Run(calls), 0);
  EXPECT_EQ(logged_,
            (Lines{L"(log)", L"Velmarine.Client 维马林 starting. Log file: D:\\工具\\Log\\x.log",
                   L"(runtime files)", L"(state)", L"客户端启动中"}));
}

TEST_F(StartUp, LogsTheWarningAboutTheRuntimeFiles) {
  foreign_ = L"警告：…";
  Calls calls;
  EXPECT_EQ(Run(calls), 0);
  EXPECT_EQ(logged_.at(3), foreign_);
}

TEST_F(StartUp, CreatesTheWindowAndShowsItAsRequested) {
  Calls calls;
  Run(calls);
  const Text window{calls.Given(Api::CreateWindowExW)};
  EXPECT_TRUE(calls.WereAmong(
      {Api::InitCommonControlsEx, Api::ShowWindow, Api::UpdateWindow},
      {"InitCommonControlsEx({8 classes 16384})",  // ICC_STANDARD_CLASSES
       Said<Api::ShowWindow>(window, SW_SHOWMAXIMIZED), Said<Api::UpdateWindow>(window)}));
  EXPECT_EQ(calls.Count(Api::RegisterClassExW), 1);
  EXPECT_EQ(calls.Count(Api::CreateWindowExW), 1);
}

TEST_F(StartUp, ReturnsOneWithoutAWindow) {
  Calls calls;
  calls.Fail(Api::CreateWindowExW, 1450);
  EXPECT_EQ(Run(calls), 1);
  EXPECT_EQ(calls.Count(Api::ShowWindow), 0);
  EXPECT_EQ(calls.Count(Api::GetMessageW), 0);
}

TEST_F(StartUp, ReturnsTheExitCodeOfTheMessageLoop) {
  Calls calls;
  calls.AnswerWith<Api::GetMessageW>([](MSG* message, HWND window, UINT first, UINT last) -> BOOL {
    const BOOL found = Real<Api::GetMessageW>()(message, window, first, last);
    if (found == FALSE) message->wParam = 7;
    return found;
  });
  EXPECT_EQ(Run(calls), 7);
}

TEST_F(StartUp, DispatchesEveryMessageAndEndsWhenGetMessageFails) {
  Calls calls;
  bool failed = false;
  bool askedAgain = false;
  calls.AnswerWith<Api::GetMessageW>([&](MSG* message, HWND window, UINT first, UINT last) -> BOOL {
    askedAgain = failed;
    if (failed) return FALSE;
    const BOOL found = Real<Api::GetMessageW>()(message, window, first, last);
    failed = found == FALSE;
    return failed ? -1 : found;
  });
  Run(calls);
  EXPECT_FALSE(askedAgain);
  const int got = calls.Count(Api::GetMessageW);
  EXPECT_GE(got, 2);
  EXPECT_TRUE(calls.EachWas(Api::GetMessageW, Said<Api::GetMessageW>(Some{}, nullptr, 0, 0)));
  EXPECT_TRUE(calls.EachWas(Api::TranslateMessage, Said<Api::TranslateMessage>(Some{})));
  EXPECT_TRUE(calls.EachWas(Api::DispatchMessageW, Said<Api::DispatchMessageW>(Some{})));
  EXPECT_EQ(calls.Count(Api::TranslateMessage), got - 1);
  EXPECT_EQ(calls.Count(Api::DispatchMessageW), got - 1);
}

// ---- before the window

HANDLE contextSet = nullptr;
BOOL WINAPI TakeContext(HANDLE context) {
  contextSet = context;
  return TRUE;
}
BOOL WINAPI RefuseContext(HANDLE) {
  return FALSE;
}

int DpiCalls(Calls& calls, BOOL(WINAPI* setContext)(HANDLE)) {
  calls.AnswerWith<Api::GetProcAddress>([setContext](HMODULE, const char*) {
    return reinterpret_cast<FARPROC>(reinterpret_cast<void*>(setContext));
  });
  calls.AnswerWith<Api::SetProcessDPIAware>([] { return TRUE; });
  BecomeDpiAware();
  EXPECT_TRUE(
      calls.WereAmong({Api::GetModuleHandleW, Api::GetProcAddress},
                      {Said<Api::GetModuleHandleW>(L"user32.dll"),
                       Said<Api::GetProcAddress>(Handle{1}, "SetProcessDpiAwarenessContext")}));
  return calls.Count(Api::SetProcessDPIAware);
}

TEST(DpiAwareness, IsPerMonitorWhereSupported) {
  Calls calls;
  EXPECT_EQ(DpiCalls(calls, TakeContext), 0);
  EXPECT_EQ(reinterpret_cast<INT_PTR>(contextSet), -4);  // ..._PER_MONITOR_AWARE_V2
}

TEST(DpiAwareness, FallsBackToTheOldCall) {
  using Function = BOOL(WINAPI*)(HANDLE);
  for (const Function function : {Function{nullptr}, Function{RefuseContext}}) {
    Calls calls;
    EXPECT_EQ(DpiCalls(calls, function), 1);
    EXPECT_TRUE(calls.EachWas(Api::SetProcessDPIAware, Said<Api::SetProcessDPIAware>()));
  }
}

TEST(CommandLine, IsSplitByTheSystemAndFreed) {
  static wchar_t line[] = L"\"a b.exe\" --apply-update 1";
  Calls calls;
  calls.AnswerWith<Api::GetCommandLineW>([] { return line; });
  EXPECT_EQ(CommandLineArguments(), (Lines{L"a b.exe", L"--apply-update", L"1"}));
  EXPECT_TRUE(calls.Were({Said<Api::GetCommandLineW>(), Said<Api::CommandLineToArgvW>(line, Ref{0}),
                          Said<Api::LocalFree>(Handle{2})}));
  calls.Fail(Api::CommandLineToArgvW, 1450);
  EXPECT_EQ(CommandLineArguments(), Lines());
}

// ---- the log's folder

TEST(LogFolder, IsTheCurrentFolderUpTo259CharactersElseTheProgramFolder) {
  for (const DWORD told : {0u, 1u, 259u, 260u, 300u}) {
    Calls calls;
    calls.AnswerWith<Api::GetCurrentDirectoryW>([told](DWORD room, wchar_t* path) {
      std::fill_n(path, std::min(told, room - 1), L'x');
      return told;
    });
    const bool fits = told == 1 || told == 259;
    EXPECT_EQ(LogBaseFolder(), fits ? std::wstring(told, L'x') : platform::ProgramFolder());
    EXPECT_TRUE(
        calls.EachWas(Api::GetCurrentDirectoryW, Said<Api::GetCurrentDirectoryW>(260, L"")));
  }
}

// ---- the driver's files

class RuntimeFileCalls : public testing::Test {
 protected:
  ~RuntimeFileCalls() override { ::SetDllDirectoryW(nullptr); }
  const TestFolder folder_{L"calls"};
  const std::wstring target_ = folder_.Path(L"new\\file.bin");
};

TEST_F(RuntimeFileCalls, WriteAResourceWithExclusiveAccess) {
  Calls calls;
  EXPECT_TRUE(ExtractResource(::GetModuleHandleW(nullptr), kDriverLibraryResource, target_));
  const Text file{calls.Given(Api::CreateFileW)};
  EXPECT_TRUE(calls.WereAmong({Api::WriteFile, Api::SetEndOfFile},
                              {Said<Api::SetEndOfFile>(file),
                               Said<Api::WriteFile>(file, "library bytes", 13, Ref{0}, nullptr)}));
  EXPECT_TRUE(calls.Had(
      Said<Api::CreateFileW>(target_, GENERIC_WRITE | FILE_READ_ATTRIBUTES, 0, nullptr, OPEN_ALWAYS,
                             FILE_ATTRIBUTE_NORMAL | FILE_FLAG_OPEN_REPARSE_POINT, nullptr)));
}

TEST_F(RuntimeFileCalls, ReportAResourceThatWasNotWritten) {
  const HMODULE program = ::GetModuleHandleW(nullptr);
  const auto extract = [&] {
    Real<Api::DeleteFileW>()(target_.c_str());
    return std::string(ExtractResource(program, kDriverLibraryResource, target_) ? "ok" : "no");
  };
  const std::string result = EachFailure(extract);
  for (const char* line : {"FindResourceW: no\n", "LoadResource: no\n", "LockResource: no\n",
                           "SizeofResource: no\n", "CreateFileW: no\n", "WriteFile: no\n",
                           "CloseHandle: ok\n", "GetFileAttributesExW: ok\n"}) {
    EXPECT_NE(result.find(line), std::string::npos) << line;
  }
  EXPECT_EQ(result.find("LEAKED"), std::string::npos) << result;
  Calls calls;
  calls.AnswerWith<Api::WriteFile>([](HANDLE, const void*, DWORD, DWORD* written, OVERLAPPED*) {
    *written = 12;
    return TRUE;
  });
  EXPECT_EQ(extract(), "no") << "one byte is missing";
}

TEST_F(RuntimeFileCalls, CopyOverAFileOfAnotherSize) {
  const std::wstring source = folder_.Path(L"source");
  ASSERT_TRUE(platform::WriteFileBytes(source, "text"));
  Calls calls;
  CopyIfChanged(source, target_);
  EXPECT_TRUE(calls.WereAmong({Api::CopyFileW}, {Said<Api::CopyFileW>(source, target_, FALSE)}));
  EXPECT_EQ(platform::ReadFileBytes(target_), "text");
  ASSERT_TRUE(platform::WriteFileBytes(source, "longer"));
  calls.Fail(Api::CopyFileW, 1450);
  CopyIfChanged(source, target_);
  EXPECT_EQ(platform::ReadFileBytes(target_), "text");
}

TEST_F(RuntimeFileCalls, PutTheirFolderFirstInTheLibrarySearch) {
  Calls calls;
  calls.AnswerWith<Api::SHGetKnownFolderPath>(
      [this](const KNOWNFOLDERID&, DWORD, HANDLE, wchar_t** path) {
        const std::wstring& root = folder_.Root();
        *path = static_cast<wchar_t*>(::CoTaskMemAlloc((root.size() + 1) * sizeof(wchar_t)));
        std::char_traits<wchar_t>::copy(*path, root.c_str(), root.size() + 1);
        return S_OK;
      });
  platform::FileHandle hold;
  LayOutRuntimeFiles(hold);
  EXPECT_TRUE(hold);
  EXPECT_TRUE(calls.WereAmong({Api::GetModuleHandleW, Api::SetDllDirectoryW},
                              {Said<Api::GetModuleHandleW>(nullptr),
                               Said<Api::SetDllDirectoryW>(folder_.Path(L"Velmarine\\Runtime"))}));
  EXPECT_EQ(platform::ReadFileBytes(folder_.Path(L"Velmarine\\Runtime\\WinDivert.dll")),
            "library bytes");
}

// ---- the window's dependencies

TEST(RealWindowDeps, ShowAFailureInABoxTitledWithTheProgramName) {
  Calls calls;
  calls.AnswerWith<Api::MessageBoxW>([](HWND, const wchar_t*, const wchar_t*, UINT) { return 1; });
  RealWindowDeps({L"1.0"})->ShowMessageBox(nullptr, L"坏");
  EXPECT_TRUE(calls.WereAmong(
      {Api::MessageBoxW},
      {Said<Api::MessageBoxW>(nullptr, L"坏", kWindowTitle, MB_OK | MB_ICONERROR)}));
}

}  // namespace
}  // namespace shell
