#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/system_error.h"

namespace platform {

// Files as a whole, by UTF-16 path. Failures are returned, never thrown. Any thread.

// Empty when the file cannot be opened or read.
std::optional<std::string> ReadFileBytes(const std::wstring& path);

// Replaces the file's contents in one pass. False when it could not be opened or fully written.
bool WriteFileBytes(const std::wstring& path, const std::string& bytes);

// Does the same and returns once the disk has the bytes, safe from a power cut. After a failure the
// file may be missing, empty or cut short.
SystemResult WriteFileDurably(const std::wstring& path, const std::string& bytes);

// Appends `bytes` to the file at `path`; creates a missing file, beginning with `mark`. Others may
// read it meanwhile. Does nothing if the file cannot be opened or, on Windows, is reached through a
// link among the last `ownParts` parts of the path (user_folders_win.h).
void AppendToFile(const std::wstring& path, int ownParts, std::string_view mark,
                  std::string_view bytes);

// True when `path` names an existing file that is not a folder.
bool IsFile(const std::wstring& path);

// Empty when there is no such file, or it is a folder.
std::optional<std::uint64_t> FileSizeBytes(const std::wstring& path);

// The names of the folders (and links to folders) in `folder`, without "." and "..", in the
// system's order; none when it cannot be listed.
std::vector<std::wstring> ListFolders(const std::wstring& folder);

// The names of all others.
std::vector<std::wstring> ListFiles(const std::wstring& folder);

// True when there is no such file any more.
bool DeleteFileAt(const std::wstring& path);

// Creates the folder and its missing parents. True when the folder exists afterwards.
bool CreateFolders(const std::wstring& path);

struct FileContent {
  bool exists = false;
  std::optional<std::string> bytes;  // empty for a file that exists but cannot be read
};

// The files of this computer or, in a test, in memory: for code whose tests need failing,
// unreadable or half-written files. Any thread.
class FileDeps {
 public:
  FileDeps() = default;
  FileDeps(const FileDeps&) = delete;
  FileDeps& operator=(const FileDeps&) = delete;
  virtual ~FileDeps() = default;

  virtual FileContent Read(const std::wstring& path) = 0;
  // Replaces or creates the file, and its folder, and returns once the disk has the bytes. Returns
  // the system's reason for a failure, empty on success.
  virtual std::wstring Write(const std::wstring& path, const std::string& bytes) = 0;
  virtual void Delete(const std::wstring& path) = 0;
  virtual std::vector<std::wstring> ListFolders(const std::wstring& folder) = 0;
  virtual std::vector<std::wstring> ListFiles(const std::wstring& folder) = 0;
};

class ComputerFiles : public FileDeps {
 public:
  FileContent Read(const std::wstring& path) override;
  std::wstring Write(const std::wstring& path, const std::string& bytes) override;
  void Delete(const std::wstring& path) override;
  std::vector<std::wstring> ListFolders(const std::wstring& folder) override;
  std::vector<std::wstring> ListFiles(const std::wstring& folder) override;
};

// This computer's files. Lives as long as the process.
FileDeps& RealFiles();

}  // namespace platform
