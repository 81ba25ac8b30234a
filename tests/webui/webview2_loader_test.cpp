#include "webui/webview2_loader.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "platform/known_folders.h"

namespace webui {
namespace {

constexpr wchar_t kFolderVariable[] = L"WEBVIEW2_BROWSER_EXECUTABLE_FOLDER";

// A runtime folder of the test's own, named by the variable.
class Loader : public testing::Test {
 protected:
  Loader()
      : folder_(platform::TemporaryFolder() + L"velmarine loader " +
                std::to_wstring(::GetCurrentProcessId())) {
    std::filesystem::create_directories(Library().parent_path());
    ::SetEnvironmentVariableW(kFolderVariable, folder_.c_str());
  }
  ~Loader() override {
    ::SetEnvironmentVariableW(kFolderVariable, nullptr);
    std::error_code ignored;
    std::filesystem::remove_all(folder_, ignored);
  }

  [[nodiscard]] std::filesystem::path Library() const {
    return folder_ / L"EBWebView" / L"x64" / L"EmbeddedBrowserWebView.dll";
  }
  static HRESULT Create() { return CreateCoreWebView2EnvironmentWithOptions(L"C:\\data", nullptr); }

  const std::filesystem::path folder_;
};

TEST_F(Loader, SaysThatThereIsNoRuntime) {
  EXPECT_EQ(Create(), HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND));
}

TEST_F(Loader, SaysThatALibraryCannotBeLoaded) {
  std::ofstream(Library(), std::ios::binary) << "no library";
  EXPECT_EQ(Create(), HRESULT_FROM_WIN32(ERROR_BAD_EXE_FORMAT));
}

TEST_F(Loader, SaysThatALibraryIsNoRuntime) {
  wchar_t system[MAX_PATH] = {};
  ::GetSystemDirectoryW(system, MAX_PATH);
  std::filesystem::copy_file(std::filesystem::path(system) / L"version.dll", Library());
  EXPECT_EQ(Create(), HRESULT_FROM_WIN32(ERROR_PROC_NOT_FOUND));
}

}  // namespace
}  // namespace webui
