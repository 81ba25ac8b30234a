// Every Windows call for the clipboard, with its arguments and its failure.
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
  // Windows' clipboard history and cloud skip texts with these formats.
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

TEST(ClipboardCalls, RequireOnlyTheTextOnTheClipboard) {
  const std::string eachFormat =
      "GlobalAlloc: ok\nGlobalLock: ok\nGlobalUnlock: ok\nRegisterClipboardFormatW: ok\n"
      "SetClipboardData: ok\n";
  EXPECT_EQ(EachFailure(Copy),
            "all well: ok\nOpenClipboard: ok\nEmptyClipboard: ok\nGlobalAlloc: no\n"
            "GlobalLock: no\nGlobalUnlock: ok\nSetClipboardData: no\n" +
                eachFormat + eachFormat + eachFormat + "CloseClipboard: ok\n");
}

TEST(ClipboardCalls, FreeARefusedCopyAndThenClose) {
  for (const Api api : {Api::GlobalLock, Api::SetClipboardData}) {
    Calls calls;
    calls.Fail(api, 1450);
    EXPECT_EQ(Copy(), "no");
    EXPECT_TRUE(calls.WereAmong({Api::GlobalFree, Api::CloseClipboard},
                                {Said<Api::GlobalFree>(Handle{1}), Said<Api::CloseClipboard>()}));
  }
}

TEST(ClipboardCalls, TryFiveTimesWhileItIsHeldAndLeaveItAlone) {
  const std::string open = Said<Api::OpenClipboard>(nullptr);
  const std::string pause = Said<Api::Sleep>(25);
  Calls calls;
  calls.Fail(Api::OpenClipboard, ERROR_ACCESS_DENIED, 0);
  calls.AnswerWith<Api::Sleep>([](DWORD) {});
  EXPECT_EQ(Copy(), "no");
  EXPECT_TRUE(calls.Were({open, pause, open, pause, open, pause, open, pause, open}));
}

TEST(ClipboardCalls, OpenItOnceTheOtherProgramHasClosedIt) {
  Calls calls;
  calls.Fail(Api::OpenClipboard, ERROR_ACCESS_DENIED, 1);
  calls.Fail(Api::OpenClipboard, ERROR_ACCESS_DENIED, 2);
  calls.AnswerWith<Api::Sleep>([](DWORD) {});
  EXPECT_EQ(Copy(), "ok");
  EXPECT_EQ(calls.Count(Api::Sleep), 2);
  EXPECT_EQ(calls.Count(Api::CloseClipboard), 1);
}

// ---- removing the text

// A clipboard with this text. Its owner responds or hangs.
class FilledClipboard {
 public:
  explicit FilledClipboard(Calls& calls, bool ownerHangs = false) {
    calls.AnswerWith<Api::OpenClipboard>([](HWND) { return TRUE; });
    calls.AnswerWith<Api::GetClipboardOwner>([] { return reinterpret_cast<HWND>(0x101); });
    calls.AnswerWith<Api::IsHungAppWindow>(
        [ownerHangs](HWND) { return ownerHangs ? TRUE : FALSE; });
    calls.AnswerWith<Api::GetClipboardData>([this](UINT) { return static_cast<HANDLE>(text_); });
    calls.AnswerWith<Api::GlobalLock>([](HGLOBAL memory) { return memory; });
    calls.AnswerWith<Api::GlobalSize>([this](HGLOBAL) { return sizeof(text_); });
    calls.AnswerWith<Api::GlobalUnlock>([](HGLOBAL) { return TRUE; });
    calls.AnswerWith<Api::EmptyClipboard>([] { return TRUE; });
    calls.AnswerWith<Api::CloseClipboard>([] { return TRUE; });
  }

 private:
  wchar_t text_[3] = L"pw";
};

std::string TakeOff() {
  return TakeSecretOffClipboard(L"pw") ? "gone" : "perhaps there";
}

TEST(ClipboardCalls, RemoveTheSecretIfItIsTheText) {
  Calls calls;
  const FilledClipboard filled(calls);
  EXPECT_EQ(TakeOff(), "gone");
  EXPECT_TRUE(calls.Were({
      Said<Api::OpenClipboard>(nullptr),
      Said<Api::GetClipboardOwner>(),
      Said<Api::IsHungAppWindow>(Handle{1}),
      Said<Api::GetClipboardData>(CF_UNICODETEXT),
      Said<Api::GlobalLock>(Handle{2}),
      Said<Api::GlobalSize>(Handle{3}),
      Said<Api::GlobalUnlock>(Handle{3}),
      Said<Api::EmptyClipboard>(),
      Said<Api::CloseClipboard>(),
  }));
}

TEST(ClipboardCalls, DoNotReadTextThatAHungProgramMustRender) {
  Calls calls;
  const FilledClipboard filled(calls, true);
  EXPECT_EQ(TakeOff(), "perhaps there");
  EXPECT_EQ(calls.Count(Api::GetClipboardData), 0);
  EXPECT_EQ(calls.Count(Api::EmptyClipboard), 0);
  EXPECT_EQ(calls.Count(Api::CloseClipboard), 1);
}

TEST(ClipboardCalls, ReportASecretThatMayRemain) {
  const struct {
    Api api;
    const char* outcome;
  } rows[] = {
      {Api::OpenClipboard, "perhaps there"},  {Api::GetClipboardData, "gone"},  // no text on it
      {Api::GlobalLock, "perhaps there"},     {Api::GlobalSize, "gone"},        // another text
      {Api::EmptyClipboard, "perhaps there"}, {Api::CloseClipboard, "gone"}};
  for (const auto& row : rows) {
    Calls calls;
    const FilledClipboard filled(calls);
    calls.AnswerWith<Api::Sleep>([](DWORD) {});
    calls.Fail(row.api, ERROR_ACCESS_DENIED, row.api == Api::OpenClipboard ? 0 : 1);
    EXPECT_EQ(TakeOff(), row.outcome) << Of(row.api).name;
    EXPECT_EQ(calls.Count(Api::CloseClipboard), row.api == Api::OpenClipboard ? 0 : 1);
  }
}

}  // namespace
}  // namespace platform
