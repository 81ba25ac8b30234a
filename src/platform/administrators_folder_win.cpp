#include "platform/administrators_folder.h"

#include "platform/files.h"
#include "platform/path.h"
#include "platform/unlinked_file.h"
// After the SDK, which it needs.
#include <sddl.h>

namespace platform {
namespace {

struct LocalMemoryTraits {
  using Raw = void*;
  static Raw Invalid() noexcept { return nullptr; }
  static bool IsValid(Raw memory) noexcept { return memory != nullptr; }
  static void Close(Raw memory) noexcept { ::LocalFree(memory); }
};
using LocalMemory = UniqueHandle<LocalMemoryTraits>;

// Owner and group: administrators. A list that takes nothing from the folder above: all rights for
// the system and administrators, reading and running for users, and the same for what is made
// inside.
constexpr wchar_t kOwnersText[] = L"O:BAG:BAD:P(A;OICI;FA;;;SY)(A;OICI;FA;;;BA)(A;OICI;FRFX;;;BU)";

LocalMemory Owners() {
  void* descriptor = nullptr;
  ::ConvertStringSecurityDescriptorToSecurityDescriptorW(kOwnersText, SDDL_REVISION_1, &descriptor,
                                                         nullptr);
  return LocalMemory(descriptor);
}

// Not following a link; nobody can rename or delete what is open so.
FileHandle OpenForOwners(const std::wstring& path) {
  // Windows heeds what a handle does not share only where it may read, write or delete itself.
  constexpr DWORD kAccess = FILE_READ_DATA | READ_CONTROL | WRITE_DAC | WRITE_OWNER;
  return FileHandle(::CreateFileW(
      path.c_str(), kAccess, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING,
      FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OPEN_REPARSE_POINT, nullptr));
}

bool SetOwners(HANDLE file, void* owners) {
  constexpr SECURITY_INFORMATION kList = DACL_SECURITY_INFORMATION;
  if (::SetKernelObjectSecurity(file, OWNER_SECURITY_INFORMATION | kList, owners)) return true;
  // Somebody who may not give files to the administrators may still close the list.
  return ::SetKernelObjectSecurity(file, kList, owners) != FALSE;
}

// As far as the system can tell.
LinkFacts LinksOf(const FileHandle& file) {
  return AskForLinks(file.Get()).value_or(LinkFacts());
}

void TakeFile(const std::wstring& path, void* owners) {
  FileHandle file = OpenForOwners(path);
  if (!file) return;
  const LinkFacts links = LinksOf(file);
  if (!links.isLink && !links.hasSecondName) {
    SetOwners(file.Get(), owners);
    return;
  }
  file.Reset();
  ::DeleteFileW(path.c_str());
}

}  // namespace

FileHandle TakeFolderForAdministrators(const std::wstring& folder,
                                       const std::vector<std::wstring>& files) {
  const LocalMemory owners = Owners();
  if (!owners) return {};
  CreateFolders(ParentFolder(folder));
  SECURITY_ATTRIBUTES attributes{sizeof(attributes), owners.Get(), FALSE};
  ::CreateDirectoryW(folder.c_str(), &attributes);

  FileHandle held = OpenForOwners(folder);
  if (held && LinksOf(held).isLink) {
    held.Reset();
    ::RemoveDirectoryW(folder.c_str());
    ::CreateDirectoryW(folder.c_str(), &attributes);
    held = OpenForOwners(folder);
    if (held && LinksOf(held).isLink) held.Reset();
  }
  if (!held || !SetOwners(held.Get(), owners.Get())) return {};
  for (const std::wstring& name : files) TakeFile(JoinPath(folder, name), owners.Get());
  return held;
}

}  // namespace platform
