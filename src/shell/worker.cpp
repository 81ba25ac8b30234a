#include "shell/worker.h"

#include <memory>
#include <optional>
#include <utility>

#include "shell/page_link.h"
#include "shell/retry.h"
#include "shell/window_events.h"
#include "shell/window_messages.h"

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

// The worker thread; `state` outlives it. The settings are given back before the result is told.
void Work(AppState& state, HWND window, const Job& job,
          std::unique_ptr<settings::JobSettings> settings) noexcept {
  constexpr DWORD kPauseMs = 50;
  const JobLink link{state.closing.get_token(),
                     [window](const std::wstring& line) { PostText(window, kNotice, line); },
                     [&state] { state.requestFailed = true; }};
  std::wstring text = RunJob(job, *settings, *state.tunnel, link);
  settings.reset();
  DeliverResult(
      std::move(text),
      [&](const std::wstring& result) { return state.surroundings.postJobResult(window, result); },
      [] { ::Sleep(kPauseMs); }, state.strandedResult);
  ::SetEvent(state.workerEnded.Get());
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

// What other threads send to the window is answered meanwhile: the job itself may tell all windows
// of a changed setting, and would wait for this one until its patience ends.
void JoinWorker(AppState& state) noexcept {
  if (!state.worker.joinable()) return;
  const HANDLE ended = state.workerEnded.Get();
  while (ended != nullptr && ::MsgWaitForMultipleObjects(1, &ended, FALSE, INFINITE,
                                                         QS_SENDMESSAGE) == WAIT_OBJECT_0 + 1) {
    MSG unused{};
    ::PeekMessageW(&unused, nullptr, 0, 0, PM_NOREMOVE | PM_QS_SENDMESSAGE);
  }
  state.worker.join();
}

void StartWorker(AppState& state, const std::wstring& busyText, const Job& job) {
  if (state.closing.stop_requested() || state.busy.exchange(true)) return;
  BusyEnd unlessStarted(state.busy);
  JoinWorker(state);
  TakeFields(state);
  state.settings.Save();
  state.requestFailed = false;
  state.lastMessage = busyText;
  PostStateMessage(state);
  Log(state, busyText);
  ::SetTimer(state.window, kResultTimer, kResultMs, nullptr);
  state.workerEnded.Reset(::CreateEventW(nullptr, TRUE, FALSE, nullptr));
  state.worker =
      StartThread([&state, window = state.window, job,
                   copy = std::make_unique<settings::JobSettings>(state.settings)]() mutable {
        Work(state, window, job, std::move(copy));
      });
  unlessStarted.Cancel();
}

void FinishJob(AppState& state, const std::wstring& text) {
  JoinWorker(state);
  ::KillTimer(state.window, kResultTimer);
  {
    const BusyEnd afterwards(state.busy);
    PostApplyMessage(state);
    PostStateMessage(state);
  }
  state.lastMessage = text;
  PostStateMessage(state);
  Log(state, text);
  Repaint(state.window);

  switch (DecideRetry(state.settings.Read(), state.retryArmed)) {
    case RetryStep::Arm:
      return ArmRetry(state);
    case RetryStep::Keep:
      return;
    case RetryStep::Disarm:
      return DisarmRetry(state);
  }
}

void TakeStrandedResult(AppState& state) {
  if (const std::optional<std::wstring> text = state.strandedResult.Take()) FinishJob(state, *text);
}

void RetryConnect(AppState& state) {
  if (state.busy || !CallsForRetry(state.settings.Read())) return;
  StartWorker(state, kRetryBusy, state.surroundings.jobs.connect);
}

void DisarmRetry(AppState& state) noexcept {
  ::KillTimer(state.window, kRetryTimer);
  state.retryArmed = false;
}

}  // namespace shell
