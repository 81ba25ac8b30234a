#include "shell/surroundings.h"

#include <memory>
#include <utility>

#include "diag/latency_test.h"
#include "diag/proxy_bypass.h"
#include "platform/computer.h"
#include "platform/desktop_user.h"
#include "platform/path.h"
#include "remote/remote_desktop.h"
#include "service/connection_jobs.h"
#include "service/device_resolve.h"
#include "shell/diagnosis.h"
#include "shell/log_file.h"
#include "shell/main_window.h"
#include "shell/window_messages.h"
#include "update/update_check.h"
#include "webview/page_source.h"
#include "webview/webview2_loader.h"

namespace shell {
namespace {

constexpr wchar_t kArm64[] =
    L"警告：本机是 ARM64 处理器的 Windows，没有可用的网络驱动，软件隧道无法启动。请改用 x64 "
    L"电脑；远程桌面不受影响。";
// The browser's data lies where the user can surely write.
constexpr wchar_t kUserDataFolder[] = L"VelmarineWebUI_Client";

constexpr wchar_t kOtherUser[] =
    L"提示：本程序以另一账户的权限运行，系统代理旁路同时为桌面用户维护。";

// The browser's processes run as the desktop's user, who may be refused our temporary folder.
std::wstring DesktopUsersFolder() {
  const auto user = platform::OtherDesktopUser();
  if (!user || user->localAppData.empty()) return {};
  return platform::JoinPath(user->localAppData, kUserDataFolder);
}

JobTable RealJobs(const std::shared_ptr<remote::PasswordKeeper>& passwords) {
  using settings::JobSettings;
  using tunnel::Tunnel;
  JobTable jobs;
  jobs.connect = [](JobSettings& settings, Tunnel& tunnel, const JobLink& link) {
    return service::ConnectJob(settings, tunnel, service::RealConnectionPorts(link.closing));
  };
  jobs.stop = [](JobSettings& settings, Tunnel& tunnel, const JobLink& link) {
    return service::StopJob(settings, tunnel, service::RealConnectionPorts(link.closing));
  };
  jobs.testLatency = [](JobSettings& settings, Tunnel&, const JobLink&) {
    return diag::RunLatencyTest(settings.record, diag::SendEcho);
  };
  jobs.openDesktop = [passwords](JobSettings& settings, Tunnel&, const JobLink& link) {
    remote::RemoteDesktopPorts ports =
        remote::RealRemoteDesktopPorts(passwords, link.closing, link.notice);
    ports.requestFailed = link.requestFailed;
    return remote::StartRemoteDesktop(settings.record, ports);
  };
  jobs.resolveDevice = [](JobSettings& settings, Tunnel&, const JobLink& link) {
    std::wstring text;
    service::ResolveDevice(settings.record, service::RealJsonRequester(link.closing), text);
    return text;
  };
  return jobs;
}

// A forced update ends the program, too.
update::CheckPorts UpdatePorts(const update::ProgramIdentity& self, const std::stop_token& closing,
                               const std::shared_ptr<remote::PasswordKeeper>& passwords) {
  update::CheckPorts ports = update::RealCheckPorts(self, closing);
  ports.endProcess = [passwords, end = std::move(ports.endProcess)] {
    passwords->End();
    end();
  };
  return ports;
}

}  // namespace

Surroundings RealSurroundings(const update::ProgramIdentity& self) {
  Surroundings real;
  const auto passwords = remote::MakePasswordKeeper();
  real.jobs = RealJobs(passwords);
  real.forgetPassword = [passwords] { passwords->End(); };
  real.checkForUpdate = [self, passwords](const settings::Settings& settings,
                                          const std::stop_token& closing) {
    return update::CheckForUpdate(settings, UpdatePorts(self, closing, passwords));
  };
  real.writeLogLine = WriteLogLine;
  real.createWebHost = [](HWND window, webview::WebHostEvents events) {
    if (platform::OtherDesktopUser()) events.log(kOtherUser);
    return webview::WebCreate(window,
                              {platform::TemporaryFolder() + kUserDataFolder, DesktopUsersFolder},
                              std::move(events), webview::CreateCoreWebView2EnvironmentWithOptions,
                              webview::PageFromResources);
  };
  real.showMessageBox = [](HWND window, const std::wstring& text) {
    ::MessageBoxW(window, text.c_str(), kWindowTitle, MB_OK | MB_ICONERROR);
  };
  real.postJobResult = [](HWND window, const std::wstring& text) {
    return PostText(window, kJobFinished, text);
  };
  real.subscribeToSystem = SubscribeToSystem;
  real.removeProxyBypass = [](const std::vector<std::wstring>& routes) {
    service::RealConnectionPorts({}).removeProxyBypass(routes);
  };
  real.takeOffLeftovers = [] {
    return diag::TakeOffLeftovers(diag::RealProxyNote(), diag::LeftoverProxyOverride);
  };
  real.writeReport = [self](const settings::Settings& settings) {
    return WriteReport(self, settings);
  };
  real.unsuitableComputer = [] {
    return platform::IsArm64Windows() ? std::wstring(kArm64) : std::wstring();
  };
  return real;
}

}  // namespace shell
