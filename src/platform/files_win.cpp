#include <algorithm>

#include "platform/files.h"
#include "platform/handles_win.h"
#include "platform/path.h"
#include "platform/user_folders_win.h"
// After the SDK, which it needs.
#include <shlobj.h>

namespace platform {
namespace {

struct FindHandleTraits {
  using Raw = HANDLE;
  static Raw Invalid() noexcept { return INVALID_HANDLE_VALUE; }
  static bool IsValid(Raw handle) noexcept { return handle != INVALID_HANDLE_VALUE; }
  static void Close(Raw handle) noexcept { ::FindClose(handle); }
};
using FindHandle = UniqueHandle<FindHandleTraits>;

constexpr DWORD kChunkBytes = 1 << 20;

bool IsFolder(const std::wstring& path) {
  const DWORD attributes = ::GetFileAttributesW(path.c_str());
  return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
}

// Starts at the drive and has backslashes only, as SHCreateDirectoryExW requires.
std::wstring AbsolutePath(const std::wstring& path) {
  const DWORD neededUnits = ::GetFullPathNameW(path.c_str(), 0, nullptr, nullptr);
  std::wstring absolute(neededUnits, L'\0');
  const DWORD lengthUnits = ::GetFullPathNameW(path.c_str(), neededUnits, absolute.data(), nullptr);
  absolute.resize(lengthUnits < neededUnits ? lengthUnits : 0);
  return absolute;
}

SystemResult LastFailure() {
  const DWORD error = ::GetLastError();
  return {false, error};
}

// Empties the file. Retries, because a virus scanner, a backup or a second client may hold the file
// for some milliseconds.
FileHandle OpenForWriting(const std::wstring& path) {
  constexpr int kAttempts = 6;
  constexpr DWORD kPauseMs = 20;
  for (int attempt = 1;; ++attempt) {
    FileHandle file(::CreateFileW(path.c_str(), GENERIC_WRITE, FILE_SHARE_READ, nullptr,
                                  CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
    // Other failures do not pass with time.
    if (file || ::GetLastError() != ERROR_SHARING_VIOLATION || attempt == kAttempts) return file;
    ::Sleep(kPauseMs);
  }
}

SystemResult WriteOver(const std::wstring& path, std::string_view bytes, bool flush) {
  const FileHandle file = OpenForWriting(path);
  if (!file) return LastFailure();
  while (!bytes.empty()) {
    const auto chunkBytes = static_cast<DWORD>(std::min<std::size_t>(bytes.size(), kChunkBytes));
    DWORD takenBytes = 0;
    if (!::WriteFile(file.Get(), bytes.data(), chunkBytes, &takenBytes, nullptr)) {
      return LastFailure();
    }
    // A full disk may accept fewer bytes without reporting an error.
    if (takenBytes != chunkBytes) return {false, ERROR_DISK_FULL};
    bytes.remove_prefix(chunkBytes);
  }
  // Without the flush a power cut may leave a short file or one full of zeros.
  if (flush && !::FlushFileBuffers(file.Get())) return LastFailure();
  return {true, 0};
}

// Either the folders, without "." and "..", or all others.
std::vector<std::wstring> ListNames(const std::wstring& folder, bool wantsFolders) {
  std::vector<std::wstring> names;
  WIN32_FIND_DATAW entry{};
  const FindHandle find(::FindFirstFileW(JoinPath(folder, L"*").c_str(), &entry));
  if (!find) return names;
  do {
    const std::wstring name = entry.cFileName;
    const bool isFolder = (entry.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
    if (isFolder == wantsFolders && name != L"." && name != L"..") names.push_back(name);
  } while (::FindNextFileW(find.Get(), &entry));
  return names;
}

}  // namespace

std::optional<std::string> ReadFileBytes(const std::wstring& path) {
  // Shares everything: reading must not keep another program from its file.
  const FileHandle file(::CreateFileW(path.c_str(), GENERIC_READ, kShareAll, nullptr, OPEN_EXISTING,
                                      FILE_ATTRIBUTE_NORMAL, nullptr));
  if (!file) return std::nullopt;
  std::string bytes;
  // Up to the end, not to a size asked for before: another program may be writing.
  for (;;) {
    const std::size_t before = bytes.size();
    bytes.resize(before + kChunkBytes);
    DWORD readBytes = 0;
    if (!::ReadFile(file.Get(), bytes.data() + before, kChunkBytes, &readBytes, nullptr)) {
      return std::nullopt;
    }
    bytes.resize(before + readBytes);
    if (readBytes == 0) return bytes;
  }
}

bool WriteFileBytes(const std::wstring& path, const std::string& bytes) {
  return WriteOver(path, bytes, false).succeeded;
}

SystemResult WriteFileDurably(const std::wstring& path, const std::string& bytes) {
  return WriteOver(path, bytes, true);
}

void AppendToFile(const std::wstring& path, int ownParts, std::string_view mark,
                  std::string_view bytes) {
  // With the right to append alone, Windows puts every write at the end of the file.
  const UnlinkedFile file = OpenUnlinked(path, ownParts, FILE_APPEND_DATA, FILE_SHARE_READ);
  if (!file.handle) return;
  for (const std::string_view part : {file.isNew ? mark : std::string_view(), bytes}) {
    if (part.empty()) continue;
    DWORD writtenBytes = 0;
    ::WriteFile(file.handle.Get(), part.data(), static_cast<DWORD>(part.size()), &writtenBytes,
                nullptr);
  }
}

bool IsFile(const std::wstring& path) {
  const DWORD attributes = ::GetFileAttributesW(path.c_str());
  return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) == 0;
}

std::optional<std::uint64_t> FileSizeBytes(const std::wstring& path) {
  WIN32_FILE_ATTRIBUTE_DATA found{};
  if (!::GetFileAttributesExW(path.c_str(), GetFileExInfoStandard, &found)) return std::nullopt;
  if ((found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0) return std::nullopt;
  return std::uint64_t{found.nFileSizeHigh} << 32 | found.nFileSizeLow;
}

std::vector<std::wstring> ListFolders(const std::wstring& folder) {
  return ListNames(folder, true);
}

std::vector<std::wstring> ListFiles(const std::wstring& folder) {
  return ListNames(folder, false);
}

bool DeleteFileAt(const std::wstring& path) {
  return ::DeleteFileW(path.c_str()) != FALSE || !IsFile(path);
}

bool CreateFolders(const std::wstring& path) {
  const std::wstring absolute = AbsolutePath(path);
  if (absolute.empty()) return false;
  // Fails for an existing folder, and when another process creates it at the same time.
  return ::SHCreateDirectoryExW(nullptr, absolute.c_str(), nullptr) == ERROR_SUCCESS ||
         IsFolder(absolute);
}

}  // namespace platform
