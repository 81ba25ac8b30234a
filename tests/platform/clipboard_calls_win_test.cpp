// Every call of the clipboard's: its arguments, and what comes of its failure.
#include <gtest/gtest.h>

#include "platform/clipboard.h"
#include "win32/calls.h"

namespace platform {
namespace {

using namespace win32;

TEST(ClipboardCalls, HandTheTextOverWithItsTerminator) {
  Calls calls;
  EXPECT_TRUE(CopyTextToClipboard(L"密码"));
  EXPECT_TRUE(calls.Were({
      Said<Api::OpenClipboard>(nullptr),
      Said<Api::EmptyClipboard>(),
      Said<Api::GlobalAlloc>(GMEM_MOVEABLE, 6),
      Said<Api::GlobalLock>(Handle{1}),
      Said<Api::GlobalUnlock>(Handle{1}),
      Said<Api::SetClipboardData>(CF_UNICODETEXT, Handle{1}),
      Said<Api::CloseClipboard>(),
  }));
}

TEST(ClipboardCalls, FreeWhatWasNotTakenAndCloseAfterEachFailure) {
  const auto copy = [] { return std::string(CopyTextToClipboard(L"密码") ? "ok" : "no"); };
  EXPECT_EQ(EachFailure(copy),
            "all well: ok\nOpenClipboard: no\nEmptyClipboard: no\nGlobalAlloc: no\n"
            "GlobalLock: no\nGlobalUnlock: ok\nSetClipboardData: no\nCloseClipboard: ok\n");
  for (const Api api : {Api::GlobalLock, Api::SetClipboardData}) {
    Calls calls;
    calls.Fail(api, 1450);
    copy();
    EXPECT_TRUE(calls.WereAmong({Api::GlobalFree, Api::CloseClipboard},
                                {Said<Api::GlobalFree>(Handle{1}), Said<Api::CloseClipboard>()}));
  }
  Calls calls;
  calls.Fail(Api::OpenClipboard, 1450);
  copy();
  EXPECT_EQ(calls.Count(Api::CloseClipboard), 0) << "it is another's";
}

}  // namespace
}  // namespace platform
