#include "shell/worker.h"

#include "shell/page_link.h"
#include "shell/retry.h"
#include "shell/settings_care.h"
#include "shell/window_events.h"
#include "shell/window_messages.h"
#include "webui/actions.h"

namespace shell {
namespace {

constexpr wchar_t kRetryArmed[] = L"授权未恢复，将每 5 秒自动重试连接。";
constexpr wchar_t kRetryBusy[] = L"正在自动重试连接授权...";

// Ends the time of being busy, also when an exception cuts the work short: a flag that stayed set
// would refuse every later job.
class BusyEnd {
 public:
  explicit BusyEnd(std::atomic<bool>& busy) noexcept : busy_(&busy) {}
  ~BusyEnd() {
    if (busy_ != nullptr) busy_->exchange(false);
  }
  BusyEnd(const BusyEnd&) = delete;
  BusyEnd& operator=(const BusyEnd&) = delete;
  // The job runs; its result ends the time.
  void Cancel() noexcept { busy_ = nullptr; }

 private:
  std::atomic<bool>* busy_;
};

// What the worker thread gets to work with; all its own but the tunnel, which outlives it.
struct WorkerRecord {
  HWND window = nullptr;
  settings::Settings settings;
  tunnel::Tunnel* tunnel = nullptr;
  Job job;
};

// The worker thread.
void Work(WorkerRecord record) noexcept {
  PostText(record.window, kJobFinished, RunJob(record.job, record.settings, *record.tunnel));
}

void ArmRetry(AppState& state) {
  ::SetTimer(state.window, kRetryTimer, kRetryMs, nullptr);
  state.retryArmed = true;
  Log(state, kRetryArmed);
}

// Starts a thread; one that cannot be started ends the program.
template <typename Body>
std::thread StartThread(Body&& body) noexcept {
  return std::thread(std::forward<Body>(body));
}

}  // namespace

void JoinWorker(AppState& state) noexcept {
  if (state.worker.joinable()) state.worker.join();
}

void StartWorker(AppState& state, const std::wstring& busyText, const Job& job) {
  if (state.busy.exchange(true)) return;
  BusyEnd unlessStarted(state.busy);
  JoinWorker(state);
  webui::TakeFields(state.form, state.settings);
  SaveSettings(state);
  state.lastMessage = busyText;
  PostStateMessage(state);
  Log(state, busyText);
  WorkerRecord record{state.window, state.settings, state.tunnel.get(), job};
  state.worker = StartThread([owned = std::move(record)]() mutable { Work(std::move(owned)); });
  unlessStarted.Cancel();
}

void FinishJob(AppState& state, const std::wstring& text) {
  JoinWorker(state);
  {
    const BusyEnd afterwards(state.busy);
    ReloadSettings(state);
    PostApplyMessage(state);
    PostStateMessage(state);
  }
  state.lastMessage = text;
  PostStateMessage(state);
  Log(state, text);
  Repaint(state.window);

  switch (DecideRetry(state.settings, state.retryArmed)) {
    case RetryStep::Arm:
      return ArmRetry(state);
    case RetryStep::Keep:
      return;
    case RetryStep::Disarm:
      return DisarmRetry(state);
  }
}

void RetryConnect(AppState& state) {
  if (state.busy || !CallsForRetry(state.settings)) return;
  StartWorker(state, kRetryBusy, state.surroundings.jobs.connect);
}

void DisarmRetry(AppState& state) noexcept {
  ::KillTimer(state.window, kRetryTimer);
  state.retryArmed = false;
}

}  // namespace shell
