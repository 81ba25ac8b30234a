#pragma once

#include <functional>
#include <optional>
#include <stop_token>
#include <string>

#include "platform/mutex.h"
#include "settings/settings_store.h"
#include "tunnel/tunnel.h"

// What runs beside the window: the worker's jobs and the update check. Pure; any thread.
namespace shell {

// What a job has of the window that it runs for.
struct JobLink {
  std::stop_token closing;  // requested when the window closes: whatever is under way ends
  // Takes a line for the engineer's log from what the job leaves running, on any thread, also when
  // job and window have ended.
  std::function<void(const std::wstring& text)> notice = [](const std::wstring&) {};
  // Called while the job runs, on its thread: the text that it will return quotes what a request
  // came to nothing by, not what the service has answered.
  std::function<void()> requestFailed = [] {};
};

// A long action: works on its own copy of the settings, returns the text for the engineer's log.
using Job = std::function<std::wstring(settings::JobSettings& settings, tunnel::Tunnel& tunnel,
                                       const JobLink& link)>;

// Runs `job`. What it throws becomes its text: "Error: " and the message, or "Unknown error.".
std::wstring RunJob(const Job& job, settings::JobSettings& settings, tunnel::Tunnel& tunnel,
                    const JobLink& link);

// A result on its way to a window that did not take it; whoever looks finds it here. Any thread.
class ResultBox {
 public:
  void Put(std::wstring text) EXCLUDES(lock_);
  [[nodiscard]] std::optional<std::wstring> Take() EXCLUDES(lock_);

 private:
  platform::Mutex lock_;
  std::optional<std::wstring> text_ GUARDED_BY(lock_);
};

// Hands `text` to the window: `post` is tried some times, `pause` called after each refusal. If it
// is never taken, the text goes into `box`. Blocks for the pauses.
void DeliverResult(std::wstring text, const std::function<bool(const std::wstring&)>& post,
                   const std::function<void()>& pause, ResultBox& box);

// Returns the notice for the engineer; empty when there is nothing to say. Ends soon once `closing`
// is requested.
using UpdateCheck =
    std::function<std::wstring(const settings::Settings& settings, const std::stop_token& closing)>;

// Runs `check`. What it throws becomes the notice that says so; there is none once the window
// closes.
std::wstring RunUpdateCheck(const UpdateCheck& check, const settings::Settings& settings,
                            const std::stop_token& closing);

}  // namespace shell
