#pragma once

#include <algorithm>
#include <chrono>
#include <functional>
#include <string>
#include <utility>
#include <vector>

// The checks of the report and their results.
namespace checks {

enum class Verdict {
  Well,   // 正常
  Note,   // 提示: worth knowing, but not in the way
  Fault,  // 异常: keeps the program from working
};

// One deviation, for the engineer.
struct Problem {
  Verdict verdict = Verdict::Fault;  // never Well
  std::wstring text;
  std::wstring cure;  // empty when the engineer can do nothing
};

struct Outcome {
  std::vector<Problem> problems;    // empty: all is well
  std::vector<std::wstring> lines;  // what the check found

  void Fault(std::wstring text, std::wstring cure) {
    problems.push_back({Verdict::Fault, std::move(text), std::move(cure)});
  }
  void Note(std::wstring text, std::wstring cure = {}) {
    problems.push_back({Verdict::Note, std::move(text), std::move(cure)});
  }
  void Line(std::wstring text) { lines.push_back(std::move(text)); }

  [[nodiscard]] Verdict WorstVerdict() const noexcept {
    Verdict worst = Verdict::Well;
    for (const Problem& problem : problems) worst = std::max(worst, problem.verdict);
    return worst;
  }
};

struct Check {
  std::string id;       // permanent, such as "driver-open"
  std::wstring title;   // Chinese
  std::string english;  // one sentence that is true when all is well
  // Runs on a thread of its own, which may be abandoned, so it must own all that it uses. An
  // exception becomes a problem.
  std::function<Outcome()> run;
  // Checks of one stage run at the same time; the next stage starts after them.
  int stage = 0;
};

struct Finding {
  std::string id;
  std::wstring title;
  std::string english;
  Outcome outcome;
};

inline constexpr std::chrono::seconds kCheckLimit{10};

// Runs the checks stage by stage and returns their findings in the same order. A check that has not
// ended `limit` after its stage started is reported as a fault; its thread is abandoned and its
// late outcome is dropped. Blocks for at most `limit` a stage; any thread.
std::vector<Finding> RunChecks(const std::vector<Check>& checks, std::chrono::milliseconds limit);

}  // namespace checks
