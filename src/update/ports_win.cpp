#include <thread>

#include "platform/file_swap.h"
#include "platform/files.h"
#include "platform/known_folders.h"
#include "platform/process_win.h"
#include "platform/windows_sdk.h"
#include "text/utf8.h"
#include "update/apply_update.h"
#include "update/update_check.h"
#include "update/update_log.h"
#include "update/updater_start.h"

namespace update {
namespace {

constexpr wchar_t kDownloadName[] = L"Velmarine.Client.update.exe";
constexpr char kUtf8Mark[] = "\xEF\xBB\xBF";

// A file of this name in the temporary folder; empty when there is no such folder.
std::wstring TemporaryPath(const wchar_t* name) {
  const std::wstring folder = platform::TemporaryFolder();
  return folder.empty() ? folder : folder + name;
}

SwapFiles RealSwapFiles() {
  SwapFiles files;
  files.isFile = platform::IsFile;
  files.remove = [](const std::wstring& path) { platform::DeleteFileAt(path); };
  files.moveOver = [](const std::wstring& from, const std::wstring& to) {
    platform::MoveFileOver(from, to);
  };
  files.copyOver = platform::CopyFileOver;
  return files;
}

}  // namespace

void WriteUpdateLog(std::wstring_view message) {
  const std::wstring path = TemporaryPath(kUpdateLogName);
  if (path.empty()) return;
  platform::AppendToFile(path, kUtf8Mark,
                         text::ToUtf8(UpdateLogLine(platform::LocalTimeNow(), message)));
}

CheckPorts RealCheckPorts(const std::wstring& currentVersion, const std::stop_token& closing) {
  CheckPorts ports;
  ports.closing = closing;
  ports.currentVersion = currentVersion;
  ports.downloadTarget = TemporaryPath(kDownloadName);
  ports.sendJsonRequest = service::RealJsonRequester(closing);
  ports.downloadFile = service::RealDownloader(closing);
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

ApplyPorts RealApplyPorts(std::function<void()> prepareLogFiles) {
  ApplyPorts ports;
  ports.files = RealSwapFiles();
  ports.waitForEnd = platform::WaitForProcessEnd;
  ports.pause = [](std::chrono::milliseconds duration) { std::this_thread::sleep_for(duration); };
  ports.start = platform::StartProgram;
  ports.prepareLogFiles = std::move(prepareLogFiles);
  ports.writeLog = WriteUpdateLog;
  return ports;
}

}  // namespace update
