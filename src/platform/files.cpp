#include "platform/files.h"

#include <utility>

#include "platform/path.h"

namespace platform {
namespace {

class ComputerFiles final : public FileDeps {
 public:
  FileContent Read(const std::wstring& path) override {
    std::optional<std::string> bytes = ReadFileBytes(path);
    const bool exists = bytes || IsFile(path);
    return {exists, std::move(bytes)};
  }

  std::wstring Write(const std::wstring& path, const std::string& bytes) override {
    CreateFolders(ParentFolder(path));
    return FailureReason(WriteFileDurably(path, bytes));
  }

  void Delete(const std::wstring& path) override { DeleteFileAt(path); }

  std::vector<std::wstring> ListFolders(const std::wstring& folder) override {
    return platform::ListFolders(folder);
  }

  std::vector<std::wstring> ListFiles(const std::wstring& folder) override {
    return platform::ListFiles(folder);
  }
};

}  // namespace

FileDeps& RealFiles() {
  // Never destroyed: a detached thread may still write when the process ends.
  static FileDeps& files = *new ComputerFiles;
  return files;
}

}  // namespace platform
