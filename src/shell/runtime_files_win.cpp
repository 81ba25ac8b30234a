#include "shell/runtime_files_win.h"

#include <algorithm>
#include <cstdint>
#include <optional>
#include <span>

#include "platform/files.h"
#include "platform/handles_win.h"
#include "platform/modules_win.h"
#include "platform/path.h"
#include "platform/signature.h"
#include "platform/user_folders_win.h"
#include "settings/settings_file.h"
#include "shell/command_line.h"
#include "text/utf8.h"

namespace shell {
namespace {

constexpr const wchar_t* kDriverFiles[] = {L"WinDivert.dll", L"WinDivert64.sys"};

// "Velmarine", "Runtime" and the file lie in folders that the user controls.
constexpr platform::OwnParts kOwnParts = 3;
constexpr wchar_t kDownloadedRustDesk[] = L"rustdesk.exe";

constexpr wchar_t kForeignLibrary[] =
    L"警告：运行目录中的 WinDivert.dll 不是本程序自带的文件，仍按原样使用。SHA-256：";

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

  platform::CreateUnlinkedFolders(platform::ParentFolder(targetPath), kOwnParts - 1);
  // By size alone: a driver in use cannot be replaced anyway, and its licence lets users put in
  // their own build.
  if (platform::FileSizeBytes(targetPath) == bytes.size()) return true;
  const auto* text = reinterpret_cast<const char*>(bytes.data());
  // Not through links: one placed by a user would redirect this write, which has an administrator's
  // rights.
  return platform::WriteUnlinkedFile(targetPath, kOwnParts, std::string(text, bytes.size()))
      .succeeded;
}

void CopyIfChanged(const std::wstring& source, const std::wstring& target) {
  const std::optional<std::uint64_t> sourceBytes = platform::FileSizeBytes(source);
  if (!sourceBytes || platform::FileSizeBytes(target) == sourceBytes) return;
  platform::CreateFolders(platform::ParentFolder(target));
  ::CopyFileW(source.c_str(), target.c_str(), FALSE);
}

std::wstring WhatIsForeignIn(HMODULE module, const std::wstring& folder) {
  const std::optional<std::string> found =
      platform::ReadFileBytes(platform::JoinPath(folder, kDriverFiles[0]));
  const auto carried = platform::FindResourceBytes(module, kDriverLibraryResource);
  // Loading the driver reports a missing library.
  if (!found || carried.empty()) return {};
  const auto foundBytes = std::as_bytes(std::span(found->data(), found->size()));
  if (std::ranges::equal(foundBytes, carried)) return {};
  return kForeignLibrary + text::FromUtf8(platform::Sha256Hex(foundBytes));
}

std::wstring LayOutRuntimeFiles(platform::FileHandle& folderHold) {
  const std::wstring folder = settings::RuntimeFolder();
  // Before the files are written: from here on only administrators can replace them.
  folderHold = platform::TakeFolderForAdministrators(
      folder, {kDriverFiles[0], kDriverFiles[1], kDownloadedRustDesk});
  HMODULE self = ::GetModuleHandleW(nullptr);
  LayOutRuntimeFilesFrom(self, folder, platform::ProgramPath());
  return WhatIsForeignIn(self, folder);
}

void LayOutRuntimeFilesFrom(HMODULE module, const std::wstring& folder,
                            const std::wstring& programPath) {
  // Each on its own: one that is in use does not keep the other from being written.
  ExtractResource(module, kDriverLibraryResource, platform::JoinPath(folder, kDriverFiles[0]));
  ExtractResource(module, kDriverResource, platform::JoinPath(folder, kDriverFiles[1]));
  // The tunnel loads the library by its name.
  ::SetDllDirectoryW(folder.c_str());
  if (const auto root = DevelopmentTreeRoot(programPath)) RefreshDevelopmentTree(*root);
}

}  // namespace shell
