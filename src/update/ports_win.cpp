#include <chrono>
#include <optional>
#include <thread>

#include "platform/files.h"
#include "platform/path.h"
#include "platform/process_win.h"
#include "platform/safe_files.h"
#include "platform/windows_sdk.h"
#include "text/utf8.h"
#include "update/apply_update.h"
#include "update/update_check.h"
#include "update/update_log.h"
#include "update/updater_start.h"

namespace update {
namespace {

constexpr wchar_t kDownloadName[] = L"Velmarine.Client.update.exe";
constexpr wchar_t kUnreadable[] = L"无法读取下载的新程序（错误码 ";
constexpr char kUtf8Mark[] = "\xEF\xBB\xBF";

// A file of this name in the temporary folder; empty when there is no such folder.
std::wstring TemporaryPath(const wchar_t* name) {
  const std::wstring folder = platform::TemporaryFolder();
  return folder.empty() ? folder : folder + name;
}

SwapFiles RealSwapFiles() {
  SwapFiles files;
  files.isFile = platform::IsFile;
  files.hold = platform::HoldFile;
  files.writeNew = platform::WriteNewFile;
  files.moveOver = platform::MoveFileOver;
  files.remove = platform::DeleteAnyFile;
  return files;
}

// Beside the settings: it is remembered for the user, wherever the program lies.
std::wstring TryPath() {
  return platform::JoinPath(platform::RoamingAppDataFolder(), L"Velmarine\\Client.update.json");
}

std::optional<UpdateTry> LastTry() {
  const std::optional<std::string> bytes = platform::ReadFileBytes(TryPath());
  return bytes ? ParseUpdateTry(text::FromUtf8(*bytes)) : std::nullopt;
}

bool KeepTry(const UpdateTry& record) {
  const std::wstring path = TryPath();
  return platform::CreateFolders(platform::ParentFolder(path)) &&
         platform::WriteFileDurably(path, text::ToUtf8(UpdateTryText(record))).succeeded;
}

std::wstring WhyFileNotTrusted(const std::wstring& path, const ProgramIdentity& self) {
  if (self.signerKeySha256.empty()) return {};
  const platform::HeldFile held = platform::HoldFile(path);
  if (!held.result.succeeded) return kUnreadable + std::to_wstring(held.result.errorCode) + L"）。";
  return WhyNotTrusted(held, path, self);
}

std::int64_t NowSeconds() {
  using std::chrono::system_clock;
  return std::chrono::duration_cast<std::chrono::seconds>(system_clock::now().time_since_epoch())
      .count();
}

}  // namespace

void WriteUpdateLog(std::wstring_view message) {
  const std::wstring path = TemporaryPath(kUpdateLogName);
  if (path.empty()) return;
  platform::AppendToFile(path, 1, kUtf8Mark,
                         text::ToUtf8(UpdateLogLine(platform::LocalTimeNow(), message)));
}

CheckPorts RealCheckPorts(const ProgramIdentity& self, const std::stop_token& closing) {
  CheckPorts ports;
  ports.closing = closing;
  ports.currentVersion = self.version;
  ports.downloadTarget = TemporaryPath(kDownloadName);
  ports.sendJsonRequest = service::RealJsonRequester(closing);
  ports.downloadFile = service::RealDownloader(closing);
  ports.probeReplacement = [](std::uint64_t sizeBytes) {
    return platform::ProbeReplacement(platform::ProgramPath(), sizeBytes);
  };
  ports.sizeBytes = [](const std::wstring& path) {
    return platform::FileSizeBytes(path).value_or(0);
  };
  ports.whyNotTrusted = [self](const std::wstring& path) { return WhyFileNotTrusted(path, self); };
  ports.nowSeconds = NowSeconds;
  ports.lastTry = LastTry;
  ports.keepTry = KeepTry;
  ports.startUpdater = [](const std::wstring& downloadedPath) {
    return StartUpdater(downloadedPath, RealUpdaterPorts());
  };
  ports.deleteFile = [](const std::wstring& path) { platform::DeleteFileAt(path); };
  ports.endProcess = [] { platform::EndProcessAtOnce(0); };
  return ports;
}

UpdaterPorts RealUpdaterPorts() {
  UpdaterPorts ports;
  ports.programPath = platform::ProgramPath();
  ports.processId = ::GetCurrentProcessId();
  ports.copyOver = [](const std::wstring& from, const std::wstring& to) {
    platform::CopyFileOver(from, to);
  };
  ports.isFile = platform::IsFile;
  ports.startHidden = [](const std::wstring& commandLine) {
    return platform::StartHiddenProgram(commandLine).succeeded;
  };
  return ports;
}

ApplyPorts RealApplyPorts(const ProgramIdentity& self, std::function<void()> prepareLogFiles) {
  ApplyPorts ports;
  ports.files = RealSwapFiles();
  ports.waitForEnd = platform::WaitForProcessEnd;
  ports.pause = [](std::chrono::milliseconds duration) { std::this_thread::sleep_for(duration); };
  ports.whyNotTrusted = [self](const platform::HeldFile& file, const std::wstring& path) {
    return WhyNotTrusted(file, path, self);
  };
  ports.start = platform::StartProgram;
  ports.prepareLogFiles = std::move(prepareLogFiles);
  ports.writeLog = WriteUpdateLog;
  return ports;
}

}  // namespace update
