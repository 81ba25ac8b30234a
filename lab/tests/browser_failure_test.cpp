// Failing browser processes of the stand-in, against the published tables.
#include <gtest/gtest.h>

#include "browser_stand.h"

namespace {

constexpr wchar_t kIUnknown[] = L"00000000-0000-0000-C000-000000000046";
constexpr wchar_t kOtherArgs[] = L"0f99a40c-e962-4207-9e92-e3d542eff849";
constexpr wchar_t kFailureArgs[] = L"8155a9a4-1474-4a86-8cae-151b0fa6b8ca";

TEST_F(Stand, ReportsFailedProcesses) {
  OpenController();
  int kind = -1;
  RawHandler handler([&](void* sender, void* arguments) {
    EXPECT_EQ(sender, webview_);
    ExpectAnswers(arguments, {kIUnknown, kFailureArgs}, {kOtherArgs});
    EXPECT_EQ(CallSlot(arguments, 3, &kind), S_OK);
    EXPECT_EQ(CallSlot(arguments, 3, nullptr), E_POINTER);
  });
  int64_t token = 0;
  ASSERT_EQ(CallSlot(webview_, 25, &handler, &token), S_OK);
  int calls = 0;
  for (const uint32_t failed : {1u, 2u, 3u, 4u, 5u, 6u, 7u, 8u, 9u}) {
    bridge_.Send(107, Le32(failed));
    ASSERT_TRUE(Pump([&] { return handler.calls == calls + 1; }));
    ++calls;
    EXPECT_EQ(kind, static_cast<int>(failed));
    EXPECT_EQ(handler.thread, ::GetCurrentThreadId());
  }
  EXPECT_EQ(CallSlot(webview_, 32, L"1"), S_OK) << "the control lives";
  EXPECT_EQ(CallSlot(webview_, 6, L"again"), S_OK);
  EXPECT_EQ(CallSlot(webview_, 26, token), S_OK);
  EXPECT_EQ(handler.references, 1u);
}

TEST_F(Stand, RefusesCallsOnceTheBrowserHasExited) {
  OpenController();
  int kind = -1;
  RawHandler failed([&](void*, void* arguments) {
    CallSlot(arguments, 3, &kind);
    EXPECT_EQ(CallSlot(webview_, 32, L"1"), kInvalidState) << "from the report on";
  });
  int64_t token = 0;
  ASSERT_EQ(CallSlot(webview_, 25, &failed, &token), S_OK);
  bridge_.HangUp();
  ASSERT_TRUE(Pump([&] { return failed.calls == 1; }));
  EXPECT_EQ(kind, 0);
  EXPECT_EQ(CallSlot(controller_, 6, RECT{0, 0, 1, 1}), kInvalidState);
  EXPECT_EQ(CallSlot(controller_, 12, 0), kInvalidState);
  for (const size_t slot : {size_t{5}, size_t{6}, size_t{32}, size_t{33}}) {
    EXPECT_EQ(CallSlot(webview_, slot, L"1"), kInvalidState) << slot;
  }
  EXPECT_EQ(CallSlot(webview_, 25, &failed, &token), kInvalidState);
  EXPECT_EQ(CallSlot(controller_, 24), S_OK);
  EXPECT_EQ(failed.references, 1u);
  EXPECT_EQ(::GetWindow(parent_, GW_CHILD), nullptr);
}

TEST_F(Stand, ABrowserThatExitsDuringCreationFailsTheController) {
  bridge_.answer = 0;
  OpenEnvironment();
  HRESULT seen = S_OK;
  RawHandler completed([&](void* result, void*) { seen = ResultOf(result); });
  ASSERT_EQ(CallSlot(environment_, 3, parent_, &completed), S_OK);
  ASSERT_TRUE(bridge_.Next(1).has_value());
  bridge_.HangUp();
  ASSERT_TRUE(Pump([&] { return completed.calls == 1; }));
  EXPECT_EQ(seen, E_FAIL);
}

}  // namespace
