#include "platform/unlinked_file.h"

#include <vector>

#include "platform/files.h"
#include "platform/path.h"
#include "text/strings.h"

namespace platform {
namespace {

constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

// `path` and the folders around it, the longest first: `parts` of them, and the trusted one.
std::vector<std::wstring> Chain(const std::wstring& path, OwnParts parts) {
  std::vector<std::wstring> chain = {path};
  for (OwnParts i = 0; i < parts; ++i) chain.push_back(ParentFolder(chain.back()));
  return chain;
}

bool IsLinkAt(const std::wstring& path) {
  const DWORD attributes = ::GetFileAttributesW(path.c_str());
  return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0;
}

// Where the file really lies, all links resolved; empty when the file system cannot tell.
std::wstring RealPath(HANDLE file) {
  const DWORD neededUnits = ::GetFinalPathNameByHandleW(file, nullptr, 0, FILE_NAME_NORMALIZED);
  std::wstring path(neededUnits, L'\0');
  const DWORD lengthUnits =
      ::GetFinalPathNameByHandleW(file, path.data(), neededUnits, FILE_NAME_NORMALIZED);
  path.resize(lengthUnits < neededUnits ? lengthUnits : 0);
  return path;
}

std::wstring RealFolder(const std::wstring& folder) {
  const FileHandle handle(::CreateFileW((folder + L'\\').c_str(), 0, kShareAll, nullptr,
                                        OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr));
  return handle ? RealPath(handle.Get()) : std::wstring();
}

// Whether what was opened as `path` lies there. A file system that cannot tell where has no links,
// or tells of them by their attributes.
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
  if (!::SetEndOfFile(file) ||
      !::WriteFile(file, bytes.data(), static_cast<DWORD>(bytes.size()), &takenBytes, nullptr)) {
    const DWORD error = ::GetLastError();
    return {false, error};
  }
  if (takenBytes != bytes.size()) return {false, ERROR_DISK_FULL};
  return {true, 0};
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
  // CreateFile resets the last error when it makes the file, and says when it did not have to.
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
    opened.handle.Reset();
    opened.error = ERROR_CANT_ACCESS_FILE;
    if (opened.isNew) ::DeleteFileW(path.c_str());  // an empty file, where it does not belong
  }
  return opened;
}

SystemResult WriteUnlinkedFile(const std::wstring& path, OwnParts parts, const std::string& bytes) {
  const UnlinkedFile file = OpenUnlinked(path, parts, GENERIC_WRITE, 0);
  if (!file.handle) return {false, file.error};
  return WriteContents(file.handle.Get(), bytes);
}

void AppendToFile(const std::wstring& path, int ownParts, std::string_view mark,
                  std::string_view bytes) {
  const UnlinkedFile file = OpenUnlinked(path, ownParts, FILE_APPEND_DATA, FILE_SHARE_READ);
  if (!file.handle) return;
  for (const std::string_view part : {file.isNew ? mark : std::string_view(), bytes}) {
    if (part.empty()) continue;
    DWORD writtenBytes = 0;
    ::WriteFile(file.handle.Get(), part.data(), static_cast<DWORD>(part.size()), &writtenBytes,
                nullptr);
  }
}

bool CreateUnlinkedFolders(const std::wstring& folder, OwnParts parts) {
  const std::vector<std::wstring> chain = Chain(folder, parts);
  CreateFolders(chain.back());
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

}  // namespace platform
