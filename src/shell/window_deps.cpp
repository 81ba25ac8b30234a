#include "shell/window_deps.h"

#include <atomic>
#include <utility>

#include "diag/latency_test.h"
#include "diag/proxy_bypass.h"
#include "platform/computer.h"
#include "platform/desktop_user.h"
#include "platform/handles_win.h"
#include "platform/path.h"
#include "remote/remote_desktop.h"
#include "service/service_jobs.h"
#include "shell/diagnosis.h"
#include "shell/log_file.h"
#include "shell/main_window.h"
#include "shell/runtime_files_win.h"
#include "shell/window_messages.h"
#include "tunnel/tunnel.h"
#include "update/update_check.h"
#include "webview/web_create.h"

namespace shell {
namespace {

constexpr wchar_t kArm64[] =
    L"警告：本机是 ARM64 处理器的 Windows，没有可用的网络驱动，软件隧道无法启动。请改用 x64 "
    L"电脑；远程桌面不受影响。";
constexpr wchar_t kUserDataFolder[] = L"VelmarineWebUI_Client";

constexpr wchar_t kOtherUser[] =
    L"提示：本程序以另一账户的权限运行，系统代理旁路同时为桌面用户维护。";

class DesktopDeps final : public remote::RealRemoteDesktopDeps {
 public:
  DesktopDeps(const std::shared_ptr<remote::PasswordKeeper>& passwords, const JobLink& link)
      : RealRemoteDesktopDeps(passwords, link.closing, link.notice),
        requestFailed_(*link.requestFailed) {}

  // The line then holds the program's own words, not the service's, and may get a hint.
  void OnRequestFailed() override { requestFailed_ = true; }

 private:
  std::atomic<bool>& requestFailed_;
};

// A forced update ends the process without closing the window, so the password must leave the
// clipboard here.
class UpdateDeps final : public update::RealUpdateDeps {
 public:
  UpdateDeps(const update::ProgramIdentity& self, const std::stop_token& closing,
             std::shared_ptr<remote::PasswordKeeper> passwords)
      : RealUpdateDeps(self, closing), passwords_(std::move(passwords)) {}

  void EndProcess() override {
    passwords_->End();
    RealUpdateDeps::EndProcess();
  }

 private:
  const std::shared_ptr<remote::PasswordKeeper> passwords_;
};

class RealDeps final : public WindowDeps {
 public:
  explicit RealDeps(const update::ProgramIdentity& self)
      : self_(self), passwords_(remote::MakePasswordKeeper()) {}

  std::wstring StartLog() override {
    shell::StartLog();
    return LogPath();
  }
  std::wstring LayOutRuntimeFiles() override { return shell::LayOutRuntimeFiles(folderHold_); }
  settings::SettingsFile OpenSettings() override { return settings::RealSettingsFile(); }
  std::unique_ptr<tunnel::Tunnel> MakeTunnel() override { return tunnel::MakeRealTunnel(); }
  std::wstring RemoveLeftovers() override {
    return diag::RemoveLeftovers(diag::RealProxyNote(), diag::LeftoverProxyOverride);
  }
  std::wstring UnsuitableComputer() override {
    return platform::IsArm64Windows() ? std::wstring(kArm64) : std::wstring();
  }

  void WriteLogLine(const std::wstring& text) override { shell::WriteLogLine(text); }
  std::unique_ptr<webview::WebHost> CreateWebHost(HWND window,
                                                  webview::WebEventHandler onEvent) override;
  std::shared_ptr<void> Subscribe(HWND window) override { return SubscribeToSystem(window); }
  void ShowMessageBox(HWND window, const std::wstring& text) override {
    ::MessageBoxW(window, text.c_str(), kWindowTitle, MB_OK | MB_ICONERROR);
  }

  std::wstring RunJob(JobKind job, settings::JobSettings& settings, tunnel::Tunnel& tunnel,
                      const JobLink& link) override;
  bool PostJobResult(HWND window, const std::wstring& text) override {
    return PostText(window, kJobFinished, text);
  }
  std::wstring CheckForUpdate(const settings::Settings& settings,
                              const std::stop_token& closing) override;
  void RemoveProxyBypass(const std::vector<std::wstring>& routes) override {
    diag::RemoveProxyBypass(routes, diag::RealProxyOverride(), diag::RealProxyNote());
  }
  void ForgetPassword() override { passwords_->End(); }
  std::wstring WriteReport(const settings::Settings& settings) override {
    return shell::WriteReport(self_, settings);
  }

 private:
  const update::ProgramIdentity self_;
  const std::shared_ptr<remote::PasswordKeeper> passwords_;
  // Open until the process ends: meanwhile no other folder can take the runtime folder's place.
  platform::FileHandle folderHold_;
};

// The browser's processes run as the desktop's user, who may have no access to our temporary
// folder.
std::unique_ptr<webview::WebHost> RealDeps::CreateWebHost(HWND window,
                                                          webview::WebEventHandler onEvent) {
  webview::DataFolders folders{platform::TemporaryFolder() + kUserDataFolder, {}};
  if (const auto user = platform::OtherDesktopUser()) {
    onEvent({webview::WebEvent::Kind::Log, kOtherUser});
    // An unknown folder leaves only the usual one to try.
    if (!user->localAppData.empty()) {
      folders.other = platform::JoinPath(user->localAppData, kUserDataFolder);
    }
  }
  return webview::WebCreate(window, std::move(folders), std::move(onEvent),
                            webview::CreateCoreWebView2EnvironmentWithOptions,
                            webview::PageFromResources);
}

std::wstring RealDeps::RunJob(JobKind job, settings::JobSettings& settings, tunnel::Tunnel& tunnel,
                              const JobLink& link) {
  switch (job) {
    case JobKind::Connect:
      return service::RealConnectionJobs(link.closing).Connect(settings, tunnel);
    case JobKind::Stop:
      return service::RealConnectionJobs(link.closing).Stop(settings, tunnel);
    case JobKind::TestLatency:
      // Waits for one second at most, so it needs no token.
      return diag::RunLatencyTest(settings.record, diag::SendEcho);
    case JobKind::OpenRemoteDesktop: {
      DesktopDeps deps(passwords_, link);
      return remote::StartRemoteDesktop(settings.record, deps);
    }
    case JobKind::ResolveDevice: {
      std::wstring text;
      // The text is the line either way.
      service::ResolveDevice(settings.record, service::RealJsonRequester(link.closing), text);
      return text;
    }
  }
  return {};
}

std::wstring RealDeps::CheckForUpdate(const settings::Settings& settings,
                                      const std::stop_token& closing) {
  UpdateDeps deps(self_, closing, passwords_);
  return update::CheckForUpdate(settings, deps);
}

}  // namespace

std::shared_ptr<WindowDeps> RealWindowDeps(const update::ProgramIdentity& self) {
  return std::make_shared<RealDeps>(self);
}

}  // namespace shell
