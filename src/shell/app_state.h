#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "platform/windows_sdk.h"
#include "settings/json.h"
#include "settings/settings.h"
#include "shell/gdi_objects.h"
#include "shell/initial_settings.h"
#include "shell/job.h"
#include "tunnel/tunnel.h"
#include "webui/web_host.h"

namespace shell {

// The page's long actions.
struct JobTable {
  Job connect;
  Job stop;
  Job testLatency;
  Job openDesktop;
  Job resolveDevice;
};

// The settings file.
struct SettingsStore {
  std::function<void(settings::Settings&)> load;  // throws for a damaged file, changing nothing
  std::function<void(const settings::Settings&)> save;
  std::function<std::wstring()> keepDamaged;  // sets the file aside; its new path, empty = failed
};

// What the window acts through: the program's own parts, or fakes in tests.
struct Surroundings {
  JobTable jobs;
  SettingsStore store;
  UpdateCheck checkForUpdate;
  std::function<void(const std::wstring& text)> writeLogLine;
  std::function<std::unique_ptr<webui::WebHost>(HWND window, webui::WebHostEvents events)>
      createWebHost;
  std::function<void(HWND window, const std::wstring& text)> showMessageBox;
};

// The thread's COM apartment while it lives.
class ComApartment {
 public:
  ComApartment() noexcept
      : entered_(SUCCEEDED(::CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED))) {}
  ~ComApartment() {
    if (entered_) ::CoUninitialize();
  }
  ComApartment(const ComApartment&) = delete;
  ComApartment& operator=(const ComApartment&) = delete;

 private:
  const bool entered_;
};

// The one record of the program's state, made by start-up for the life of the process.
//
// Threads: the window's, except for the two atomic flags and the tunnel object, which the worker's
//          job uses too. A job works on a copy of the settings; its results come by way of the
//          file.
struct AppState {
  AppState(Surroundings around, std::unique_ptr<tunnel::Tunnel> theTunnel)
      : surroundings(std::move(around)), tunnel(std::move(theTunnel)) {}

  const Surroundings surroundings;

  HWND window = nullptr;  // null before WM_CREATE and after the window's end
  GdiObjects gdi;
  settings::Settings settings = InitialSettings();
  bool settingsDamaged = false;  // the file could not be read and has not been set aside yet
  std::unique_ptr<tunnel::Tunnel> tunnel;
  std::atomic<bool> busy{false};
  bool changedWhileBusy = false;  // profiles or discovery mode, which a job's copy does not know
  int selectedPage = 0;           // of the native tab strip: 0 work, 1 log
  std::thread worker;             // one that is joinable outlives neither its next nor the window
  std::atomic<bool> heartbeatRunning{false};
  bool retryArmed = false;
  std::unique_ptr<ComApartment> apartment;  // before what needs it
  std::unique_ptr<webui::WebHost> web;
  bool pageReady = false;
  std::vector<std::wstring> pageQueue;  // JSON texts that wait for the page
  std::wstring lastMessage = L"就绪。";
  settings::JsonValue form;  // the page's last form snapshot
};

}  // namespace shell
