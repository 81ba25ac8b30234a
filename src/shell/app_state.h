#pragma once

#include <atomic>
#include <deque>
#include <functional>
#include <future>
#include <memory>
#include <set>
#include <stop_token>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "page/messages.h"
#include "platform/handles_win.h"
#include "platform/windows_sdk.h"
#include "settings/json.h"
#include "settings/settings_file.h"
#include "settings/settings_store.h"
#include "shell/gdi_objects.h"
#include "shell/initial_settings.h"
#include "shell/job.h"
#include "shell/system_notices.h"
#include "tunnel/tunnel.h"
#include "webview/page_failures.h"
#include "webview/web_host.h"

namespace shell {

// The page's long actions.
struct JobTable {
  Job connect;
  Job stop;
  Job testLatency;
  Job openDesktop;
  Job resolveDevice;
};

// What the window acts through: the program's own parts, or fakes in tests.
struct Surroundings {
  JobTable jobs;
  UpdateCheck checkForUpdate;
  std::function<void(const std::wstring& text)> writeLogLine;
  std::function<std::unique_ptr<webview::WebHost>(HWND window, webview::WebHostEvents events)>
      createWebHost;
  std::function<void(HWND window, const std::wstring& text)> showMessageBox;
  // Posts a job's result to the window; false when its message queue takes nothing more.
  std::function<bool(HWND window, const std::wstring& text)> postJobResult;
  std::function<std::unique_ptr<SystemNotices>(HWND window)> subscribeToSystem;
  // Any thread.
  std::function<void(const std::vector<std::wstring>& routes)> removeProxyBypass;
  // Any thread; at the program's end: takes the remote desktop's password off the clipboard, and
  // lets none be copied or typed from then on.
  std::function<void()> forgetPassword;
  // At the start, before any job: takes off the proxy list what an ended run has left there, and
  // returns the line that says so.
  std::function<std::wstring()> takeOffLeftovers;
  // Writes the report that engineers send with a question, and returns the line that says where to.
  // May take twenty seconds; any thread.
  std::function<std::wstring(const settings::Settings& settings)> writeReport;
  // Said once at the start, in a box too; empty when this computer suits the program.
  std::function<std::wstring()> unsuitableComputer;
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
// Threads: the window's, except for the atomic flags, the settings' store, the tunnel object and a
//          result that could not be posted, which the worker uses too.
struct AppState {
  AppState(Surroundings around, settings::SettingsFile settingsFile,
           std::unique_ptr<tunnel::Tunnel> theTunnel)
      : surroundings(std::move(around)),
        settings(std::move(settingsFile), InitialSettings()),
        tunnel(std::move(theTunnel)) {}

  const Surroundings surroundings;

  HWND window = nullptr;  // null before WM_CREATE and after the window's end
  GdiObjects gdi;
  settings::SettingsStore settings;
  std::unique_ptr<tunnel::Tunnel> tunnel;
  std::atomic<bool> busy{false};
  ResultBox strandedResult;          // of a job whose result the message queue did not take
  int selectedPage = 0;              // of the native tab strip: 0 work, 1 log
  std::thread worker;                // joined before the next job and before the window goes
  platform::FileHandle workerEnded;  // an event that the worker sets last; anew for each
  std::stop_source closing;  // of jobs and update check; requested once, when the window closes
  std::vector<std::future<void>> endings;  // what the end of the session has begun
  // While a report is being written; its thread may outlive the window.
  std::shared_ptr<std::atomic<bool>> isReporting = std::make_shared<std::atomic<bool>>(false);
  std::atomic<bool> heartbeatRunning{false};
  bool retryArmed = false;
  std::unique_ptr<ComApartment> apartment;  // before what needs it
  bool isAsleep = false;                    // as far as the system has told
  ULONGLONG wokenMs = 0;                    // GetTickCount64()
  std::unique_ptr<SystemNotices> notices;   // while the window is there
  std::unique_ptr<webview::WebHost> web;
  webview::PageFailures pageFailures;
  bool pageReady = false;
  // A page was ready and has gone; the next one that is ready stands in for it. Until then nothing
  // is kept for it: it gets all that there is to show.
  bool pageLost = false;
  std::vector<std::wstring> pageQueue;     // JSON texts that wait for the first page
  std::deque<page::LogLine> loggedLines;   // the last kMaxLoggedLines, for a page that stands in
  std::set<std::wstring_view> toldCauses;  // of the hints that this run's log has
  std::atomic<bool> requestFailed{false};  // the last job's; see JobLink
  bool refusalLogged = false;              // the page has refused a message in this run
  std::wstring lastMessage = L"就绪。";
  // What the page shows in its form, as far as the window knows: the page's last snapshot, or what
  // the window has had it apply since.
  settings::JsonValue form;
  // What the engineer has changed in the page's form since, which no action has carried yet: shown
  // again by a page that stands in for another one, and used for nothing else.
  settings::JsonValue changedFields;
};

}  // namespace shell
