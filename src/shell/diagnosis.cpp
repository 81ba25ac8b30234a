#include "shell/diagnosis.h"

#include <memory>
#include <system_error>
#include <utility>

#include "checks/real_checks.h"
#include "platform/detached_thread.h"
#include "platform/modules_win.h"
#include "settings/settings.h"
#include "settings/settings_file.h"
#include "shell/log_file.h"
#include "shell/page_link.h"
#include "shell/runtime_files_win.h"
#include "shell/single_instance.h"
#include "shell/window_events.h"
#include "shell/window_messages.h"

namespace shell {
namespace {

constexpr wchar_t kItem[] = L"诊断报告…";
constexpr wchar_t kBegun[] = L"正在做诊断报告，最多二十秒，做好后自动打开。";
constexpr wchar_t kWritten[] = L"诊断报告已写入：";
constexpr wchar_t kNotWritten[] = L"诊断报告没有写成：";
constexpr wchar_t kNoThread[] = L"诊断报告没有写成：系统资源不足。";

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

// As it is where the system cannot complete it.
std::wstring FullPath(const std::wstring& path) {
  const DWORD neededUnits = ::GetFullPathNameW(path.c_str(), 0, nullptr, nullptr);
  std::wstring full(neededUnits, L'\0');
  const DWORD lengthUnits = ::GetFullPathNameW(path.c_str(), neededUnits, full.data(), nullptr);
  if (lengthUnits == 0 || lengthUnits >= neededUnits) return path;
  full.resize(lengthUnits);
  return full;
}

// The report's thread.
void Report(HWND window, const std::function<std::wstring(const settings::Settings&)>& write,
            const settings::Settings& settings) noexcept {
  try {
    PostText(window, kNotice, write(settings));
  } catch (const std::exception&) {
    // Short memory: there is no report, and no line.
  }
}

void StartReport(AppState& state) {
  if (state.isReporting->exchange(true)) return;
  try {
    platform::StartDetached([window = state.window, write = state.surroundings.writeReport,
                             settings = state.settings.Read(), isReporting = state.isReporting] {
      Report(window, write, settings);
      *isReporting = false;
    });
    Log(state, kBegun);
  } catch (const std::system_error&) {
    *state.isReporting = false;
    Log(state, kNoThread);
  }
}

}  // namespace

int RunCheck(const CheckArguments& arguments, const update::ProgramIdentity& self) try {
  // Where the driver's library lies; it is loaded only after its bytes have been compared.
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
  request.client = {LogPath(),
                    settings::WriteSettingsText(settings) + L"\n" +
                        settings::WriteGrantedConnection(settings.granted),
                    settings.serverUrl};
  const checks::WrittenReport written =
      checks::WriteCheckReport(std::nullopt, checks::RealReportDeps(request));
  return written.path.empty() ? kNotWritten + written.failure : kWritten + written.path;
}

void AddReportItem(HWND window) {
  HMENU menu = ::GetSystemMenu(window, FALSE);
  if (menu == nullptr) return;
  ::AppendMenuW(menu, MF_SEPARATOR, 0, nullptr);
  ::AppendMenuW(menu, MF_STRING, kReportItem, kItem);
}

LRESULT OnSystemCommand(AppState& state, WPARAM wParam, LPARAM lParam) {
  constexpr WPARAM kItemBits = 0xFFF0;
  if ((wParam & kItemBits) != kReportItem) {
    return ::DefWindowProcW(state.window, WM_SYSCOMMAND, wParam, lParam);
  }
  StartReport(state);
  return 0;
}

}  // namespace shell
