#include <gtest/gtest.h>

#include <cstdio>
#include <memory>
#include <string>

#include "tests/driver_library.h"
#include "tests/driver_wire.h"

namespace {

// The stand-in without the fixture that keeps it loaded.
class DriverUnload : public ::testing::Test {
 protected:
  void SetUp() override {
    ::SetEnvironmentVariableW(L"LAB_WINDIVERT_PORT", std::to_wstring(FindFreePort()).c_str());
    ::SetEnvironmentVariableW(L"LAB_WINDIVERT_PEER", std::to_wstring(wire_.Port()).c_str());
    ASSERT_FALSE(IsLoaded());
    Load();
  }

  void Load() { library_ = std::make_unique<Library>(); }
  static bool IsLoaded() { return ::GetModuleHandleW(L"WinDivert.dll") != nullptr; }

  // Frees the library on a separate thread. If that hangs, it holds the loader's lock, which the
  // process needs in order to end.
  void Unload() {
    constexpr DWORD kPatienceMs = 5000;
    const HANDLE thread =
        ::CreateThread(nullptr, 0, &DriverUnload::Free, library_.release(), 0, nullptr);
    if (::WaitForSingleObject(thread, kPatienceMs) != WAIT_OBJECT_0) {
      std::fputs("FreeLibrary hangs.\n", stderr);
      ::TerminateProcess(::GetCurrentProcess(), 1);
    }
    ::CloseHandle(thread);
  }
  HANDLE Open() const { return library_->open("udp", 0, 0, 0); }

  Wire wire_;
  std::unique_ptr<Library> library_;

 private:
  static DWORD WINAPI Free(void* library) {
    delete static_cast<Library*>(library);
    return 0;
  }
};

TEST_F(DriverUnload, EndsWithoutAHandle) {
  const HANDLE handle = Open();
  ASSERT_NE(handle, INVALID_HANDLE_VALUE);
  EXPECT_TRUE(library_->close(handle));
  Unload();
  EXPECT_FALSE(IsLoaded());
  Load();
  EXPECT_EQ(library_->open("true", 0, 0, 0x10), INVALID_HANDLE_VALUE);
  EXPECT_EQ(::GetLastError(), 1060U) << "it starts anew";
}

// Like the real driver's, the handle outlives the library; the system closes it at the process'
// end.
TEST_F(DriverUnload, DoesNotHangOnAnOpenHandle) {
  const HANDLE handle = Open();
  ASSERT_NE(handle, INVALID_HANDLE_VALUE);
  Unload();
  Load();
  EXPECT_TRUE(library_->close(handle));
  EXPECT_FALSE(library_->close(handle));
  Unload();
  EXPECT_FALSE(IsLoaded());
}

}  // namespace
