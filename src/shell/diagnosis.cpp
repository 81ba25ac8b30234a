#include "shell/diagnosis.h"

#include <exception>
#include <optional>

#include "checks/real_checks.h"
#include "platform/modules_win.h"
#include "settings/settings.h"
#include "settings/settings_file.h"
#include "shell/log_file.h"
#include "shell/runtime_files_win.h"
#include "shell/single_instance.h"

namespace shell {
namespace {

constexpr wchar_t kWritten[] = L"诊断报告已写入：";
constexpr wchar_t kNotWritten[] = L"诊断报告没有写成：";

checks::ReportRequest MakeRequest(const update::ProgramIdentity& self) {
  checks::ReportRequest request;
  request.self = self;
  request.carriedFiles = {
      {L"WinDivert.dll", platform::FindResourceBytes(nullptr, kDriverLibraryResource)},
      {L"WinDivert64.sys", platform::FindResourceBytes(nullptr, kDriverResource)}};
  request.isClientRunning = IsClientRunning;
  request.workingFolder = LogBaseFolder();
  return request;
}

// Returns `path` unchanged when the system cannot complete it.
std::wstring FullPath(const std::wstring& path) {
  const DWORD neededUnits = ::GetFullPathNameW(path.c_str(), 0, nullptr, nullptr);
  // The first call counts the terminator, the second one does not.
  std::wstring full(neededUnits, L'\0');
  const DWORD lengthUnits = ::GetFullPathNameW(path.c_str(), neededUnits, full.data(), nullptr);
  if (lengthUnits == 0 || lengthUnits >= neededUnits) return path;
  full.resize(lengthUnits);
  return full;
}

}  // namespace

int RunCheck(const CheckArguments& arguments, const update::ProgramIdentity& self) try {
  // The driver's library lies there. It is loaded only after its bytes have been compared.
  ::SetDllDirectoryW(settings::RuntimeFolder().c_str());
  std::optional<std::wstring> file;
  if (arguments.file) file = FullPath(*arguments.file);
  const checks::WrittenReport written =
      checks::WriteCheckReport(file, checks::RealReportDeps(MakeRequest(self)));
  return written.path.empty() ? 1 : 0;
} catch (const std::exception&) {
  return 1;  // short memory
}

std::wstring WriteReport(const update::ProgramIdentity& self, const settings::Settings& settings) {
  checks::ReportRequest request = MakeRequest(self);
  // This text holds the keys and ids that the report must black out.
  request.client = {LogPath(),
                    settings::WriteSettingsText(settings) + L"\n" +
                        settings::WriteGrantedConnection(settings.granted),
                    settings.serverUrl};
  const checks::WrittenReport written =
      checks::WriteCheckReport(std::nullopt, checks::RealReportDeps(request));
  return written.path.empty() ? kNotWritten + written.failure : kWritten + written.path;
}

}  // namespace shell
