#include "shell/surroundings.h"

#include <cstdio>

#include "diag/latency_test.h"
#include "platform/known_folders.h"
#include "remote/remote_desktop.h"
#include "service/connection_jobs.h"
#include "service/device_resolve.h"
#include "settings/damaged_settings.h"
#include "shell/log_file.h"
#include "shell/main_window.h"
#include "update/update_check.h"
#include "webui/page_source.h"
#include "webui/webview2_loader.h"

namespace shell {
namespace {

// The browser's data lies where the user can surely write.
constexpr wchar_t kUserDataFolder[] = L"VelmarineWebUI_Client";

// The moment as file names have it.
std::wstring FileTime() {
  SYSTEMTIME now{};
  ::GetLocalTime(&now);
  wchar_t time[32] = {};
  std::swprintf(time, std::size(time), L"%04d%02d%02d_%02d%02d%02d", now.wYear, now.wMonth,
                now.wDay, now.wHour, now.wMinute, now.wSecond);
  return time;
}

JobTable RealJobs() {
  using settings::Settings;
  using tunnel::Tunnel;
  JobTable jobs;
  jobs.connect = [](Settings& settings, Tunnel& tunnel) {
    return service::ConnectJob(settings, tunnel, service::RealConnectionPorts());
  };
  jobs.stop = [](Settings& settings, Tunnel& tunnel) {
    return service::StopJob(settings, tunnel, service::RealConnectionPorts());
  };
  jobs.testLatency = [](Settings& settings, Tunnel&) {
    return diag::RunLatencyTest(settings, diag::RealLatencyPorts());
  };
  jobs.openDesktop = [](Settings& settings, Tunnel&) {
    return remote::StartRemoteDesktop(settings, remote::RealRemoteDesktopPorts());
  };
  jobs.resolveDevice = [](Settings& settings, Tunnel&) {
    std::wstring text;
    service::ResolveDevice(settings, service::RealResolvePorts(), text);
    return text;
  };
  return jobs;
}

SettingsStore RealStore() {
  SettingsStore store;
  store.load = [](settings::Settings& settings) { settings::LoadSettings(settings); };
  store.save = [](const settings::Settings& settings) { settings::SaveSettings(settings); };
  store.keepDamaged = [] {
    return settings::KeepDamagedSettings(settings::SettingsFilePath(), FileTime());
  };
  return store;
}

}  // namespace

Surroundings RealSurroundings(const std::wstring& version) {
  Surroundings real;
  real.jobs = RealJobs();
  real.store = RealStore();
  real.checkForUpdate = [version](const settings::Settings& settings) {
    return update::CheckForUpdate(settings, update::RealCheckPorts(version));
  };
  real.writeLogLine = WriteLogLine;
  real.createWebHost = [](HWND window, webui::WebHostEvents events) {
    return webui::WebCreate(window, platform::TemporaryFolder() + kUserDataFolder,
                            std::move(events), webui::CreateCoreWebView2EnvironmentWithOptions,
                            webui::PageFromResources);
  };
  real.showMessageBox = [](HWND window, const std::wstring& text) {
    ::MessageBoxW(window, text.c_str(), kWindowTitle, MB_OK | MB_ICONERROR);
  };
  return real;
}

}  // namespace shell
