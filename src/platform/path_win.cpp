#include "platform/path.h"

#include <array>

#include "platform/unique_handle.h"
#include "platform/windows_sdk.h"
// After the SDK, which they need.
#include <knownfolders.h>
#include <objbase.h>
#include <shlobj.h>

namespace platform {
namespace {

struct TaskTextTraits {
  using Raw = wchar_t*;
  static Raw Invalid() noexcept { return nullptr; }
  static bool IsValid(Raw text) noexcept { return text != nullptr; }
  static void Close(Raw text) noexcept { ::CoTaskMemFree(text); }
};
using TaskText = UniqueHandle<TaskTextTraits>;

std::wstring KnownFolder(const KNOWNFOLDERID& id) {
  wchar_t* allocated = nullptr;
  const HRESULT result = ::SHGetKnownFolderPath(id, KF_FLAG_DEFAULT, nullptr, &allocated);
  const TaskText path(allocated);  // must be freed after a failure, too
  return SUCCEEDED(result) ? std::wstring(path.Get()) : std::wstring();
}

}  // namespace

std::wstring RoamingAppDataFolder() {
  return KnownFolder(FOLDERID_RoamingAppData);
}

std::wstring LocalAppDataFolder() {
  return KnownFolder(FOLDERID_LocalAppData);
}

std::wstring ProgramFilesFolder() {
  return KnownFolder(FOLDERID_ProgramFiles);
}

std::wstring ProgramFilesX86Folder() {
  return KnownFolder(FOLDERID_ProgramFilesX86);
}

std::wstring DesktopFolder() {
  return KnownFolder(FOLDERID_Desktop);
}

std::wstring WindowsFolder() {
  std::array<wchar_t, MAX_PATH> buffer{};
  const UINT lengthUnits = ::GetWindowsDirectoryW(buffer.data(), static_cast<UINT>(buffer.size()));
  return PathFromBuffer(buffer, lengthUnits);
}

std::wstring TemporaryFolder() {
  std::array<wchar_t, MAX_PATH> buffer{};
  const DWORD lengthUnits = ::GetTempPathW(static_cast<DWORD>(buffer.size()), buffer.data());
  return PathFromBuffer(buffer, lengthUnits);
}

std::wstring ProgramPath() {
  // Enough: Windows starts no program from a path of more than 259 characters.
  std::array<wchar_t, MAX_PATH> buffer{};
  const DWORD lengthUnits =
      ::GetModuleFileNameW(nullptr, buffer.data(), static_cast<DWORD>(buffer.size()));
  return PathFromBuffer(buffer, lengthUnits);
}

std::wstring ProgramFolder() {
  return ParentFolder(ProgramPath());
}

}  // namespace platform
