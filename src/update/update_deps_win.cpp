#include <span>
#include <thread>
#include <utility>

#include "platform/files.h"
#include "platform/path.h"
#include "platform/process_win.h"
#include "platform/safe_files.h"
#include "platform/signature.h"
#include "platform/windows_sdk.h"
#include "text/utf8.h"
#include "update/update_deps.h"
#include "update/versions.h"

namespace update {
namespace {

// Only a whole download bears this name: until then the file ends in ".download".
constexpr wchar_t kDownloadName[] = L"Velmarine.Client.update.exe";
constexpr wchar_t kUnreadable[] = L"无法读取下载的新程序（错误码 ";
constexpr char kUtf8Mark[] = "\xEF\xBB\xBF";

// A file of this name in the temporary folder; empty when there is no such folder.
std::wstring TemporaryPath(const wchar_t* name) {
  const std::wstring folder = platform::TemporaryFolder();
  return folder.empty() ? folder : folder + name;
}

// Beside the settings, because it belongs to the user and not to one copy of the program.
std::wstring TryPath() {
  return platform::JoinPath(platform::RoamingAppDataFolder(), L"Velmarine\\Client.update.json");
}

}  // namespace

std::wstring WhyNotTrusted(const platform::HeldFile& file, const std::wstring& path,
                           const ProgramIdentity& self) {
  if (self.signerKeySha256.empty()) return {};
  const platform::Signature signature = platform::VerifySignature(file, path);
  OfferedProgram offered;
  offered.trustError = signature.trustError;
  offered.signerKeySha256 = signature.signerKeySha256;
  // From the bytes held in memory, not from the path: these are the ones to be installed.
  if (const auto version = ReadFileVersion(std::as_bytes(std::span(file.bytes)))) {
    offered.version = FileVersionText(*version);
    offered.isHigherVersion = IsHigher(*version, self.version);
  }
  return WhyNotTrusted(offered, self);
}

void WriteUpdateLog(std::wstring_view message) {
  const std::wstring path = TemporaryPath(kUpdateLogName);
  if (path.empty()) return;
  // The last part of the path belongs to the user: a link there must not redirect the write.
  platform::AppendToFile(path, 1, kUtf8Mark,
                         text::ToUtf8(UpdateLogLine(platform::LocalTimeNow(), message)));
}

RealUpdateDeps::RealUpdateDeps(ProgramIdentity self, const std::stop_token& whenClosing)
    : self_(std::move(self)) {
  programPath = platform::ProgramPath();
  processId = ::GetCurrentProcessId();
  currentVersion = self_.version;
  downloadTarget = TemporaryPath(kDownloadName);
  closing = whenClosing;
}

service::HttpResponse RealUpdateDeps::SendJsonRequest(const std::wstring& method,
                                                      const std::wstring& url,
                                                      const std::wstring& body) {
  return service::SendJsonRequest(method, url, body, closing);
}

bool RealUpdateDeps::Download(const std::wstring& url, const std::wstring& target) {
  return service::DownloadFile(url, target, closing);
}

bool RealUpdateDeps::IsFile(const std::wstring& path) {
  return platform::IsFile(path);
}

platform::HeldFile RealUpdateDeps::Hold(const std::wstring& path) {
  return platform::HoldFile(path);
}

platform::SystemResult RealUpdateDeps::WriteNew(const std::wstring& path,
                                                const std::string& bytes) {
  return platform::WriteNewFile(path, bytes);
}

platform::SystemResult RealUpdateDeps::MoveOver(const std::wstring& from, const std::wstring& to) {
  return platform::MoveFileOver(from, to);
}

platform::SystemResult RealUpdateDeps::CopyOver(const std::wstring& from, const std::wstring& to) {
  return platform::CopyFileOver(from, to);
}

void RealUpdateDeps::Remove(const std::wstring& path) {
  platform::DeleteAnyFile(path);
}

platform::SystemResult RealUpdateDeps::ProbeReplacement(const std::wstring& replacement) {
  // Before the download there is no file, and its size counts as 0.
  const std::uint64_t sizeBytes =
      replacement.empty() ? 0 : platform::FileSizeBytes(replacement).value_or(0);
  return platform::ProbeReplacement(platform::ProgramPath(), sizeBytes);
}

std::wstring RealUpdateDeps::WhyNotTrusted(const std::wstring& path,
                                           const platform::HeldFile* held) {
  if (self_.signerKeySha256.empty()) return {};  // spares reading the whole file
  // Held by the replacement process, which installs the bytes; the running program only checks.
  if (held != nullptr) return update::WhyNotTrusted(*held, path, self_);
  const platform::HeldFile file = platform::HoldFile(path);
  if (!file.result.succeeded) return kUnreadable + std::to_wstring(file.result.errorCode) + L"）。";
  return update::WhyNotTrusted(file, path, self_);
}

std::optional<UpdateTry> RealUpdateDeps::LastTry() {
  const std::optional<std::string> bytes = platform::ReadFileBytes(TryPath());
  return bytes ? ParseUpdateTry(text::FromUtf8(*bytes)) : std::nullopt;
}

bool RealUpdateDeps::KeepTry(const UpdateTry& record) {
  const std::wstring path = TryPath();
  // Durably: the record must outlast a power cut during the update that it announces.
  return platform::CreateFolders(platform::ParentFolder(path)) &&
         platform::WriteFileDurably(path, text::ToUtf8(UpdateTryText(record))).succeeded;
}

std::int64_t RealUpdateDeps::NowSeconds() {
  using std::chrono::system_clock;
  // C++20 fixes the epoch of this clock at 1970, UTC.
  return std::chrono::duration_cast<std::chrono::seconds>(system_clock::now().time_since_epoch())
      .count();
}

void RealUpdateDeps::WaitForEnd(std::uint32_t id, std::chrono::milliseconds limit) {
  platform::WaitForProcessEnd(id, limit);
}

void RealUpdateDeps::Pause(std::chrono::milliseconds duration) {
  std::this_thread::sleep_for(duration);
}

platform::SystemResult RealUpdateDeps::Start(const std::wstring& commandLine) {
  return platform::StartProgram(commandLine);
}

platform::SystemResult RealUpdateDeps::StartHidden(const std::wstring& commandLine) {
  return platform::StartHiddenProgram(commandLine);
}

void RealUpdateDeps::EndProcess() {
  // An orderly exit could wait for a lock that another thread holds, and the replacement process
  // waits for this one.
  platform::EndProcessAtOnce(0);
}

void RealUpdateDeps::WriteLog(std::wstring_view message) {
  WriteUpdateLog(message);
}

}  // namespace update
