// The Windows calls for the events and waits of the window's worker and of the session's end.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "shell/window_fixture.h"
#include "shell/window_messages.h"
#include "win32/calls.h"

namespace shell {
namespace {

using namespace win32;

constexpr wchar_t kTest[] = L"{\"action\":\"test\",\"f\":{}}";
const std::string kLookForSent =
    Said<Api::PeekMessageW>(Some{}, nullptr, 0, 0, PM_NOREMOVE | PM_QS_SENDMESSAGE);

class WorkerCalls : public WindowTest {
 protected:
  void SetUp() override { OpenWithReadyPage(); }
  // Ignores the fixture's own calls while it waits for a job.
  static void IgnorePump(Calls& calls) {
    calls.Ignore(Said<Api::MsgWaitForMultipleObjects>(0, nullptr, FALSE, 100, QS_ALLINPUT));
    calls.Ignore(Said<Api::PeekMessageW>(Some{}, nullptr, 0, 0, PM_REMOVE));
  }
  static std::string SaidWait() {
    return Said<Api::MsgWaitForMultipleObjects>(1, Some{}, FALSE, INFINITE, QS_SENDMESSAGE);
  }
  bool IsLogged(const std::wstring& line) const {
    return std::find(logged_.begin(), logged_.end(), line) != logged_.end();
  }
};

TEST_F(WorkerCalls, SignalTheEndOfEachJobByAnEvent) {
  Calls calls(Calls::Threads::All);
  for (int job = 0; job < 2; ++job) {
    PageSends(kTest);
    FinishJob();
  }
  const std::string made = Said<Api::CreateEventW>(nullptr, TRUE, FALSE, nullptr);
  EXPECT_TRUE(calls.WereAmong({Api::CreateEventW}, {made, made}));
  const Text first{calls.Given(Api::CreateEventW)};
  EXPECT_TRUE(calls.Had(Said<Api::SetEvent>(first)));
  EXPECT_TRUE(calls.Had(Said<Api::CloseHandle>(first))) << "the second job has one of its own";
  EXPECT_EQ(state_->worker.joinable(), false);
}

TEST_F(WorkerCalls, AnswerSentMessagesWhileWaitingForAJob) {
  Calls calls;
  IgnorePump(calls);
  int waits = 0;
  calls.AnswerWith<Api::MsgWaitForMultipleObjects>(
      [&waits](DWORD count, const HANDLE* handles, BOOL all, DWORD ms, DWORD wake) -> DWORD {
        if (count == 1 && ++waits <= 2) return WAIT_OBJECT_0 + 1;  // a sent message waits
        return Real<Api::MsgWaitForMultipleObjects>()(count, handles, all, ms, wake);
      });
  PageSends(kTest);
  FinishJob();
  EXPECT_TRUE(
      calls.WereAmong({Api::MsgWaitForMultipleObjects}, {SaidWait(), SaidWait(), SaidWait()}));
  EXPECT_TRUE(calls.Had(kLookForSent));
  EXPECT_TRUE(IsLogged(L"完成"));
}

TEST_F(WorkerCalls, WaitForTheThreadItselfIfTheEventFails) {
  for (const Api api : {Api::CreateEventW, Api::MsgWaitForMultipleObjects}) {
    logged_.clear();
    Calls calls;
    if (api == Api::CreateEventW) {
      calls.Fail(api, 1450);
    } else {
      calls.AnswerWith<Api::MsgWaitForMultipleObjects>(
          [](DWORD count, const HANDLE* handles, BOOL all, DWORD ms, DWORD wake) -> DWORD {
            if (count == 1) return WAIT_FAILED;
            return Real<Api::MsgWaitForMultipleObjects>()(count, handles, all, ms, wake);
          });
    }
    PageSends(kTest);
    FinishJob();
    EXPECT_TRUE(IsLogged(L"完成")) << Of(api).name;
    EXPECT_FALSE(state_->worker.joinable());
    if (api == Api::CreateEventW) {
      IgnorePump(calls);
      EXPECT_TRUE(calls.WereAmong({Api::MsgWaitForMultipleObjects}, {})) << "there is no event";
    }
  }
}

TEST_F(WorkerCalls, SurviveAnEndThatIsNotSignalled) {
  Calls calls(Calls::Threads::All);
  calls.AnswerWith<Api::MsgWaitForMultipleObjects>(
      [](DWORD count, const HANDLE* handles, BOOL all, DWORD ms, DWORD wake) -> DWORD {
        if (count == 1) return WAIT_OBJECT_0;
        return Real<Api::MsgWaitForMultipleObjects>()(count, handles, all, ms, wake);
      });
  calls.AnswerWith<Api::SetEvent>([](HANDLE event) {
    Real<Api::SetEvent>()(event);
    return FALSE;
  });
  PageSends(kTest);
  FinishJob();
  EXPECT_TRUE(IsLogged(L"完成"));
}

TEST_F(WorkerCalls, LookForAStrandedResultWhileAJobRunsEvenWithoutATimer) {
  Calls calls;
  calls.Fail(Api::SetTimer, 1450, 0);
  calls.Fail(Api::KillTimer, 1450, 0);
  Connect(L"DEVICE_OFFLINE", L"");
  EXPECT_TRUE(state_->retryArmed);
  Connect(L"", L"c1");
  EXPECT_FALSE(state_->retryArmed);
}

// ---- the end of the session

TEST_F(WorkerCalls, PollEvery20MillisecondsAtTheSessionsEnd) {
  std::atomic<bool> mayEnd{false};
  onProxyRemoval_ = [&mayEnd](const std::vector<std::wstring>&) {
    while (!mayEnd) std::this_thread::yield();
  };
  Calls calls;
  calls.AnswerWith<Api::MsgWaitForMultipleObjects>(
      [&mayEnd](DWORD count, const HANDLE* handles, BOOL all, DWORD ms, DWORD wake) {
        mayEnd = true;
        return Real<Api::MsgWaitForMultipleObjects>()(count, handles, all, ms, wake);
      });
  Send(WM_ENDSESSION, TRUE);
  EXPECT_TRUE(
      calls.EachWas(Api::MsgWaitForMultipleObjects,
                    Said<Api::MsgWaitForMultipleObjects>(0, nullptr, FALSE, 20, QS_SENDMESSAGE)));
  EXPECT_TRUE(calls.EachWas(Api::PeekMessageW, kLookForSent));
  EXPECT_TRUE(IsLogged(L"软件隧道已停止，设置已保存。"));
}

TEST_F(WorkerCalls, CheckTheWorkersEventAtTheSessionsEnd) {
  std::atomic<bool> mayEnd{false};
  jobBody_ = [&mayEnd](settings::Settings&, tunnel::Tunnel&) {
    while (!mayEnd) std::this_thread::yield();
    return std::wstring(L"完成");
  };
  Calls calls;
  PageSends(kTest);
  const HANDLE ended = state_->workerEnded.Get();
  int looks = 0;
  calls.AnswerWith<Api::WaitForSingleObject>([&](HANDLE handle, DWORD ms) {
    if (handle == ended && ++looks == 2) mayEnd = true;
    return Real<Api::WaitForSingleObject>()(handle, ms);
  });
  Send(WM_ENDSESSION, TRUE);
  EXPECT_GE(looks, 2);
  EXPECT_TRUE(calls.Had(Said<Api::WaitForSingleObject>(Text{calls.Given(Api::CreateEventW)}, 0)));
  EXPECT_TRUE(IsLogged(L"软件隧道已停止，设置已保存。"));
}

// ---- an address change

TEST_F(WorkerCalls, WaitHalfASecondForFurtherAddressChanges) {
  Calls calls;
  Send(kAddressesChanged);
  Send(kAddressesChanged);
  Send(WM_TIMER, kAddressTimer);
  const std::string wait = Said<Api::SetTimer>(Some{}, 305, 500, nullptr);
  EXPECT_TRUE(calls.WereAmong({Api::SetTimer, Api::KillTimer},
                              {wait, wait, Said<Api::KillTimer>(Some{}, 305)}));
}

}  // namespace
}  // namespace shell
