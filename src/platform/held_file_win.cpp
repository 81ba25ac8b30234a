#include "platform/held_file.h"

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

// A file system that cannot answer knows no links.
bool IsLink(HANDLE file) {
  FILE_ATTRIBUTE_TAG_INFO info{};
  return ::GetFileInformationByHandleEx(file, FileAttributeTagInfo, &info, sizeof(info)) != FALSE &&
         (info.FileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0;
}

// False, with the last error, when the file ends early or cannot be read.
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

}  // namespace

HeldFile HoldFile(const std::wstring& path) {
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

}  // namespace platform
