#include "platform/user_folders_win.h"

#include "platform/files.h"
#include "platform/path.h"
#include "text/strings.h"
// After the SDK, which it needs.
#include <sddl.h>

namespace platform {
namespace {

// `path` and its parent folders, longest first, down to the trusted one.
std::vector<std::wstring> Chain(const std::wstring& path, OwnParts parts) {
  std::vector<std::wstring> chain = {path};
  for (OwnParts i = 0; i < parts; ++i) chain.push_back(ParentFolder(chain.back()));
  return chain;
}

bool IsLinkAt(const std::wstring& path) {
  const DWORD attributes = ::GetFileAttributesW(path.c_str());
  return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0;
}

// The file's path with all links resolved; empty when the file system does not support the query.
std::wstring RealPath(HANDLE file) {
  const DWORD neededUnits = ::GetFinalPathNameByHandleW(file, nullptr, 0, FILE_NAME_NORMALIZED);
  std::wstring path(neededUnits, L'\0');
  const DWORD lengthUnits =
      ::GetFinalPathNameByHandleW(file, path.data(), neededUnits, FILE_NAME_NORMALIZED);
  path.resize(lengthUnits < neededUnits ? lengthUnits : 0);
  return path;
}

std::wstring RealFolder(const std::wstring& folder) {
  // With a backslash, because "C:" alone names the working folder of the drive.
  const FileHandle handle(::CreateFileW((folder + L'\\').c_str(), 0, kShareAll, nullptr,
                                        OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr));
  return handle ? RealPath(handle.Get()) : std::wstring();
}

// Whether the file that was opened by `path` is really there. Checks attributes and resolved paths:
// a file system without resolved paths either has no links or shows them as attributes.
bool LiesAt(HANDLE file, const std::wstring& path, OwnParts parts) {
  const std::vector<std::wstring> chain = Chain(path, parts);
  for (OwnParts i = 0; i < parts; ++i) {
    if (IsLinkAt(chain[static_cast<std::size_t>(i)])) return false;
  }
  const std::wstring& trusted = chain.back();
  const std::wstring real = RealPath(file);
  const std::wstring realTrusted = RealFolder(trusted);
  if (real.empty() || realTrusted.empty()) return true;
  const std::wstring wanted = JoinPath(realTrusted, path.substr(trusted.size() + 1));
  return text::FoldCase(real) == text::FoldCase(wanted);
}

SystemResult WriteContents(HANDLE file, const std::string& bytes) {
  DWORD takenBytes = 0;
  // Truncated only here: the file is known to be in its place.
  if (!::SetEndOfFile(file) ||
      !::WriteFile(file, bytes.data(), static_cast<DWORD>(bytes.size()), &takenBytes, nullptr)) {
    const DWORD error = ::GetLastError();
    return {false, error};
  }
  if (takenBytes != bytes.size()) return {false, ERROR_DISK_FULL};
  return {true, 0};
}

struct LocalMemoryTraits {
  using Raw = void*;
  static Raw Invalid() noexcept { return nullptr; }
  static bool IsValid(Raw memory) noexcept { return memory != nullptr; }
  static void Close(Raw memory) noexcept { ::LocalFree(memory); }
};
using LocalMemory = UniqueHandle<LocalMemoryTraits>;

// Owner and group: administrators. The access list inherits nothing and is inherited: full rights
// for the system and administrators, reading and running for users.
constexpr wchar_t kOwnersText[] = L"O:BAG:BAD:P(A;OICI;FA;;;SY)(A;OICI;FA;;;BA)(A;OICI;FRFX;;;BU)";

LocalMemory Owners() {
  void* descriptor = nullptr;
  ::ConvertStringSecurityDescriptorToSecurityDescriptorW(kOwnersText, SDDL_REVISION_1, &descriptor,
                                                         nullptr);
  return LocalMemory(descriptor);
}

// Does not follow a link. While this handle is open, the file cannot be renamed or deleted.
FileHandle OpenForOwners(const std::wstring& path) {
  // Without one of the rights to read, write or delete, Windows ignores the share mode.
  constexpr DWORD kAccess = FILE_READ_DATA | READ_CONTROL | WRITE_DAC | WRITE_OWNER;
  return FileHandle(::CreateFileW(
      path.c_str(), kAccess, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING,
      FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OPEN_REPARSE_POINT, nullptr));
}

bool SetOwners(HANDLE file, void* owners) {
  constexpr SECURITY_INFORMATION kList = DACL_SECURITY_INFORMATION;
  if (::SetKernelObjectSecurity(file, OWNER_SECURITY_INFORMATION | kList, owners)) return true;
  // Without the right to change the owner, the access list can still be set.
  return ::SetKernelObjectSecurity(file, kList, owners) != FALSE;
}

// An unsupported query counts as "no links".
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
  // The open handle would prevent the deletion, which leaves a target or second name alone.
  file.Reset();
  ::DeleteFileW(path.c_str());
}

}  // namespace

