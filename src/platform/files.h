#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/system_error.h"

namespace platform {

// Whole-file access by UTF-16 path. Nothing here throws or reports; the return value says it all.

// The file's bytes; empty optional when it cannot be opened or read.
std::optional<std::string> ReadFileBytes(const std::wstring& path);

// Replaces the file with `bytes` in one pass. False when it could not be opened or fully written.
bool WriteFileBytes(const std::wstring& path, const std::string& bytes);

// The same, and returns once the disk has it: after a success not even a power cut loses it. After
// a failure the file may be missing, empty or cut short.
SystemResult WriteFileDurably(const std::wstring& path, const std::string& bytes);

// Appends `bytes` to the file at `path`; a file that did not exist is made and begins with `mark`.
// Others may read it meanwhile. A file that cannot be opened is left as it is; so is, on Windows,
// one that is reached through a link among the last `ownParts` parts of the path
// (user_folders_win.h).
void AppendToFile(const std::wstring& path, int ownParts, std::string_view mark,
                  std::string_view bytes);

// True when `path` names an existing file that is not a folder.
bool IsFile(const std::wstring& path);

// The size of a file that is no folder; empty optional when there is none.
std::optional<std::uint64_t> FileSizeBytes(const std::wstring& path);

// The names of the folders in `folder`, without "." and "..", in the system's order, links to
// folders among them; none when it cannot be listed.
std::vector<std::wstring> ListFolders(const std::wstring& folder);

// The same for what is no folder.
std::vector<std::wstring> ListFiles(const std::wstring& folder);

// False when the file is still there afterwards.
bool DeleteFileAt(const std::wstring& path);

// Creates the folder and its missing parents; an existing folder is fine. False on failure.
bool CreateFolders(const std::wstring& path);

// A file's bytes as FileDeps reads them.
struct FileContent {
  bool exists = false;
  std::optional<std::string> bytes;  // empty for a file that exists but cannot be read
};

// The files of this computer, or a test's in memory. What acts on files and has to be tested
// without a disk takes this. Any thread.
class FileDeps {
 public:
  FileDeps() = default;
  FileDeps(const FileDeps&) = delete;
  FileDeps& operator=(const FileDeps&) = delete;
  virtual ~FileDeps() = default;

  virtual FileContent Read(const std::wstring& path) = 0;
  // Replaces or creates the file, with its folder, and returns once the disk has it. Returns an
  // empty text on success, else the system's reason.
  virtual std::wstring Write(const std::wstring& path, const std::string& bytes) = 0;
  virtual void Delete(const std::wstring& path) = 0;
  // As the functions above.
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
