#include <utility>

#include "platform/clipboard.h"
#include "platform/files.h"
#include "platform/handles_win.h"
#include "platform/path.h"
#include "platform/user_folders_win.h"
#include "remote/remote_desktop.h"
#include "remote/rustdesk_program.h"
#include "settings/settings_file.h"
// Requires the SDK header above.
#include <shellapi.h>

namespace remote {

RustDeskFolders RealRustDeskFolders() {
  RustDeskFolders folders;
  folders.programFiles = platform::ProgramFilesFolder();
  folders.programFilesX86 = platform::ProgramFilesX86Folder();
  folders.localAppData = platform::LocalAppDataFolder();
  folders.roamingAppData = platform::RoamingAppDataFolder();
  folders.program = platform::ProgramFolder();
  folders.runtime = settings::RuntimeFolder();
  folders.windows = platform::WindowsFolder();
  return folders;
}

void LaunchProgram(const std::wstring& exePath, std::span<const std::wstring> arguments) {
  const std::wstring parameters = JoinArguments(arguments);
  SHELLEXECUTEINFOW info{};
  info.cbSize = sizeof(info);
  info.fMask = SEE_MASK_NOCLOSEPROCESS;
  info.lpFile = exePath.c_str();
  info.lpParameters = parameters.empty() ? nullptr : parameters.c_str();
  info.nShow = SW_SHOWNORMAL;
  // The result is ignored: the engineer sees whether a window appears.
  ::ShellExecuteExW(&info);
  const platform::ProcessHandle closedAtOnce(info.hProcess);  // the shell leaves closing it to us
}

std::shared_ptr<PasswordKeeper> MakePasswordKeeper() {
  // For no window: with an owner, only that window's own thread could copy.
  const auto copy = [](const std::wstring& text) { return platform::CopySecretToClipboard(text); };
  return std::make_shared<PasswordKeeper>(copy, platform::TakeSecretOffClipboard);
}

RealRemoteDesktopDeps::RealRemoteDesktopDeps(const std::shared_ptr<PasswordKeeper>& keeper,
                                             const std::stop_token& whenClosing, PasteNotice notice)
    : turn_{keeper, keeper->Begin(), whenClosing}, notice_(std::move(notice)) {
  folders = RealRustDeskFolders();
  closing = whenClosing;
}

service::HttpResponse RealRemoteDesktopDeps::SendJsonRequest(const std::wstring& method,
                                                             const std::wstring& url,
                                                             const std::wstring& body) {
  return service::SendJsonRequest(method, url, body, closing);
}

bool RealRemoteDesktopDeps::Download(const std::wstring& url, const std::wstring& target) {
  return service::DownloadFile(url, target, closing);
}

std::optional<std::uint64_t> RealRemoteDesktopDeps::SizeBytes(const std::wstring& path) {
  return platform::FileSizeBytes(path);
}

bool RealRemoteDesktopDeps::CreateFolders(const std::wstring& folder) {
  return platform::CreateFolders(folder);
}

bool RealRemoteDesktopDeps::Delete(const std::wstring& path) {
  return platform::DeleteFileAt(path);
}

std::vector<std::wstring> RealRemoteDesktopDeps::ListFolders(const std::wstring& folder) {
  return platform::ListFolders(folder);
}

void RealRemoteDesktopDeps::WriteConfigFile(const std::wstring& path, const std::string& bytes) {
  // These folders belong to users, and this program has an administrator's rights: a link that a
  // user put there must not redirect the write. RustDesk reads another file if this one fails.
  const std::wstring folder = platform::ParentFolder(path);
  platform::CreateUnlinkedFolders(folder, ConfigPartsOfUsers(folder, folders));
  platform::WriteUnlinkedFile(path, ConfigPartsOfUsers(path, folders), bytes);
}

void RealRemoteDesktopDeps::Launch(const std::wstring& exePath,
                                   std::span<const std::wstring> arguments) {
  LaunchProgram(exePath, arguments);
}

bool RealRemoteDesktopDeps::CopyPassword(const std::wstring& password) {
  return turn_.keeper->CopyPassword(turn_.session, password);
}

void RealRemoteDesktopDeps::StartPasswordPaste(const std::wstring& password,
                                               const std::wstring& rustDeskId,
                                               const std::wstring& startedPath) {
  // Shares the keeper: the detached thread may outlive this object.
  remote::StartPasswordPaste(password, rustDeskId,
                             std::make_shared<RealPasteDeps>(turn_, startedPath, notice_));
}

}  // namespace remote
