#pragma once

#include <string>

namespace platform {

// A new, empty folder for one test. Removed with its contents.
class ScratchFolder {
 public:
  ScratchFolder();
  ~ScratchFolder();
  ScratchFolder(const ScratchFolder&) = delete;
  ScratchFolder& operator=(const ScratchFolder&) = delete;

  // Returns the path of `name` inside the folder.
  [[nodiscard]] std::wstring Path(const std::wstring& name) const { return folder_ + L'\\' + name; }
  [[nodiscard]] const std::wstring& Folder() const { return folder_; }

 private:
  std::wstring folder_;
};

}  // namespace platform
