#include "platform/files.h"

#include <utility>

#include "platform/path.h"

namespace platform {

FileContent ComputerFiles::Read(const std::wstring& path) {
  std::optional<std::string> bytes = ReadFileBytes(path);
  // A file that exists but cannot be read must not pass for a missing one.
  const bool exists = bytes || IsFile(path);
  return {exists, std::move(bytes)};
}

std::wstring ComputerFiles::Write(const std::wstring& path, const std::string& bytes) {
  // Not checked: without the folder the write fails, with the system's reason.
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
