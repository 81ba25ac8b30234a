#include "webview/web_create.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "platform/path.h"

namespace webview {
namespace {

constexpr wchar_t kInternalChannel[] =
    L"Software\\Microsoft\\EdgeUpdate\\ClientState\\{BE59E8FD-089A-411B-A3B0-051D9E417818}";

// A temporary runtime folder, registered for this user under the channel searched last. The
// computer must have no other runtime.
class Loader : public testing::Test {
 protected:
  Loader()
      : folder_(platform::TemporaryFolder() + L"velmarine loader " +
                std::to_wstring(::GetCurrentProcessId())) {
    std::filesystem::create_directories(Library().parent_path());
    EXPECT_EQ(::RegCreateKeyExW(HKEY_CURRENT_USER, kInternalChannel, 0, nullptr, 0,
                                KEY_WRITE | KEY_WOW64_32KEY, nullptr, &key_, nullptr),
              ERROR_SUCCESS);
    const std::wstring version = folder_.native() + L"\\130.0.0.0";
    EXPECT_EQ(::RegSetValueExW(key_, L"EBWebView", 0, REG_SZ,
                               reinterpret_cast<const BYTE*>(version.c_str()),
                               static_cast<DWORD>((version.size() + 1) * sizeof(wchar_t))),
              ERROR_SUCCESS);
  }
  ~Loader() override {
    ::RegCloseKey(key_);
    ::RegDeleteKeyExW(HKEY_CURRENT_USER, kInternalChannel, KEY_WOW64_32KEY, 0);
    std::error_code ignored;
    std::filesystem::remove_all(folder_, ignored);
  }

  [[nodiscard]] std::filesystem::path Library() const {
    return folder_ / L"130.0.0.0" / L"EBWebView" / L"x64" / L"EmbeddedBrowserWebView.dll";
  }
  static HRESULT Create() { return CreateCoreWebView2EnvironmentWithOptions(L"C:\\data", nullptr); }

  const std::filesystem::path folder_;
  HKEY key_ = nullptr;
};

TEST_F(Loader, ReportsAMissingRuntime) {
  EXPECT_EQ(Create(), HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND));
}

TEST_F(Loader, ReportsALibraryThatCannotBeLoaded) {
  std::ofstream(Library(), std::ios::binary) << "no library";
  EXPECT_EQ(Create(), HRESULT_FROM_WIN32(ERROR_BAD_EXE_FORMAT));
}

TEST_F(Loader, ReportsALibraryThatIsNotARuntime) {
  wchar_t system[MAX_PATH] = {};
  ::GetSystemDirectoryW(system, MAX_PATH);
  std::filesystem::copy_file(std::filesystem::path(system) / L"version.dll", Library());
  EXPECT_EQ(Create(), HRESULT_FROM_WIN32(ERROR_PROC_NOT_FOUND));
}

}  // namespace
}  // namespace webview
