#include <memory>
#include <optional>
#include <system_error>
#include <utility>

#include "platform/detached_thread.h"
#include "shell/main_window.h"
#include "shell/window_messages.h"

// The threads that the window starts: worker, update check, report, password's end.
namespace shell {
namespace {

constexpr wchar_t kReportItemText[] = L"诊断报告…";
constexpr wchar_t kReportBegun[] = L"正在做诊断报告，最多二十秒，做好后自动打开。";
constexpr wchar_t kNoReportThread[] = L"诊断报告没有写成：系统资源不足。";

// Ends the program when the thread cannot be started.
template <typename Body>
std::thread StartThread(Body&& body) noexcept {
  return std::thread(std::forward<Body>(body));
}

void CheckForUpdate(HWND window, WindowDeps& deps, const settings::Settings& settings,
                    const std::stop_token& closing) noexcept {
  std::wstring notice = RunUpdateCheck(
      [&deps](const settings::Settings& record, const std::stop_token& token) {
        return deps.CheckForUpdate(record, token);
      },
      settings, closing);
  if (!notice.empty()) PostText(window, kNotice, std::move(notice));
}

void WriteReport(HWND window, WindowDeps& deps, const settings::Settings& settings) noexcept {
  try {
    PostText(window, kNotice, deps.WriteReport(settings));
  } catch (const std::exception&) {  // short memory: neither a report nor a line
  }
}

}  // namespace

void MainWindow::StartWorker(JobKind job, std::unique_ptr<settings::JobSettings> settings) {
  // Manual reset: both HasWorkerEnded() and JoinWorker() look at it.
  workerEnded_.Reset(::CreateEventW(nullptr, TRUE, FALSE, nullptr));
  worker_ = StartThread([this, window = window_, job, given = std::move(settings)]() mutable {
    Work(window, job, std::move(given));
  });
}

// On the worker, which is joined before this object is destroyed.
void MainWindow::Work(HWND window, JobKind job,
                      std::unique_ptr<settings::JobSettings> settings) noexcept {
  constexpr DWORD kPauseMs = 50;
  const JobLink link{client_.Closing(),
                     [window](const std::wstring& line) { PostText(window, kNotice, line); },
                     &client_.RequestFailed()};
  std::wstring text = RunJob(
      [this, job](settings::JobSettings& given, tunnel::Tunnel& tunnel, const JobLink& jobLink) {
        return deps_->RunJob(job, given, tunnel, jobLink);
      },
      *settings, client_.Tunnel(), link);
  settings.reset();  // merges the job's changes before the window reads its result
  DeliverResult(
      std::move(text),
      [&](const std::wstring& result) { return deps_->PostJobResult(window, result); },
      [] { ::Sleep(kPauseMs); }, client_.Stranded());
  ::SetEvent(workerEnded_.Get());  // last: JoinWorker() returns soon after
}

// Answers messages that other threads send meanwhile: the job may itself announce a changed setting
// to all windows, and would wait for this one until it times out.
void MainWindow::JoinWorker() noexcept {
  if (!worker_.joinable()) return;
  const HANDLE ended = workerEnded_.Get();
  // Without an event, or when the wait fails, only join() waits.
  while (ended != nullptr && ::MsgWaitForMultipleObjects(1, &ended, FALSE, INFINITE,
                                                         QS_SENDMESSAGE) == WAIT_OBJECT_0 + 1) {
    MSG unused{};
    ::PeekMessageW(&unused, nullptr, 0, 0, PM_NOREMOVE | PM_QS_SENDMESSAGE);
  }
  worker_.join();
}

bool MainWindow::HasWorkerEnded() const {
  return !worker_.joinable() || ::WaitForSingleObject(workerEnded_.Get(), 0) == WAIT_OBJECT_0;
}

// Ends the program when the thread cannot be started.
void MainWindow::StartUpdateCheck() noexcept {
  platform::StartDetached(
      [window = window_, deps = deps_, settings = client_.Settings().Read(),
       closing = client_.Closing()] { CheckForUpdate(window, *deps, settings, closing); });
}

// On a detached thread: a program that does not give the clipboard back must not keep this one from
// ending.
void MainWindow::ForgetPassword() noexcept {
  try {
    // Shared: the thread may outlive this wait.
    const auto done = std::make_shared<std::promise<void>>();
    const std::future<void> ended = done->get_future();
    platform::StartDetached([done, deps = deps_] {
      deps->ForgetPassword();
      done->set_value();
    });
    AnswerUntil(
        [&ended] { return ended.wait_for(std::chrono::seconds(0)) == std::future_status::ready; });
  } catch (...) {  // without a thread the window closes all the same
  }
}

void AddReportItem(HWND window) {
  HMENU menu = ::GetSystemMenu(window, FALSE);
  if (menu == nullptr) return;
  ::AppendMenuW(menu, MF_SEPARATOR, 0, nullptr);
  ::AppendMenuW(menu, MF_STRING, kReportItem, kReportItemText);
}

LRESULT MainWindow::OnSystemCommand(WPARAM wParam, LPARAM lParam) {
  constexpr WPARAM kItemBits = 0xFFF0;  // the system uses the low four bits itself
  if ((wParam & kItemBits) != kReportItem) return Default(WM_SYSCOMMAND, wParam, lParam);
  StartReport();
  return 0;
}

void MainWindow::StartReport() {
  if (isReporting_->exchange(true)) return;
  try {
    platform::StartDetached([window = window_, deps = deps_, settings = client_.Settings().Read(),
                             isReporting = isReporting_] {
      WriteReport(window, *deps, settings);
      *isReporting = false;
    });
    client_.Log(kReportBegun);
  } catch (const std::system_error&) {
    *isReporting_ = false;
    client_.Log(kNoReportThread);
  }
}

}  // namespace shell
