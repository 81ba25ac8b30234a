#include "shell/job.h"

#include <exception>
#include <utility>

#include "service/api_messages.h"

namespace shell {
namespace {

constexpr wchar_t kUpdateCheckPrefix[] = L"自动更新检查异常：";

std::wstring Noticed(const UpdateCheck& check, const settings::Settings& settings,
                     const std::stop_token& closing) {
  try {
    return check(settings, closing);
  } catch (...) {
    return kUpdateCheckPrefix + service::FailureMessage(std::current_exception());
  }
}

}  // namespace

std::wstring RunJob(const Job& job, settings::JobSettings& settings, tunnel::Tunnel& tunnel,
                    const JobLink& link) {
  try {
    return job(settings, tunnel, link);
  } catch (...) {
    // The worker calls this; an exception that left its thread would end the program.
    return service::JobFailureLine(std::current_exception());
  }
}

void ResultBox::Put(std::wstring text) {
  const platform::MutexLock held(lock_);
  text_ = std::move(text);
}

std::optional<std::wstring> ResultBox::Take() {
  const platform::MutexLock held(lock_);
  return std::exchange(text_, std::nullopt);
}

void DeliverResult(std::wstring text, const std::function<bool(const std::wstring&)>& post,
                   const std::function<void()>& pause, ResultBox& box) {
  // The window's queue may be full for a moment or for good.
  constexpr int kAttempts = 5;
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    if (post(text)) return;
    pause();
  }
  box.Put(std::move(text));
}

std::wstring RunUpdateCheck(const UpdateCheck& check, const settings::Settings& settings,
                            const std::stop_token& closing) {
  std::wstring notice = Noticed(check, settings, closing);
  // A closing window has cut the check short; its failure would be no news.
  return closing.stop_requested() ? std::wstring() : notice;
}

bool CallsForRetry(const settings::Settings& settings) {
  // The code stays until the service answers a connection request again, so 断开 does not end the
  // retry.
  return settings.connectionId.empty() && service::IsServiceRefusalCode(settings.heartbeatMessage);
}

RetryStep DecideRetry(const settings::Settings& settings, bool armed) {
  if (!CallsForRetry(settings)) return RetryStep::Disarm;
  return armed ? RetryStep::Keep : RetryStep::Arm;
}

}  // namespace shell
