#include "platform/files.h"

#include <utility>

#include "platform/path.h"

namespace platform {

FileContent ComputerFiles::Read(const std::wstring& path) {
  std::optional<std::string> bytes = ReadFileBytes(path);
  const bool exists = bytes || IsFile(path);
  return {exists, std::move(bytes)};
}

std::wstring ComputerFiles::Write(const std::wstring& path, const std::string& bytes) {
  CreateFolders(ParentFolder(path));
  return FailureReason(WriteFileDurably(path, bytes));
}

void ComputerFiles::Delete(const std::wstring& path) {
  DeleteFileAt(path);
}

std::vector<std::wstring> ComputerFiles::ListFolders(const std::wstring& folder) {
  return platform::ListFolders(folder);
}

std::vector<std::wstring> ComputerFiles::ListFiles(const std::wstring& folder) {
  return platform::ListFiles(folder);
}

FileDeps& RealFiles() {
  // Never destroyed: a detached thread may still write when the process ends.
  static FileDeps& files = *new ComputerFiles;
  return files;
}

}  // namespace platform
