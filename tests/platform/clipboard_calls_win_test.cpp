// Every call of the clipboard's: its arguments, and what comes of its failure.
#include <gtest/gtest.h>

#include "platform/clipboard.h"
#include "win32/calls.h"

namespace platform {
namespace {

using namespace win32;

std::string Copy() {
  return CopySecretToClipboard(L"密码") ? "ok" : "no";
}

TEST(ClipboardCalls, HandTheTextOverWithItsTerminatorAndAskTheHistoryToLeaveItOut) {
  // By these names Windows' clipboard history and its cloud know what to leave out.
  const wchar_t* const formats[] = {L"ExcludeClipboardContentFromMonitorProcessing",
                                    L"CanIncludeInClipboardHistory", L"CanUploadToCloudClipboard"};
  std::vector<std::string> expected = {
      Said<Api::OpenClipboard>(nullptr),
      Said<Api::EmptyClipboard>(),
      Said<Api::GlobalAlloc>(GMEM_MOVEABLE, 6),
      Said<Api::GlobalLock>(Handle{1}),
      Said<Api::GlobalUnlock>(Handle{1}),
      Said<Api::SetClipboardData>(CF_UNICODETEXT, Handle{1}),
  };
  int given = 4;  // the memory, its address, and the memory again as the clipboard's
  for (const wchar_t* format : formats) {
    expected.push_back(Said<Api::GlobalAlloc>(GMEM_MOVEABLE, 4));
    expected.push_back(Said<Api::GlobalLock>(Handle{given}));
    expected.push_back(Said<Api::GlobalUnlock>(Handle{given}));
    expected.push_back(Said<Api::RegisterClipboardFormatW>(format));
    expected.push_back(
        Said<Api::SetClipboardData>(::RegisterClipboardFormatW(format), Handle{given}));
    given += 3;
  }
  expected.push_back(Said<Api::CloseClipboard>());
  Calls calls;
  EXPECT_EQ(Copy(), "ok");
  EXPECT_TRUE(calls.Were(expected));
  EXPECT_EQ(calls.Unbalanced(), "");
}

TEST(ClipboardCalls, NeedTheTextOnTheClipboardAndNothingElse) {
  const std::string eachFormat =
      "GlobalAlloc: ok\nGlobalLock: ok\nGlobalUnlock: ok\nRegisterClipboardFormatW: ok\n"
      "SetClipboardData: ok\n";
  EXPECT_EQ(EachFailure(Copy),
            "all well: ok\nOpenClipboard: ok\nEmptyClipboard: ok\nGlobalAlloc: no\n"
            "GlobalLock: no\nGlobalUnlock: ok\nSetClipboardData: no\n" +
                eachFormat + eachFormat + eachFormat + "CloseClipboard: ok\n");
}

TEST(ClipboardCalls, FreeWhatWasNotTakenAndCloseAfterIt) {
  for (const Api api : {Api::GlobalLock, Api::SetClipboardData}) {
    Calls calls;
    calls.Fail(api, 1450);
    EXPECT_EQ(Copy(), "no");
    EXPECT_TRUE(calls.WereAmong({Api::GlobalFree, Api::CloseClipboard},
                                {Said<Api::GlobalFree>(Handle{1}), Said<Api::CloseClipboard>()}));
  }
}

TEST(ClipboardCalls, TryFiveTimesWhileAnotherHoldsItAndLeaveItAlone) {
  const std::string open = Said<Api::OpenClipboard>(nullptr);
  const std::string pause = Said<Api::Sleep>(25);
  Calls calls;
  calls.Fail(Api::OpenClipboard, ERROR_ACCESS_DENIED, 0);
  calls.AnswerWith<Api::Sleep>([](DWORD) {});
  EXPECT_EQ(Copy(), "no");
  EXPECT_TRUE(calls.Were({open, pause, open, pause, open, pause, open, pause, open}));
}

TEST(ClipboardCalls, TakeItOnceTheOtherHasLetItGo) {
  Calls calls;
  calls.Fail(Api::OpenClipboard, ERROR_ACCESS_DENIED, 1);
  calls.Fail(Api::OpenClipboard, ERROR_ACCESS_DENIED, 2);
  calls.AnswerWith<Api::Sleep>([](DWORD) {});
  EXPECT_EQ(Copy(), "ok");
  EXPECT_EQ(calls.Count(Api::Sleep), 2);
  EXPECT_EQ(calls.Count(Api::CloseClipboard), 1);
}

}  // namespace
}  // namespace platform
