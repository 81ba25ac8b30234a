#pragma once

#include <filesystem>
#include <string>

#include "platform/path.h"
#include "platform/windows_sdk.h"

namespace shell {

// A folder with a Chinese name below the temporary folder. Starts empty; removed with its contents.
class TestFolder {
 public:
  explicit TestFolder(const std::wstring& name)
      : path_(platform::TemporaryFolder() + L"velmarine 测试 " + name + L" " +
              std::to_wstring(::GetCurrentProcessId())) {
    std::filesystem::remove_all(path_);
    std::filesystem::create_directories(path_);
  }
  ~TestFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  TestFolder(const TestFolder&) = delete;
  TestFolder& operator=(const TestFolder&) = delete;

  [[nodiscard]] std::wstring Path(const std::wstring& relative) const {
    return path_ + L"\\" + relative;
  }
  [[nodiscard]] const std::wstring& Root() const { return path_; }

 private:
  std::wstring path_;
};

}  // namespace shell
