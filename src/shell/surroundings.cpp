#include "shell/surroundings.h"

#include <memory>
#include <utility>

#include "diag/latency_test.h"
#include "diag/proxy_bypass.h"
#include "platform/computer.h"
#include "platform/desktop_user.h"
#include "platform/path.h"
#include "remote/remote_desktop.h"
#include "service/service_jobs.h"
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

class DesktopDeps : public remote::RealRemoteDesktopDeps {
 public:
  DesktopDeps(const std::shared_ptr<remote::PasswordKeeper>& passwords, const JobLink& link)
      : RealRemoteDesktopDeps(passwords, link.closing, link.notice), link_(link) {}

  void OnRequestFailed() override { link_.requestFailed(); }

 private:
  const JobLink& link_;
};

JobTable RealJobs(const std::shared_ptr<remote::PasswordKeeper>& passwords) {
  using settings::JobSettings;
  using tunnel::Tunnel;
  JobTable jobs;
  jobs.connect = [](JobSettings& settings, Tunnel& tunnel, const JobLink& link) {
    return service::RealConnectionJobs(link.closing).Connect(settings, tunnel);
  };
  jobs.stop = [](JobSettings& settings, Tunnel& tunnel, const JobLink& link) {
    return service::RealConnectionJobs(link.closing).Stop(settings, tunnel);
  };
  jobs.testLatency = [](JobSettings& settings, Tunnel&, const JobLink&) {
    return diag::RunLatencyTest(settings.record, diag::SendEcho);
  };
  jobs.openDesktop = [passwords](JobSettings& settings, Tunnel&, const JobLink& link) {
    DesktopDeps deps(passwords, link);
    return remote::StartRemoteDesktop(settings.record, deps);
  };
  jobs.resolveDevice = [](JobSettings& settings, Tunnel&, const JobLink& link) {
    std::wstring text;
    service::ResolveDevice(settings.record, service::RealJsonRequester(link.closing), text);
    return text;
  };
  return jobs;
}

// A forced update ends the program, and with it the time of a password on the clipboard.
class UpdateDeps : public update::RealUpdateDeps {
 public:
  UpdateDeps(const update::ProgramIdentity& self, const std::stop_token& whenClosing,
             std::shared_ptr<remote::PasswordKeeper> passwords)
      : RealUpdateDeps(self, whenClosing), passwords_(std::move(passwords)) {}

  void EndProcess() override {
    passwords_->End();
    RealUpdateDeps::EndProcess();
  }

 private:
  const std::shared_ptr<remote::PasswordKeeper> passwords_;
};

}  // namespace

Surroundings RealSurroundings(const update::ProgramIdentity& self) {
  Surroundings real;
  const auto passwords = remote::MakePasswordKeeper();
  real.jobs = RealJobs(passwords);
  real.forgetPassword = [passwords] { passwords->End(); };
  real.checkForUpdate = [self, passwords](const settings::Settings& settings,
                                          const std::stop_token& closing) {
    UpdateDeps deps(self, closing, passwords);
    return update::CheckForUpdate(settings, deps);
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
    diag::RemoveProxyBypass(routes, diag::RealProxyOverride(), diag::RealProxyNote());
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
