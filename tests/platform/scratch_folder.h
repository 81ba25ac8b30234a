#pragma once

#include <string>

namespace platform {

// A new, empty folder of one test, removed with all it holds.
class ScratchFolder {
 public:
  ScratchFolder();
  ~ScratchFolder();
  ScratchFolder(const ScratchFolder&) = delete;
  ScratchFolder& operator=(const ScratchFolder&) = delete;

  // The path of `name` inside it.
  [[nodiscard]] std::wstring Path(const std::wstring& name) const { return folder_ + L'\\' + name; }
  [[nodiscard]] const std::wstring& Folder() const { return folder_; }

 private:
  std::wstring folder_;
};

}  // namespace platform
