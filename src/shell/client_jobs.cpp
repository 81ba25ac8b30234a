#include <optional>
#include <utility>

#include "shell/client.h"
#include "text/page_texts.h"
#include "text/strings.h"

namespace shell {
namespace {

constexpr wchar_t kTunnelStopped[] =
    L"\r\n中心服务未接受心跳，已停止本机软件隧道，避免显示假在线。";
constexpr wchar_t kLinkLost[] = L"警告：中继连接中断，软件隧道正在自动重连。";
constexpr wchar_t kLinkFound[] = L"软件隧道已重新在线。";
constexpr wchar_t kUdpReady[] = L"UDP 通道已就绪：小数据包经 UDP 传输。";
constexpr wchar_t kUdpNotReady[] =
    L"提示：UDP 通道不可用，小数据包改经 WebSocket 传输，连接不受影响。";

constexpr wchar_t kAsleep[] = L"电脑即将睡眠。";
constexpr wchar_t kAsleepOnline[] = L"电脑即将睡眠，远程连接会中断，唤醒后自动恢复。";
constexpr wchar_t kAwake[] = L"电脑已唤醒。";
constexpr wchar_t kAwakeOnline[] = L"电脑已唤醒，正在检查中继连接。";
constexpr wchar_t kMoved[] = L"本机网络地址已变化。";
constexpr wchar_t kMovedOnline[] = L"本机网络地址已变化，正在检查中继连接。";

constexpr std::uint64_t kSameWakeMs = 5000;

// Clears the flag even when an exception cuts the work short: a flag left set would refuse every
// later job.
class BusyGuard {
 public:
  explicit BusyGuard(std::atomic<bool>& busy) noexcept : busy_(&busy) {}
  ~BusyGuard() {
    if (busy_ != nullptr) busy_->exchange(false);
  }
  BusyGuard(const BusyGuard&) = delete;
  BusyGuard& operator=(const BusyGuard&) = delete;
  // The job runs; its result clears the flag.
  void Release() noexcept { busy_ = nullptr; }

 private:
  std::atomic<bool>* busy_;
};

}  // namespace

// Dropped without a trace while another job runs: the page disables its buttons, so such a click is
// a leftover in the queue.
void Client::StartJob(JobKind job, const std::wstring& busyText) {
  // Closing the browser control dispatches messages; a click among them comes too late.
  if (closing_.stop_requested() || busy_.exchange(true)) return;
  BusyGuard unlessStarted(busy_);
  // Assigning to a std::thread that is still joinable would end the program.
  deps_.JoinWorker();
  TakeFields();
  settings_.Save();
  requestFailed_ = false;
  page_.lastMessage = busyText;
  PostStateMessage();
  Log(busyText);
  // The message queue may be full when the job ends; then this timer finds the result.
  deps_.StartTimer(ClientTimer::StrandedResult);
  // Copied here, not on the worker: changes made in the window from now on count as later ones.
  deps_.StartWorker(job, std::make_unique<settings::JobSettings>(settings_));
  unlessStarted.Release();
}

void Client::FinishJob(const std::wstring& text) {
  // The worker posts its result shortly before it ends.
  deps_.JoinWorker();
  deps_.StopTimer(ClientTimer::StrandedResult);
  {
    // The page sees the job's settings while its status line still shows the job as running.
    const BusyGuard afterwards(busy_);
    PostApplyMessage();
    PostStateMessage();
  }
  page_.lastMessage = text;
  PostStateMessage();
  Log(text);
  deps_.Repaint();

  // After Log(): the refusal and its hint stand above the line about the retry.
  switch (DecideRetry(settings_.Read(), retryArmed_)) {
    case RetryStep::Arm:
      return ArmRetry();
    case RetryStep::Keep:
      return;
    case RetryStep::Disarm:
      return DisarmRetry();
  }
}

void Client::TakeStrandedResult() {
  if (const std::optional<std::wstring> text = stranded_.Take()) FinishJob(*text);
}

void Client::RetryConnect() {
  // The timer keeps running during jobs, one of which may have ended the refusal.
  if (busy_ || !CallsForRetry(settings_.Read())) return;
  StartJob(JobKind::Connect, text::kRetryBusy);
}

void Client::ArmRetry() {
  deps_.StartTimer(ClientTimer::Retry);
  retryArmed_ = true;
  Log(text::kRetryArmed);
}

void Client::DisarmRetry() noexcept {
  deps_.StopTimer(ClientTimer::Retry);
  retryArmed_ = false;
}

void Client::OnHeartbeatRefused(std::wstring text) {
  heartbeatRunning_.exchange(false);
  // A connection made since the refusal was sent has been accepted; its tunnel stays.
  if (!settings_.Read().heartbeatAccepted && tunnel_->IsRunning()) {
    text += kTunnelStopped;
    const std::wstring stopped = tunnel_->Stop();
    if (!stopped.empty()) text.append(text::kLineBreak).append(stopped);
  }
  PostApplyMessage();
  PostStateMessage();
  Log(text);
  deps_.Repaint();
}

void Client::OnLinkChanged(bool connected) {
  // The report was posted by a tunnel thread; the tunnel may have been stopped since.
  if (!tunnel_->IsRunning()) return;
  PostStateMessage();
  Log(connected ? kLinkFound : kLinkLost);
}

void Client::OnUdpChanged(bool ready) {
  // As above. The page does not show the path of small packets.
  if (tunnel_->IsRunning()) Log(ready ? kUdpReady : kUdpNotReady);
}

void Client::LogAndCheckNetwork(const wchar_t* line, const wchar_t* lineOnline) {
  const bool isOnline = tunnel_->IsRunning();
  Log(isOnline ? lineOnline : line);
  if (isOnline) tunnel_->LookAtNetwork();
}

void Client::OnAddressesChanged() {
  LogAndCheckNetwork(kMoved, kMovedOnline);
}

// Windows reports each sleep and wake twice on some computers: to every window, and to a window
// that has subscribed.
void Client::OnSleep() {
  if (std::exchange(isAsleep_, true)) return;
  Log(tunnel_->IsRunning() ? kAsleepOnline : kAsleep);
}

// A wake without a sleep before it counts too, unless it repeats the last one.
void Client::OnWake(std::uint64_t nowMs) {
  const bool wasAsleep = std::exchange(isAsleep_, false);
  if (!wasAsleep && nowMs - wokenMs_ < kSameWakeMs) return;
  wokenMs_ = nowMs;
  LogAndCheckNetwork(kAwake, kAwakeOnline);
}

}  // namespace shell
