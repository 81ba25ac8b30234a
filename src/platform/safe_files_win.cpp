#include "platform/safe_files.h"

#include <algorithm>
#include <cstdint>

#include "platform/handles_win.h"
#include "platform/path.h"

namespace platform {
namespace {

constexpr std::int64_t kLongestHeldBytes = std::int64_t{512} << 20;
constexpr std::size_t kReadBytes = std::size_t{1} << 20;

HeldFile NotHeld(DWORD error) {
  HeldFile held;
  held.result = {false, error};
  return held;
}

// A file system without this query has no links.
bool IsLink(HANDLE file) {
  FILE_ATTRIBUTE_TAG_INFO info{};
  return ::GetFileInformationByHandleEx(file, FileAttributeTagInfo, &info, sizeof(info)) != FALSE &&
         (info.FileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0;
}

// False, with the last error set, when the file ends early or cannot be read.
bool ReadAll(HANDLE file, std::string& bytes) {
  std::size_t done = 0;
  while (done < bytes.size()) {
    const auto wanted = static_cast<DWORD>(std::min(bytes.size() - done, kReadBytes));
    DWORD readBytes = 0;
    if (!::ReadFile(file, bytes.data() + done, wanted, &readBytes, nullptr)) return false;
    if (readBytes == 0) {
      ::SetLastError(ERROR_HANDLE_EOF);
      return false;
    }
    done += readBytes;
  }
  return true;
}

constexpr wchar_t kPartSuffix[] = L".part";
constexpr wchar_t kProbeSuffix[] = L".probe";
constexpr std::size_t kWriteBytes = std::size_t{1} << 20;

SystemResult Failure() {
  const DWORD error = ::GetLastError();
  return {false, error};
}

// Windows refuses to delete or replace a read-only file.
void AllowReplacing(const std::wstring& extendedPath) {
  constexpr DWORD kLooked = FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_DIRECTORY;
  const DWORD attributes = ::GetFileAttributesW(extendedPath.c_str());
  if (attributes != INVALID_FILE_ATTRIBUTES && (attributes & kLooked) == FILE_ATTRIBUTE_READONLY) {
    ::SetFileAttributesW(extendedPath.c_str(), FILE_ATTRIBUTE_NORMAL);
  }
}

// CREATE_NEW never follows a link: it fails if anything is still at the path.
FileHandle CreateFresh(const std::wstring& extendedPath, DWORD access, DWORD flags) {
  return FileHandle(::CreateFileW(extendedPath.c_str(), access, 0, nullptr, CREATE_NEW,
                                  FILE_ATTRIBUTE_NORMAL | flags, nullptr));
}

SystemResult WriteAll(HANDLE file, const std::string& bytes) {
  std::size_t done = 0;
  while (done < bytes.size()) {
    const auto chunkBytes = static_cast<DWORD>(std::min(bytes.size() - done, kWriteBytes));
    DWORD takenBytes = 0;
    if (!::WriteFile(file, bytes.data() + done, chunkBytes, &takenBytes, nullptr)) return Failure();
    // A full disk may accept fewer bytes without reporting an error.
    if (takenBytes != chunkBytes) return {false, ERROR_DISK_FULL};
    done += takenBytes;
  }
  // All bytes were accepted; the caller decides whether an unconfirmed write matters.
  if (::FlushFileBuffers(file)) return {true, 0};
  const DWORD flushError = ::GetLastError();
  return {true, flushError};
}

}  // namespace

HeldFile HoldFile(const std::wstring& path) {
  // Shares reading alone: until the handle is closed, no one can write, rename or delete the file.
  FileHandle file(::CreateFileW(ExtendedPath(path).c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr,
                                OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL | FILE_FLAG_OPEN_REPARSE_POINT,
                                nullptr));
  const DWORD openError = ::GetLastError();
  if (!file) return NotHeld(openError);
  if (IsLink(file.Get())) return NotHeld(ERROR_CANT_ACCESS_FILE);

  LARGE_INTEGER size{};
  if (!::GetFileSizeEx(file.Get(), &size)) {
    const DWORD error = ::GetLastError();
    return NotHeld(error);
  }
  if (size.QuadPart > kLongestHeldBytes) return NotHeld(ERROR_FILE_TOO_LARGE);

  HeldFile held;
  held.bytes.resize(static_cast<std::size_t>(size.QuadPart));
  if (!ReadAll(file.Get(), held.bytes)) {
    const DWORD error = ::GetLastError();
    return NotHeld(error);
  }
  held.result = {true, 0};
  held.handle = std::shared_ptr<void>(file.Release(), [](HANDLE raw) { ::CloseHandle(raw); });
  return held;
}

SystemResult WriteNewFile(const std::wstring& path, const std::string& bytes) {
  const std::wstring extended = ExtendedPath(path);
  DeleteAnyFile(path);
  FileHandle file = CreateFresh(extended, GENERIC_WRITE, 0);
  if (!file) return Failure();
  const SystemResult written = WriteAll(file.Get(), bytes);
  file.Reset();  // an open file cannot be deleted
  if (!written.succeeded) ::DeleteFileW(extended.c_str());
  return written;
}

SystemResult CopyFileOver(const std::wstring& from, const std::wstring& to) {
  const HeldFile held = HoldFile(from);
  if (!held.result.succeeded) return held.result;
  // Not CopyFile: it would copy attributes and streams, such as the mark of a download.
  const std::wstring part = to + kPartSuffix;
  const SystemResult written = WriteNewFile(part, held.bytes);
  if (!written.succeeded) return written;
  const SystemResult moved = MoveFileOver(part, to);
  // `written`, not `moved`: it carries the code if the disk has not confirmed the bytes.
  if (moved.succeeded) return written;
  DeleteAnyFile(part);
  return moved;
}

SystemResult MoveFileOver(const std::wstring& from, const std::wstring& to) {
  // On the disk before the next step. A move to another volume fails: a copy is not one step.
  constexpr DWORD kFlags = MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH;
  const std::wstring extendedTo = ExtendedPath(to);
  AllowReplacing(extendedTo);
  if (::MoveFileExW(ExtendedPath(from).c_str(), extendedTo.c_str(), kFlags)) return {true, 0};
  return Failure();
}

void DeleteAnyFile(const std::wstring& path) {
  const std::wstring extended = ExtendedPath(path);
  AllowReplacing(extended);
  ::DeleteFileW(extended.c_str());
}

SystemResult ProbeReplacement(const std::wstring& path, std::uint64_t sizeBytes) {
  // Renaming requires DELETE access; Windows grants it even for a running program.
  const FileHandle itself(::CreateFileW(ExtendedPath(path).c_str(), DELETE, kShareAll, nullptr,
                                        OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
  if (!itself) return Failure();

  const std::wstring probePath = path + kProbeSuffix;
  DeleteAnyFile(probePath);
  // Deleted by the system with its handle, so that even a killed process leaves no probe.
  const FileHandle probe =
      CreateFresh(ExtendedPath(probePath), GENERIC_WRITE | DELETE, FILE_FLAG_DELETE_ON_CLOSE);
  if (!probe) return Failure();

  // If the free space is unknown, the write itself shows whether it suffices.
  ULARGE_INTEGER freeBytes{};
  const bool isKnown =
      ::GetDiskFreeSpaceExW(ParentFolder(path).c_str(), &freeBytes, nullptr, nullptr) != FALSE;
  if (isKnown && freeBytes.QuadPart < sizeBytes) return {false, ERROR_DISK_FULL};
  return {true, 0};
}

}  // namespace platform
