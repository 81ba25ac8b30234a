#include "platform/file_swap.h"

#include <algorithm>

#include "platform/handles_win.h"
#include "platform/held_file.h"
#include "platform/path.h"

namespace platform {
namespace {

constexpr wchar_t kPartSuffix[] = L".part";
constexpr wchar_t kProbeSuffix[] = L".probe";
constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
constexpr std::size_t kWriteBytes = std::size_t{1} << 20;

SystemResult Failure() {
  const DWORD error = ::GetLastError();
  return {false, error};
}

// Windows neither deletes nor replaces a read-only file.
void AllowReplacing(const std::wstring& extendedPath) {
  constexpr DWORD kLooked = FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_DIRECTORY;
  const DWORD attributes = ::GetFileAttributesW(extendedPath.c_str());
  if (attributes != INVALID_FILE_ATTRIBUTES && (attributes & kLooked) == FILE_ATTRIBUTE_READONLY) {
    ::SetFileAttributesW(extendedPath.c_str(), FILE_ATTRIBUTE_NORMAL);
  }
}

// CREATE_NEW never follows a link: whatever still lies at the path fails it.
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
    // A full disk may take less than asked for without calling it an error.
    if (takenBytes != chunkBytes) return {false, ERROR_DISK_FULL};
    done += takenBytes;
  }
  if (::FlushFileBuffers(file)) return {true, 0};
  const DWORD flushError = ::GetLastError();
  return {true, flushError};
}

}  // namespace

SystemResult WriteNewFile(const std::wstring& path, const std::string& bytes) {
  const std::wstring extended = ExtendedPath(path);
  DeleteAnyFile(path);
  FileHandle file = CreateFresh(extended, GENERIC_WRITE, 0);
  if (!file) return Failure();
  const SystemResult written = WriteAll(file.Get(), bytes);
  file.Reset();
  if (!written.succeeded) ::DeleteFileW(extended.c_str());
  return written;
}

SystemResult CopyFileOver(const std::wstring& from, const std::wstring& to) {
  const HeldFile held = HoldFile(from);
  if (!held.result.succeeded) return held.result;
  const std::wstring part = to + kPartSuffix;
  const SystemResult written = WriteNewFile(part, held.bytes);
  if (!written.succeeded) return written;
  const SystemResult moved = MoveFileOver(part, to);
  if (moved.succeeded) return written;
  DeleteAnyFile(part);
  return moved;
}

SystemResult MoveFileOver(const std::wstring& from, const std::wstring& to) {
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
  const FileHandle itself(::CreateFileW(ExtendedPath(path).c_str(), DELETE, kShareAll, nullptr,
                                        OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
  if (!itself) return Failure();

  const std::wstring probePath = path + kProbeSuffix;
  DeleteAnyFile(probePath);
  const FileHandle probe =
      CreateFresh(ExtendedPath(probePath), GENERIC_WRITE | DELETE, FILE_FLAG_DELETE_ON_CLOSE);
  if (!probe) return Failure();

  ULARGE_INTEGER freeBytes{};
  const bool isKnown =
      ::GetDiskFreeSpaceExW(ParentFolder(path).c_str(), &freeBytes, nullptr, nullptr) != FALSE;
  if (isKnown && freeBytes.QuadPart < sizeBytes) return {false, ERROR_DISK_FULL};
  return {true, 0};
}

}  // namespace platform
