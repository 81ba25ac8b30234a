#include "checks/check.h"

#include <exception>
#include <memory>
#include <optional>
#include <set>
#include <system_error>

#include "platform/detached_thread.h"
#include "platform/mutex.h"
#include "text/utf8.h"

namespace checks {
namespace {

constexpr wchar_t kNotEnded[] = L"这一项在 ";
constexpr wchar_t kNotEndedTail[] = L" 秒内没有结束，结果未知。";
constexpr wchar_t kNotEndedCure[] = L"稍后再做一次；仍然如此时，把这份报告发给服务管理员。";
constexpr wchar_t kFailed[] = L"这一项没有做成：";
constexpr wchar_t kFailedCure[] = L"把这份报告发给服务管理员。";

// Collects the outcomes of one stage. Shared with its threads, because some may outlive the wait.
class Board {
 public:
  explicit Board(std::size_t count) : outcomes_(count), missing_(count) {}

  void Put(std::size_t index, Outcome outcome) EXCLUDES(lock_) {
    const platform::MutexLock held(lock_);
    outcomes_[index] = std::move(outcome);
    --missing_;
    changed_.NotifyAll();
  }

  // Blocks until all outcomes are there or `deadline` has passed.
  std::vector<std::optional<Outcome>> Await(std::chrono::steady_clock::time_point deadline)
      EXCLUDES(lock_) {
    const platform::MutexLock held(lock_);
    // In a loop: each result that arrives wakes the wait.
    while (missing_ > 0) {
      const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
          deadline - std::chrono::steady_clock::now());
      if (left.count() <= 0) break;
      changed_.WaitFor(lock_, left);
    }
    // A copy: a check that ends too late still writes to the board.
    return outcomes_;
  }

 private:
  platform::Mutex lock_;
  platform::Condition changed_;
  std::vector<std::optional<Outcome>> outcomes_ GUARDED_BY(lock_);
  std::size_t missing_ GUARDED_BY(lock_);
};

Outcome NotDone(const std::wstring& text, const wchar_t* cure) {
  Outcome outcome;
  outcome.Fault(text, cure);
  return outcome;
}

Outcome RunOne(const Check& check) {
  try {
    // A check that throws is a finding of its own; the others are not affected.
    return check.run();
  } catch (const std::exception& error) {
    return NotDone(kFailed + text::FromUtf8(error.what()), kFailedCure);
  }
}

void Start(const Check& check, const std::shared_ptr<Board>& board, std::size_t index) {
  // Detached: a call into a hanging driver or service cannot be cancelled.
  try {
    platform::StartDetached([check, board, index] { board->Put(index, RunOne(check)); });
  } catch (const std::system_error& error) {
    board->Put(index, NotDone(kFailed + text::FromUtf8(error.what()), kFailedCure));
  }
}

void RunStage(const std::vector<Check>& checks, int stage, std::chrono::milliseconds limit,
              std::vector<Finding>& findings) {
  std::vector<std::size_t> members;
  for (std::size_t i = 0; i < checks.size(); ++i) {
    if (checks[i].stage == stage) members.push_back(i);
  }
  const auto board = std::make_shared<Board>(members.size());
  // One deadline for the whole stage: its checks run at the same time.
  const auto deadline = std::chrono::steady_clock::now() + limit;
  for (std::size_t i = 0; i < members.size(); ++i) Start(checks[members[i]], board, i);
  const auto outcomes = board->Await(deadline);
  const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(limit).count();
  for (std::size_t i = 0; i < members.size(); ++i) {
    findings[members[i]].outcome =
        outcomes[i] ? *outcomes[i]
                    : NotDone(kNotEnded + std::to_wstring(seconds) + kNotEndedTail, kNotEndedCure);
  }
}

}  // namespace

std::vector<Finding> RunChecks(const std::vector<Check>& checks, std::chrono::milliseconds limit) {
  std::vector<Finding> findings;
  std::set<int> stages;  // ascending
  for (const Check& check : checks) {
    // In the order of the checks, whichever ends first.
    findings.push_back({check.id, check.title, check.english, {}});
    stages.insert(check.stage);
  }
  // One stage after the other: opening the driver changes what the checks before it look at.
  for (const int stage : stages) RunStage(checks, stage, limit, findings);
  return findings;
}

}  // namespace checks
