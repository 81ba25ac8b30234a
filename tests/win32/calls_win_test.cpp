#include "win32/calls.h"

#include <gtest/gtest.h>

#include <thread>

namespace win32 {
namespace {

HANDLE MakeFile() {
  return ::CreateFileW(L"NUL", GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                       FILE_ATTRIBUTE_NORMAL, nullptr);
}

TEST(Calls, AreRecordedInOrderWithTheirArguments) {
  Calls calls;
  const HANDLE file = MakeFile();
  DWORD writtenBytes = 7;
  ::WriteFile(file, "a\"\n", 3, &writtenBytes, nullptr);
  ::CloseHandle(file);
  EXPECT_TRUE(calls.Were({
      Said<Api::CreateFileW>(L"NUL", GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                             FILE_ATTRIBUTE_NORMAL, nullptr),
      Said<Api::WriteFile>(Handle{1}, "a\"\n", 3, Ref{7}, nullptr),
      "CloseHandle(h1)",
  }));
  EXPECT_FALSE(calls.Were({"CloseHandle(h1)"}));
  EXPECT_TRUE(calls.WereAmong({Api::CloseHandle}, {"CloseHandle(h1)"}));
  EXPECT_FALSE(calls.WereAmong({Api::CloseHandle}, {}));
}

TEST(Calls, AreFoundAmongOthersOfTheSameFunction) {
  Calls calls;
  ::Sleep(0);
  ::Sleep(1);
  EXPECT_TRUE(calls.Had(Said<Api::Sleep>(1)));
  EXPECT_FALSE(calls.Had(Said<Api::Sleep>(2)));
}

TEST(Calls, ShowWhichSocketsAndHowLongASelectWaits) {
  fd_set sockets{};
  FD_SET(SOCKET{77}, &sockets);
  timeval time{1, 20};
  Calls calls;
  calls.AnswerWith<Api::select>([](int, fd_set*, fd_set*, fd_set*, const timeval*) { return 0; });
  ::select(0, &sockets, nullptr, nullptr, &time);
  EXPECT_TRUE(
      calls.Were({Said<Api::select>(0, Text{"{77}"}, nullptr, nullptr, Text{"{1 s 20 us}"})}));
}

// Memory that the clipboard does not accept remains the caller's.
TEST(Calls, AttributeMemoryToTheClipboardOnceAccepted) {
  for (const bool taken : {true, false}) {
    Calls calls;
    calls.AnswerWith<Api::SetClipboardData>(
        [taken](UINT, HANDLE memory) { return taken ? memory : nullptr; });
    const HGLOBAL memory = ::GlobalAlloc(GMEM_MOVEABLE, 4);
    ::SetClipboardData(CF_UNICODETEXT, memory);
    EXPECT_EQ(calls.Unbalanced(), taken ? "" : "h1 of GlobalAlloc");
    ::GlobalFree(memory);
    EXPECT_EQ(calls.Unbalanced(), taken ? "closed h1 twice" : "");
  }
}

TEST(Calls, AreThoseOfTheOwnThreadUnlessAllAreRequested) {
  const auto countWith = [](Calls::Threads threads) {
    const Calls calls(threads);
    std::thread([] { ::GetCurrentProcessId(); }).join();
    return calls.Count(Api::GetCurrentProcessId);
  };
  EXPECT_EQ(countWith(Calls::Threads::Own), 0);
  EXPECT_EQ(countWith(Calls::Threads::All), 1);
}

TEST(Calls, FailLikeTheFunctionWithTheGivenError) {
  Calls calls;
  for (const Api api : {Api::CreateFileW, Api::OpenProcess, Api::RegOpenKeyExW,
                        Api::GetFileAttributesW, Api::CoInitializeEx}) {
    calls.Fail(api, 5, 0);
  }
  EXPECT_EQ(MakeFile(), INVALID_HANDLE_VALUE);
  EXPECT_EQ(::GetLastError(), 5u);
  EXPECT_EQ(::OpenProcess(SYNCHRONIZE, FALSE, ::GetCurrentProcessId()), nullptr);
  HKEY key = nullptr;
  EXPECT_EQ(::RegOpenKeyExW(HKEY_CURRENT_USER, L"Software", 0, KEY_READ, &key), 5);
  EXPECT_EQ(::GetFileAttributesW(L"C:\\"), INVALID_FILE_ATTRIBUTES);
  EXPECT_EQ(::CoInitializeEx(nullptr, 0), E_ACCESSDENIED);
}

TEST(Calls, FailOnceButStillClose) {
  Calls calls;
  calls.Fail(Api::CloseHandle, 6, 2);
  for (const bool closed : {true, false, true}) {
    const HANDLE file = MakeFile();
    EXPECT_EQ(::CloseHandle(file) != FALSE, closed);
  }
  EXPECT_EQ(calls.Failed(), "CloseHandle");
  EXPECT_EQ(calls.Unbalanced(), "");
}

TEST(Calls, AreAnsweredByTheTest) {
  Calls calls;
  calls.AnswerWith<Api::GetCurrentProcessId>([] { return Real<Api::GetCurrentProcessId>()() + 1; });
  EXPECT_EQ(::GetCurrentProcessId(), Real<Api::GetCurrentProcessId>()() + 1);
}

TEST(Calls, PreserveTheLastError) {
  ::SetLastError(4711);
  {
    const Calls calls;
    EXPECT_EQ(::GetLastError(), 4711u);
    ::GetCurrentProcessId();
    EXPECT_EQ(::GetLastError(), 4711u);
    EXPECT_EQ(::GetFileAttributesW(L"C:\\no such file"), INVALID_FILE_ATTRIBUTES);
    EXPECT_EQ(::GetLastError(), DWORD{ERROR_FILE_NOT_FOUND});
  }
}

TEST(Calls, ReportOpenAndTwiceClosedHandles) {
  Calls calls;
  const HANDLE open = MakeFile();
  EXPECT_EQ(calls.Unbalanced(), "h1 of CreateFileW");
  ::CloseHandle(open);
  EXPECT_EQ(calls.Unbalanced(), "");
  ::CloseHandle(open);
  EXPECT_EQ(calls.Unbalanced(), "closed h1 twice");
}

TEST(Calls, AreNoLongerRecordedAfterwards) {
  {
    Calls calls;
    calls.Fail(Api::CreateFileW, 5, 0);
  }
  const HANDLE file = MakeFile();
  EXPECT_NE(file, INVALID_HANDLE_VALUE);
  ::CloseHandle(file);
}

TEST(EachFailure, RunsOnceForEachCallAndDetectsLeaks) {
  std::vector<HANDLE> leaked;
  const auto leakAfterAFailure = [&leaked] {
    const HANDLE file = MakeFile();
    if (file == INVALID_HANDLE_VALUE) {
      leaked.push_back(Real<Api::CreateEventW>()(nullptr, TRUE, FALSE, nullptr));
      return std::string("no file");
    }
    if (::FlushFileBuffers(file) == FALSE && ::GetLastError() == ERROR_NO_SYSTEM_RESOURCES) {
      leaked.push_back(file);
      return std::string("no flush");
    }
    ::CloseHandle(file);
    return std::string("done");
  };
  EXPECT_EQ(EachFailure(leakAfterAFailure),
            "all well: done\n"
            "CreateFileW: no file LEAKED 1\n"
            "FlushFileBuffers: no flush LEAKED 1 LEAKED h1 of CreateFileW\n"
            "CloseHandle: done\n");
  for (HANDLE handle : leaked) ::CloseHandle(handle);
}

}  // namespace
}  // namespace win32
