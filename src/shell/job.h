#pragma once

#include <atomic>
#include <functional>
#include <optional>
#include <stop_token>
#include <string>

#include "platform/mutex.h"
#include "settings/settings_store.h"
#include "tunnel/tunnel.h"

// Work beside the window: the worker's jobs and the update check. Pure; any thread.
namespace shell {

// The page's long actions.
enum class JobKind { Connect, Stop, TestLatency, OpenRemoteDesktop, ResolveDevice };

// Connects a job to the window that started it.
struct JobLink {
  std::stop_token closing;  // requested when the window closes; the job must end soon after
  // Logs a line of whatever the job leaves running; any thread, even after job and window have
  // ended.
  std::function<void(const std::wstring& text)> notice = [](const std::wstring&) {};
  // Set by the job when its result quotes a failed request, not an answer of the service. Valid
  // while the job runs.
  std::atomic<bool>* requestFailed = nullptr;
};

// Works on its own copy of the settings and returns the text for the engineer's log.
using Job = std::function<std::wstring(settings::JobSettings& settings, tunnel::Tunnel& tunnel,
                                       const JobLink& link)>;

// Runs `job`. An exception becomes the text: "Error: " and the message, or "Unknown error.".
std::wstring RunJob(const Job& job, settings::JobSettings& settings, tunnel::Tunnel& tunnel,
                    const JobLink& link);

// Keeps a result that could not be posted to the window until its timer takes it. Any thread.
class ResultBox {
 public:
  void Put(std::wstring text) EXCLUDES(lock_);
  [[nodiscard]] std::optional<std::wstring> Take() EXCLUDES(lock_);

 private:
  platform::Mutex lock_;
  std::optional<std::wstring> text_ GUARDED_BY(lock_);
};

// Tries `post` five times and calls `pause` after each failure. Puts `text` into `box` if all fail.
void DeliverResult(std::wstring text, const std::function<bool(const std::wstring&)>& post,
                   const std::function<void()>& pause, ResultBox& box);

// Returns a notice for the engineer, or nothing. Ends soon once `closing` is requested.
using UpdateCheck =
    std::function<std::wstring(const settings::Settings& settings, const std::stop_token& closing)>;

// Runs `check`. An exception becomes the notice; there is none once the window closes.
std::wstring RunUpdateCheck(const UpdateCheck& check, const settings::Settings& settings,
                            const std::stop_token& closing);

// True while the service has refused the last connection request for a reason that may pass, and no
// connection is held.
bool CallsForRetry(const settings::Settings& settings);

enum class RetryStep {
  Arm,    // start the timer and log a line
  Keep,   // the timer runs already
  Disarm  // stop retrying
};

// Decides after a job that has left `settings`; `armed`: the timer runs.
RetryStep DecideRetry(const settings::Settings& settings, bool armed);

}  // namespace shell
