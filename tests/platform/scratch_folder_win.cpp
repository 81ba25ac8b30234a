#include <gtest/gtest.h>

#include <filesystem>

#include "platform/path.h"
#include "platform/scratch_folder.h"
#include "platform/windows_sdk.h"

namespace platform {

ScratchFolder::ScratchFolder() {
  static int count = 0;
  folder_ = TemporaryFolder() + L"velmarine-" + std::to_wstring(::GetCurrentProcessId()) + L"-" +
            std::to_wstring(++count);
  if (!::CreateDirectoryW(folder_.c_str(), nullptr)) ADD_FAILURE() << "no scratch folder";
}

ScratchFolder::~ScratchFolder() {
  std::error_code error;
  std::filesystem::remove_all(folder_, error);
}

}  // namespace platform
