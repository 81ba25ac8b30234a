#include "platform/handles_win.h"

#include <gtest/gtest.h>

#include "platform/modules_win.h"

namespace platform {
namespace {

TEST(Handles, TreatBothInvalidFileHandlesAsEmpty) {
  EXPECT_FALSE(FileHandle());
  EXPECT_FALSE(FileHandle(nullptr));
  EXPECT_FALSE(FileHandle(INVALID_HANDLE_VALUE));
}

TEST(Handles, CloseWhatTheyHold) {
  HANDLE raw = ::CreateEventW(nullptr, TRUE, FALSE, nullptr);
  DWORD flags = 0;
  {
    const FileHandle event(raw);
    EXPECT_TRUE(event);
    EXPECT_TRUE(::GetHandleInformation(raw, &flags));
  }
  EXPECT_FALSE(::GetHandleInformation(raw, &flags));
}

TEST(Handles, KeepModulesKeysAndHttpSessions) {
  EXPECT_TRUE(Module(::LoadLibraryW(L"version.dll")));
  EXPECT_FALSE(Module(::LoadLibraryW(L"no-such-library.dll")));
  HKEY key = nullptr;
  ASSERT_EQ(::RegOpenKeyExW(HKEY_CURRENT_USER, L"Software", 0, KEY_READ, &key), ERROR_SUCCESS);
  EXPECT_TRUE(RegistryKey(key));
  EXPECT_TRUE(HttpHandle(::WinHttpOpen(L"test", WINHTTP_ACCESS_TYPE_NO_PROXY, WINHTTP_NO_PROXY_NAME,
                                       WINHTTP_NO_PROXY_BYPASS, 0)));
}

TEST(GetProcAddressAs, FindsExportsByName) {
  HMODULE kernel = ::GetModuleHandleW(L"kernel32.dll");
  using CurrentProcessId = DWORD(WINAPI*)();
  const auto found = GetProcAddressAs<CurrentProcessId>(kernel, "GetCurrentProcessId");
  ASSERT_NE(found, nullptr);
  EXPECT_EQ(found(), ::GetCurrentProcessId());
  EXPECT_EQ(GetProcAddressAs<CurrentProcessId>(kernel, "NoSuchExport"), nullptr);
}

}  // namespace
}  // namespace platform
