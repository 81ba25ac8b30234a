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

// A recorded call.
struct Call {
  Api api{};
  std::string text;  // in the form of Said()
  void* returnsTo = nullptr;
  bool failed = false;    // made to fail
  bool asserted = false;  // its text was compared by a test
};

// The treatment of the program's next call.
struct Order {
  bool fails = false;
  DWORD error = 0;
};

// Records the Windows calls of this program during its lifetime, by putting its own functions into
// the program's import table. A test can make each call fail, or answer it.
//
// Threads: records the calls of the thread that created it, or of all threads. Other threads must
//          have left the program's code before it is destroyed.
// Owns:    nothing of the program's. Only one may exist at a time.
// Its destructor writes to the file <program>.exe.calls which calls were asserted or made to fail,
// for call_sites.mjs.
class Calls {
 public:
  enum class Threads { Own, All };

  explicit Calls(Threads threads = Threads::Own);
  ~Calls();
  Calls(const Calls&) = delete;
  Calls& operator=(const Calls&) = delete;

  // Makes the `nth` call of a function from now on fail with `error`; every call for nth = 0.
  void Fail(Api api, DWORD error, int nth = 1);
  // Makes the `nth` of all calls that can fail return a failure.
  void FailAny(DWORD error, int nth);
  // Calls `answer`, which has the function's type, instead of the function. It may set the last
  // error and call Real<api>().
  template <Api api, typename Answer>
  void AnswerWith(Answer answer);

  // True when these are the calls, one Said() each; only then do they count as asserted.
  testing::AssertionResult Were(const std::vector<std::string>& expected);
  // The same for the calls of the named functions only.
  testing::AssertionResult WereAmong(const std::set<Api>& looked,
                                     const std::vector<std::string>& expected);
  // True when `api` was called and every call of it was `expected`.
  testing::AssertionResult EachWas(Api api, const std::string& expected);
  // True when at least one call was `expected`; only those count as asserted. For functions that
  // the run-time library calls, too.
  testing::AssertionResult Had(const std::string& expected);
  // Excludes calls with this text from every comparison, such as the run-time library's own.
  void Ignore(const std::string& text);
  // The name ("h3") of the first result of a successful call of `api`.
  [[nodiscard]] std::string Given(Api api) const;
  [[nodiscard]] int Count(Api api) const;
  [[nodiscard]] int CountThatCanFail() const;
  // The name of the function that was made to fail; empty when none was.
  [[nodiscard]] std::string Failed() const;
  // Handles that were not closed, or closed twice, such as "h2 of CreateFileW".
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
  // The call has succeeded, so the memory belongs to the system now.
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

// The real function behind the hook.
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

// An expected call with all its arguments: constants as in the code, Handle{1}, Ref{0}, Some{},
// nullptr; a std::string for bytes, followed by their length.
template <Api api, typename... Arguments>
std::string Said(const Arguments&... arguments) {
  static_assert(sizeof...(Arguments) == Parts<Pointer<api>>::kArguments);
  return JoinCall(api, {Print(arguments, Names())...});
}

// Runs `operation` once unchanged, then once for each of its calls that can fail, with that call
// failing with `error`. Returns a line for each run: "CreateFileW: " and the operation's result,
// with "LEAKED" if the process has more open handles than before. The first line is "all well:
// ...". `prepare` may set answers for a run.
std::string EachFailure(
    const std::function<std::string()>& operation, DWORD error = ERROR_NO_SYSTEM_RESOURCES,
    const std::function<void(Calls& calls)>& prepare = [](Calls&) {});

// The number of open kernel handles of this process.
std::size_t OpenHandles();

}  // namespace win32
