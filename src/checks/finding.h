#pragma once

#include <algorithm>
#include <functional>
#include <string>
#include <utility>
#include <vector>

// What a check of this computer has found. Plain values.
namespace checks {

enum class Verdict {
  Well,   // 正常
  Note,   // 提示: worth knowing, in nobody's way
  Fault,  // 异常: something that keeps the program from working
};

// One thing that is not as it should be, for the engineer.
struct Problem {
  Verdict verdict = Verdict::Fault;  // never Well
  std::wstring text;
  std::wstring cure;  // what to do; empty when there is nothing to do
};

struct Outcome {
  std::vector<Problem> problems;    // none: all is well
  std::vector<std::wstring> lines;  // what was seen

  void Fault(std::wstring text, std::wstring cure) {
    problems.push_back({Verdict::Fault, std::move(text), std::move(cure)});
  }
  void Note(std::wstring text, std::wstring cure = {}) {
    problems.push_back({Verdict::Note, std::move(text), std::move(cure)});
  }
  void Line(std::wstring text) { lines.push_back(std::move(text)); }

  // The worst of the problems.
  [[nodiscard]] Verdict WorstVerdict() const noexcept {
    Verdict worst = Verdict::Well;
    for (const Problem& problem : problems) worst = std::max(worst, problem.verdict);
    return worst;
  }
};

// One check. `run` is called on a thread of its own, which may be left behind: it owns all that it
// uses. What it throws becomes a problem.
struct Check {
  std::string id;       // names it for good, such as "driver-open"
  std::wstring title;   // Chinese
  std::string english;  // what is so when all is well; one sentence
  std::function<Outcome()> run;
  // Checks of one stage run at the same time; the next stage begins behind them.
  int stage = 0;
};

struct Finding {
  std::string id;
  std::wstring title;
  std::string english;
  Outcome outcome;
};

}  // namespace checks
