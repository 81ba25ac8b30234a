#include "platform/process_win.h"

#include <gtest/gtest.h>

#include "win32/calls.h"
// Needs windows.h first.
#include <delayimp.h>

namespace platform {
namespace {

using namespace win32;

std::wstring Variable(const wchar_t* name) {
  wchar_t value[64] = {};
  return ::GetEnvironmentVariableW(name, value, 64) == 0 ? L"(none)" : value;
}

TEST(ProcessGuard, LoadsDelayedImportsFromWindowsFolder) {
  Calls calls;
  calls.AnswerWith<Api::SetDefaultDllDirectories>([](DWORD) { return TRUE; });
  calls.AnswerWith<Api::LoadLibraryExA>(
      [](const char*, HANDLE, DWORD) { return reinterpret_cast<HMODULE>(std::uintptr_t{0x301}); });
  LimitLibrarySearch();
  DelayLoadInfo info{};
  info.szDll = "winhttp.dll";
  EXPECT_EQ(__pfnDliNotifyHook2(dliNoteStartProcessing, &info), nullptr);
  EXPECT_NE(__pfnDliNotifyHook2(dliNotePreLoadLibrary, &info), nullptr);
  EXPECT_EQ(__pfnDliNotifyHook2(dliNotePreGetProcAddress, &info), nullptr);
  EXPECT_TRUE(calls.WereAmong(
      {Api::LoadLibraryExA},
      {Said<Api::LoadLibraryExA>(Some{}, nullptr, DWORD{LOAD_LIBRARY_SEARCH_SYSTEM32})}));
}

// The call is faked: later tests must still find their libraries.
TEST(ProcessGuard, LimitsTheSearchForLibraries) {
  Calls calls;
  calls.AnswerWith<Api::SetDefaultDllDirectories>([](DWORD) { return TRUE; });
  LimitLibrarySearch();
  EXPECT_TRUE(calls.Were({Said<Api::SetDefaultDllDirectories>(
      DWORD{LOAD_LIBRARY_SEARCH_SYSTEM32 | LOAD_LIBRARY_SEARCH_USER_DIRS})}));
}

TEST(ProcessGuard, RefusesForeignLibraries) {
  Calls calls;
  calls.AnswerWith<Api::SetProcessMitigationPolicy>(
      [](PROCESS_MITIGATION_POLICY, void*, SIZE_T) { return TRUE; });
  RefuseForeignLibraries();
  ForbidDynamicCode();
  EXPECT_TRUE(calls.Were({
      // "Disable extension points" is bit 0 of policy 6.
      Said<Api::SetProcessMitigationPolicy>(static_cast<PROCESS_MITIGATION_POLICY>(6),
                                            std::string("\1\0\0\0", 4), 4),
      // No remote images, no low-integrity images, prefer system images: bits 0 to 2 of policy 10.
      Said<Api::SetProcessMitigationPolicy>(static_cast<PROCESS_MITIGATION_POLICY>(10),
                                            std::string("\7\0\0\0", 4), 4),
      // "Prohibit dynamic code" is bit 0 of policy 2.
      Said<Api::SetProcessMitigationPolicy>(static_cast<PROCESS_MITIGATION_POLICY>(2),
                                            std::string("\1\0\0\0", 4), 4),
  }));
}

TEST(ProcessGuard, RemovesVariablesByPrefixInAnyLetterCase) {
  for (const wchar_t* name : {L"VELTEST2_A", L"velTest2_b", L"VELTEST_C", L"X_VELTEST2_D"}) {
    ::SetEnvironmentVariableW(name, L"set");
  }
  {
    Calls calls;
    ForgetVariables(L"VELTEST2_");
    EXPECT_TRUE(calls.Had(Said<Api::SetEnvironmentVariableW>(L"VELTEST2_A", nullptr)));
    EXPECT_EQ(calls.Count(Api::SetEnvironmentVariableW), 2);
  }
  EXPECT_EQ(Variable(L"VELTEST2_A"), L"(none)");
  EXPECT_EQ(Variable(L"VELTEST2_B"), L"(none)");
  EXPECT_EQ(Variable(L"VELTEST_C"), L"set");
  EXPECT_EQ(Variable(L"X_VELTEST2_D"), L"set");
  for (const wchar_t* name : {L"VELTEST_C", L"X_VELTEST2_D"}) {
    ::SetEnvironmentVariableW(name, nullptr);
  }
}

TEST(ProcessGuard, FreesTheEnvironmentStrings) {
  ::SetEnvironmentVariableW(L"VELTEST3_A", L"set");
  EXPECT_EQ(EachFailure([] {
              ForgetVariables(L"VELTEST3_");
              return std::string("done");
            }),
            "all well: done\n"
            "GetEnvironmentStringsW: done\n"
            "FreeEnvironmentStringsW: done\n");
}

}  // namespace
}  // namespace platform
