// The Windows calls that subscribe the window to system notices.
#include <gtest/gtest.h>

#include "shell/main_window.h"
#include "shell/window_messages.h"
#include "win32/calls.h"

namespace shell {
namespace {

using namespace win32;

class NoticeCalls : public testing::Test {
 protected:
  NoticeCalls()
      : window_(::CreateWindowExW(0, L"STATIC", L"", WS_OVERLAPPED, 0, 0, 1, 1, nullptr, nullptr,
                                  nullptr, nullptr)) {}
  ~NoticeCalls() override { Real<Api::DestroyWindow>()(window_); }

  // Fakes that accept every subscription and never send a notice.
  void InstallFakes() {
    calls_.AnswerWith<Api::RegisterSuspendResumeNotification>(
        [](HANDLE, DWORD) { return static_cast<HPOWERNOTIFY>(&powerNotice); });
    calls_.AnswerWith<Api::UnregisterSuspendResumeNotification>([](HPOWERNOTIFY) { return TRUE; });
    calls_.AnswerWith<Api::WTSRegisterSessionNotification>([](HWND, DWORD) { return TRUE; });
    calls_.AnswerWith<Api::WTSUnRegisterSessionNotification>([](HWND) { return TRUE; });
    AnswerAddressSubscription(NO_ERROR);
    calls_.AnswerWith<Api::CancelMibChangeNotify2>([](HANDLE) { return DWORD{NO_ERROR}; });
  }
  void AnswerAddressSubscription(DWORD result) {
    calls_.AnswerWith<Api::NotifyUnicastIpAddressChange>(
        [this, result](ADDRESS_FAMILY, PUNICAST_IPADDRESS_CHANGE_CALLBACK callback, void* context,
                       BOOLEAN, HANDLE* notice) {
          callback_ = callback;
          context_ = context;
          *notice = &addressNotice;
          return result;
        });
  }
  void SubscribeAndUnsubscribe() { SubscribeToSystem(window_).reset(); }

  static inline int powerNotice = 0;
  static inline int addressNotice = 0;
  Calls calls_;
  HWND window_;  // h1
  PUNICAST_IPADDRESS_CHANGE_CALLBACK callback_ = nullptr;
  void* context_ = nullptr;
};

TEST_F(NoticeCalls, SubscribeOnBehalfOfTheWindow) {
  InstallFakes();
  const auto notices = SubscribeToSystem(window_);
  const std::set<Api> all = {
      Api::RegisterSuspendResumeNotification,   Api::WTSRegisterSessionNotification,
      Api::NotifyUnicastIpAddressChange,        Api::CancelMibChangeNotify2,
      Api::UnregisterSuspendResumeNotification, Api::WTSUnRegisterSessionNotification};
  const std::vector<std::string> expected = {
      Said<Api::RegisterSuspendResumeNotification>(Handle{1}, DEVICE_NOTIFY_WINDOW_HANDLE),
      Said<Api::WTSRegisterSessionNotification>(Handle{1}, NOTIFY_FOR_THIS_SESSION),
      // FALSE: an initial notice would report no change.
      Said<Api::NotifyUnicastIpAddressChange>(AF_INET, Text{"function"}, Handle{1}, FALSE, Some{})};
  EXPECT_TRUE(calls_.WereAmong(all, expected));
}

TEST_F(NoticeCalls, EndWithTheSubscriptionInTheOppositeOrder) {
  InstallFakes();
  SubscribeAndUnsubscribe();
  EXPECT_TRUE(calls_.WereAmong({Api::WTSUnRegisterSessionNotification, Api::CancelMibChangeNotify2,
                                Api::UnregisterSuspendResumeNotification},
                               {Said<Api::WTSUnRegisterSessionNotification>(Handle{1}),
                                Said<Api::CancelMibChangeNotify2>(Handle{3}),
                                Said<Api::UnregisterSuspendResumeNotification>(Handle{2})}));
}

TEST_F(NoticeCalls, ContinueWithoutRefusedNotices) {
  const struct {
    Api asks;
    Api ends;
  } rows[] = {{Api::RegisterSuspendResumeNotification, Api::UnregisterSuspendResumeNotification},
              {Api::WTSRegisterSessionNotification, Api::WTSUnRegisterSessionNotification},
              {Api::NotifyUnicastIpAddressChange, Api::CancelMibChangeNotify2}};
  InstallFakes();
  for (const auto& refused : rows) {
    std::vector<int> before;
    for (const auto& row : rows) before.push_back(calls_.Count(row.ends));
    calls_.Fail(refused.asks, 1450);
    SubscribeAndUnsubscribe();
    for (std::size_t i = 0; i < std::size(rows); ++i) {
      const int ended = rows[i].asks == refused.asks ? 0 : 1;
      EXPECT_EQ(calls_.Count(rows[i].ends) - before[i], ended) << Of(refused.asks).name;
    }
  }
}

TEST_F(NoticeCalls, IgnoreAHandleReturnedWithAnError) {
  InstallFakes();
  AnswerAddressSubscription(ERROR_NOT_SUPPORTED);
  SubscribeAndUnsubscribe();
  EXPECT_EQ(calls_.Count(Api::CancelMibChangeNotify2), 0);
}

TEST_F(NoticeCalls, PostAddressChangesToTheWindow) {
  InstallFakes();
  const auto notices = SubscribeToSystem(window_);
  ASSERT_NE(callback_, nullptr);
  EXPECT_EQ(context_, window_);
  callback_(context_, nullptr, MibAddInstance);
  MSG message{};
  EXPECT_NE(::PeekMessageW(&message, window_, kAddressesChanged, kAddressesChanged, PM_REMOVE),
            FALSE);
  calls_.Fail(Api::PostMessageW, ERROR_NOT_ENOUGH_QUOTA);
  callback_(context_, nullptr, MibDeleteInstance);
  const std::string said = Said<Api::PostMessageW>(Handle{1}, WM_APP + 26, 0, 0);
  EXPECT_TRUE(calls_.WereAmong({Api::PostMessageW}, {said, said}));
}

// Calls the real functions.
TEST_F(NoticeCalls, ReleaseEverything) {
  SubscribeAndUnsubscribe();
  EXPECT_EQ(calls_.Unbalanced(), "h1 of CreateWindowExW");
}

}  // namespace
}  // namespace shell
