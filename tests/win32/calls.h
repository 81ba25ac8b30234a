#pragma once

#include <gtest/gtest.h>

#include <array>
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "win32/print.h"

namespace win32 {

// One call that came by.
struct Call {
  Api api{};
  std::string text;  // as Said() writes it
  void* returnsTo = nullptr;
  bool failed = false;    // made to fail
  bool asserted = false;  // its text was compared
};

// How the call that the program begins is to go on.
struct Order {
  bool fails = false;
  DWORD error = 0;
};

// Records the Windows calls of this program while it lives: it puts its own functions into the
// program's import table. Each call can be made to fail, or be answered by the test.
//
// Threads: records those of the thread that made it, or of all. All others must have left the
//          program's code when it is destroyed.
// Owns:    nothing of the program's. At most one lives at a time.
// At its end it notes in the file <program>.exe.calls which calls were asserted or made to fail,
// for call_sites.mjs to count.
class Calls {
 public:
  enum class Threads { Own, All };

  explicit Calls(Threads threads = Threads::Own);
  ~Calls();
  Calls(const Calls&) = delete;
  Calls& operator=(const Calls&) = delete;

  // Makes the `nth` call of a function from now on fail with `error`, each call with nth = 0.
  void Fail(Api api, DWORD error, int nth = 1);
  // Makes the `nth` of all calls that can fail do so.
  void FailAny(DWORD error, int nth);
  // Has `answer`, of the function's own type, called instead of it. It may set the last error, and
  // call Real<api>().
  template <Api api, typename Answer>
  void AnswerWith(Answer answer);

  // True when the calls are these, one Said() each; only then they count as asserted.
  testing::AssertionResult Were(const std::vector<std::string>& expected);
  // True when the calls of the named functions, and no others looked at, are these.
  testing::AssertionResult WereAmong(const std::set<Api>& looked,
                                     const std::vector<std::string>& expected);
  // True when there were calls of `api` and each was `expected`.
  testing::AssertionResult EachWas(Api api, const std::string& expected);
  // True when at least one call was `expected`; only such calls then count as asserted. For
  // functions that the run-time library calls too.
  testing::AssertionResult Had(const std::string& expected);
  // Leaves calls with this text out of every comparison, such as the run-time library's own.
  void Ignore(const std::string& text);
  // The name ("h3") of what the first successful call of `api` gave.
  [[nodiscard]] std::string Given(Api api) const;
  [[nodiscard]] int Count(Api api) const;
  [[nodiscard]] int CountThatCanFail() const;
  // The name of the function that was made to fail; empty when none was.
  [[nodiscard]] std::string Failed() const;
  // What was given out and not given back, or given back twice, such as "h2 of CreateFileW".
  [[nodiscard]] std::string Unbalanced() const;

 private:
  template <Api api, typename Signature>
  friend struct Hook;
  friend Calls* CallsOfThisThread();

  struct Gift {
    std::string name;
    Api by{};
    std::uintptr_t value = 0;
    bool isOpen = false;
  };
  struct PlannedFailure {
    bool anyApi = false;
    Api api{};
    DWORD error = 0;
    int nth = 0;
    int seen = 0;
  };

  Order Enter(Api api, void* returnsTo, std::string text, std::uintptr_t firstArgument);
  void Give(Api by, std::uintptr_t value);
  void TakeBack(Api by, std::uintptr_t value);
  // The system's from here on, as the call has succeeded.
  void Transfer(Api by, std::uintptr_t value);
  void Note() const;

  const DWORD thread_;
  const Threads threads_;
  std::vector<Call> calls_;
  std::vector<PlannedFailure> failures_;
  std::array<std::shared_ptr<void>, kApiCount> answers_;
  std::vector<Gift> given_;
  std::set<std::string> ignored_;
  std::vector<std::string> wronglyClosed_;
  Names names_;
};

// The function itself, which the hooks stand in front of.
void* RealAddress(Api api);
template <Api api>
Pointer<api> Real() {
  return reinterpret_cast<Pointer<api>>(RealAddress(api));
}

template <typename Signature>
struct Parts;
template <typename R, typename... A>
struct Parts<R (*)(A...)> {
  using Held = std::function<R(A...)>;
  static constexpr std::size_t kArguments = sizeof...(A);
};

template <Api api, typename Answer>
void Calls::AnswerWith(Answer answer) {
  using Held = typename Parts<Pointer<api>>::Held;
  answers_[static_cast<std::size_t>(api)] = std::make_shared<Held>(std::move(answer));
}

std::string JoinCall(Api api, const std::vector<std::string>& arguments);

// An expected call, with every argument: constants as the code names them, Handle{1}, Ref{0},
// Some{}, nullptr; a std::string for bytes, whose length follows.
template <Api api, typename... Arguments>
std::string Said(const Arguments&... arguments) {
  static_assert(sizeof...(Arguments) == Parts<Pointer<api>>::kArguments);
  return JoinCall(api, {Print(arguments, Names())...});
}

// Runs `operation` once as it is, then once for each of its calls that can fail, with that call
// failing with `error`. Returns a line for each run: "CreateFileW: " and what the operation
// returned, "LEAKED" with it where a handle of the process stayed open. The first line is "all
// well: ...". `prepare` may have the calls of a run answered.
std::string EachFailure(
    const std::function<std::string()>& operation, DWORD error = ERROR_NO_SYSTEM_RESOURCES,
    const std::function<void(Calls& calls)>& prepare = [](Calls&) {});

// How many kernel handles this process has open.
std::size_t OpenHandles();

}  // namespace win32
