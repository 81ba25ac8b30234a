#include "shell/runtime_files_win.h"

#include <cstdint>
#include <optional>
#include <span>

#include "platform/files.h"
#include "platform/handles_win.h"
#include "platform/known_folders.h"
#include "platform/path.h"
#include "platform/resource_win.h"
#include "settings/runtime_folder.h"
#include "shell/development_tree.h"

namespace shell {
namespace {

constexpr const wchar_t* kDriverFiles[] = {L"WinDivert.dll", L"WinDivert64.sys"};

bool WriteAnew(const std::wstring& path, std::span<const std::byte> bytes) {
  const platform::FileHandle file(::CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr,
                                                CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
  if (!file) return false;
  DWORD writtenBytes = 0;
  return ::WriteFile(file.Get(), bytes.data(), static_cast<DWORD>(bytes.size()), &writtenBytes,
                     nullptr) != FALSE &&
         writtenBytes == bytes.size();
}

void RefreshDevelopmentTree(const std::wstring& root) {
  const std::wstring from = platform::JoinPath(root, L"windivert\\x64");
  const std::wstring to = platform::JoinPath(root, L"src\\EngineerClient\\EmbeddedRuntime");
  for (const wchar_t* name : kDriverFiles) {
    CopyIfChanged(platform::JoinPath(from, name), platform::JoinPath(to, name));
  }
}

}  // namespace

bool ExtractResource(HMODULE module, WORD id, const std::wstring& targetPath) {
  const std::span<const std::byte> bytes = platform::FindResourceBytes(module, id);
  if (bytes.empty()) return false;

  platform::CreateFolders(platform::ParentFolder(targetPath));
  if (platform::FileSizeBytes(targetPath) == bytes.size()) return true;
  return WriteAnew(targetPath, bytes);
}

void CopyIfChanged(const std::wstring& source, const std::wstring& target) {
  const std::optional<std::uint64_t> sourceBytes = platform::FileSizeBytes(source);
  if (!sourceBytes || platform::FileSizeBytes(target) == sourceBytes) return;
  platform::CreateFolders(platform::ParentFolder(target));
  ::CopyFileW(source.c_str(), target.c_str(), FALSE);
}

void LayOutRuntimeFiles() {
  LayOutRuntimeFilesFrom(::GetModuleHandleW(nullptr), settings::RuntimeFolder(),
                         platform::ProgramPath());
}

void LayOutRuntimeFilesFrom(HMODULE module, const std::wstring& folder,
                            const std::wstring& programPath) {
  ExtractResource(module, kDriverLibraryResource, platform::JoinPath(folder, kDriverFiles[0]));
  ExtractResource(module, kDriverResource, platform::JoinPath(folder, kDriverFiles[1]));
  ::SetDllDirectoryW(folder.c_str());
  if (const auto root = DevelopmentTreeRoot(programPath)) RefreshDevelopmentTree(*root);
}

}  // namespace shell