std::optional<LinkFacts> AskForLinks(HANDLE file) {
  BY_HANDLE_FILE_INFORMATION info{};
  if (!::GetFileInformationByHandle(file, &info)) return std::nullopt;
  return LinkFacts{(info.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0,
                   info.nNumberOfLinks > 1};
}

UnlinkedFile OpenUnlinked(const std::wstring& path, OwnParts parts, DWORD access, DWORD share) {
  UnlinkedFile opened;
  // CreateFile sets the last error on success, too: 0 for a new file, else ERROR_ALREADY_EXISTS.
  opened.handle.Reset(::CreateFileW(path.c_str(), access | FILE_READ_ATTRIBUTES, share, nullptr,
                                    OPEN_ALWAYS,
                                    FILE_ATTRIBUTE_NORMAL | FILE_FLAG_OPEN_REPARSE_POINT, nullptr));
  const DWORD error = ::GetLastError();
  opened.isNew = error != ERROR_ALREADY_EXISTS;
  if (!opened.handle) {
    opened.error = error;
    return opened;
  }
  const std::optional<LinkFacts> links = AskForLinks(opened.handle.Get());
  if (!links || links->isLink || links->hasSecondName ||
      !LiesAt(opened.handle.Get(), path, parts)) {
    // Checked after opening: a check before could be outrun by a link placed in between.
    opened.handle.Reset();
    opened.error = ERROR_CANT_ACCESS_FILE;
    if (opened.isNew) ::DeleteFileW(path.c_str());  // empty, and in the wrong place
  }
  return opened;
}

SystemResult WriteUnlinkedFile(const std::wstring& path, OwnParts parts, const std::string& bytes) {
  const UnlinkedFile file = OpenUnlinked(path, parts, GENERIC_WRITE, 0);
  if (!file.handle) return {false, file.error};
  return WriteContents(file.handle.Get(), bytes);
}

bool CreateUnlinkedFolders(const std::wstring& folder, OwnParts parts) {
  const std::vector<std::wstring> chain = Chain(folder, parts);
  CreateFolders(chain.back());
  // One by one from the trusted folder: a call for the whole path would follow links.
  for (OwnParts i = parts; i > 0; --i) {
    const std::wstring& path = chain[static_cast<std::size_t>(i - 1)];
    if (::CreateDirectoryW(path.c_str(), nullptr)) continue;
    const DWORD attributes = ::GetFileAttributesW(path.c_str());
    constexpr DWORD kLooked = FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_REPARSE_POINT;
    if (attributes == INVALID_FILE_ATTRIBUTES) return false;
    if ((attributes & kLooked) != FILE_ATTRIBUTE_DIRECTORY) return false;
  }
  return true;
}

FileHandle TakeFolderForAdministrators(const std::wstring& folder,
                                       const std::vector<std::wstring>& files) {
  const LocalMemory owners = Owners();
  if (!owners) return {};
  CreateFolders(ParentFolder(folder));
  SECURITY_ATTRIBUTES attributes{sizeof(attributes), owners.Get(), FALSE};
  ::CreateDirectoryW(folder.c_str(), &attributes);

  // Whoever created the folder, the open handle pins it before its rights are changed.
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
