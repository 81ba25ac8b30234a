#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <deque>
#include <memory>
#include <set>
#include <stop_token>
#include <string>
#include <string_view>
#include <vector>

#include "page/messages.h"
#include "settings/json.h"
#include "settings/settings_file.h"
#include "settings/settings_store.h"
#include "settings/site_profiles.h"
#include "shell/job.h"
#include "tunnel/tunnel.h"
#include "webview/browser_failures.h"
#include "webview/web_host.h"

namespace shell {

enum class ClientTimer {
  Retry,          // repeats: asks for the connection again
  StrandedResult  // repeats while a job runs: looks for a result that could not be posted
};

// The window's services for the client. Window's thread.
class ClientDeps {
 public:
  ClientDeps() = default;
  virtual ~ClientDeps() = default;
  ClientDeps(const ClientDeps&) = delete;
  ClientDeps& operator=(const ClientDeps&) = delete;

  virtual void WriteLogLine(const std::wstring& text) = 0;
  // Comes back to Client::DeliverToPage() in order; dropped without a window.
  virtual void PostToPage(std::wstring json) = 0;
  // Shows a message box after the current message.
  virtual void PostFailure(const std::wstring& text) = 0;
  // Null while there is no browser control.
  virtual webview::WebHost* Page() noexcept = 0;
  virtual void StartTimer(ClientTimer timer) = 0;
  virtual void StopTimer(ClientTimer timer) noexcept = 0;
  virtual void Repaint() = 0;
  // Runs the job on the worker; its result comes back to Client::FinishJob().
  virtual void StartWorker(JobKind job, std::unique_ptr<settings::JobSettings> settings) = 0;
  // Returns once the worker has ended; at once without one.
  virtual void JoinWorker() noexcept = 0;
  virtual page::TimeOfDay Now() = 0;
};

// The settings before their file has been read.
settings::Settings InitialSettings();

// Everything that the program decides while its window is open: which job runs, when the connection
// request is repeated, the messages for the page, the lines of the log. The window translates
// messages to calls and provides the services of ClientDeps.
//
// Threads: the window's, except Closing(), Tunnel(), RequestFailed() and Stranded(), which the
//          worker uses too.
class Client {
 public:
  Client(ClientDeps& deps, settings::SettingsFile file, std::unique_ptr<tunnel::Tunnel> tunnel);

  // ---- start and end

  // Loads the settings, sends them to the page, writes the first line.
  void Start();
  // Jobs and the update check end soon after; no job starts from here on.
  void RequestEnd() noexcept { closing_.request_stop(); }
  [[nodiscard]] std::stop_token Closing() const noexcept { return closing_.get_token(); }
  // Saves changes that an earlier save could not write.
  void SaveUnsaved();

  // ---- the log

  // Writes one line to the log file and to the page. The first line of a known cause is followed by
  // a hint with the cause and its cure.
  void Log(const std::wstring& text);
  // Logs a line of another thread, unless it is empty.
  void Notice(const std::wstring& text);
  // Logs a line and shows it in a message box; nothing when it is empty.
  void Warn(const std::wstring& text);
  void LogSettingsReports();

  // ---- the page (client_page.cpp)

  // Handles a string that the page has posted. Unknown actions are ignored.
  void HandlePageMessage(std::wstring_view json);
  // Hands `json` to the page, or keeps it until the first page is ready. Dropped between two pages.
  void DeliverToPage(std::wstring json);
  // Brings the page back after a failure of a browser process, or gives up.
  void OnBrowserFailed(webview::ProcessFailedKind kind);

  // ---- actions (client_actions.cpp)

  void Connect();
  void Stop();
  void TestLatency();
  void OpenRemoteDesktop();
  void ResolveDevice();
  void SaveProfile();
  void LoadProfile(settings::ProfileChooser chooser);
  // Returns the new setting.
  bool ToggleDiscovery();
  // Returns the secret in the form; logs a line instead when there is none.
  std::wstring SecretToCopy();
  void OnSecretCopied(bool copied);

  // ---- jobs (client_jobs.cpp)

  // Shows the job's result and decides whether the connection request is repeated.
  void FinishJob(const std::wstring& text);
  // Finishes a job whose result could not be posted, if there is one.
  void TakeStrandedResult();
  // Asks for the connection again unless a job runs or the refusal is over.
  void RetryConnect();
  void DisarmRetry() noexcept;
  // Set by the running job; see JobLink.
  [[nodiscard]] std::atomic<bool>& RequestFailed() noexcept { return requestFailed_; }
  [[nodiscard]] ResultBox& Stranded() noexcept { return stranded_; }

  // ---- tunnel and computer (client_jobs.cpp)

  // Stops a tunnel that the service no longer accepts, so that the page does not show it online.
  void OnHeartbeatRefused(std::wstring text);
  // Ignored once the tunnel has stopped. `connected` is the change, not the present state.
  void OnLinkChanged(bool connected);
  void OnUdpChanged(bool ready);
  void OnAddressesChanged();
  void OnSleep();
  // `nowMs` counts from any start.
  void OnWake(std::uint64_t nowMs);

  [[nodiscard]] settings::SettingsStore& Settings() noexcept { return settings_; }
  [[nodiscard]] tunnel::Tunnel& Tunnel() noexcept { return *tunnel_; }

 private:
  friend struct WindowState;  // lets tests look inside

  // The page's contents, and the messages that wait for it.
  struct PageState {
    bool ready = false;
    // A ready page was lost; the next one replaces it. Nothing is queued until then: the new page
    // receives all contents.
    bool lost = false;
    std::vector<std::wstring> queue;        // JSON texts that wait for the first page
    std::deque<page::LogLine> loggedLines;  // for a page that replaces another one
    bool refusalLogged = false;             // once a run
    std::wstring lastMessage = L"就绪。";   // the status line
    // The page's last snapshot, or the values sent to it since.
    settings::JsonValue form;
    // Fields that the engineer has changed since the last action. Shown again by a page that
    // replaces another one, and used for nothing else.
    settings::JsonValue changedFields;
  };

  void PostStateMessage();
  void PostApplyMessage();
  void Act(std::wstring_view action);
  void TakeFields();
  void TakeDiscovery();
  void LogDiscovery();
  void LogUnsaved();
  void WelcomePage();
  void DeliverQueue();
  void DeliverRefused(const std::wstring& json);
  void LosePage() noexcept;
  void LogLine(const std::wstring& text);
  void LogHint(const std::wstring& text);
  void StartJob(JobKind job, const std::wstring& busyText);
  void ArmRetry();
  void LogAndCheckNetwork(const wchar_t* line, const wchar_t* lineOnline);

  ClientDeps& deps_;
  settings::SettingsStore settings_;
  const std::unique_ptr<tunnel::Tunnel> tunnel_;
  std::stop_source closing_;
  std::atomic<bool> busy_{false};
  std::atomic<bool> requestFailed_{false};
  std::atomic<bool> heartbeatRunning_{false};
  bool retryArmed_ = false;
  ResultBox stranded_;
  PageState page_;
  webview::PageFailures pageFailures_;
  std::set<std::wstring_view> hintedCauses_;  // once a run each
  bool isAsleep_ = false;
  std::uint64_t wokenMs_ = 0;
};

}  // namespace shell
