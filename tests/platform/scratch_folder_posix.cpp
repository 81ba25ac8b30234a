#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>

#include "platform/scratch_folder.h"
#include "text/utf8.h"

namespace platform {

ScratchFolder::ScratchFolder() {
  std::string pattern = testing::TempDir() + "velmarine-XXXXXX";
  if (::mkdtemp(pattern.data()) == nullptr) ADD_FAILURE() << "no scratch folder";
  folder_ = text::FromUtf8(pattern);
}

ScratchFolder::~ScratchFolder() {
  std::error_code error;
  std::filesystem::remove_all(text::ToUtf8(folder_), error);
}

}  // namespace platform
