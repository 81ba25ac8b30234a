#include "shell/window_messages.h"

#include <gtest/gtest.h>

namespace shell {
namespace {

struct NumberRow {
  const char* name;
  UINT declared;
  UINT number;
};

TEST(WindowMessages, HaveTheNumbersThatOtherProgramsPost) {
  const NumberRow rows[] = {
      {"job finished", kJobFinished, 0x8014},   {"ignored", kIgnored, 0x8015},
      {"heartbeat", kHeartbeatRefused, 0x8016}, {"notice", kNotice, 0x8017},
      {"from the page", kFromPage, 0x801E},     {"to the page", kToPage, 0x801F},
      {"unused timer", kUnusedTimer, 302},      {"retry timer", kRetryTimer, 303},
      {"retry period", kRetryMs, 5000},
  };
  for (const NumberRow& row : rows) EXPECT_EQ(row.declared, row.number) << row.name;
}

class PostedTexts : public testing::Test {
 protected:
  PostedTexts()
      : window_(::CreateWindowExW(0, L"STATIC", L"", 0, 0, 0, 0, 0, HWND_MESSAGE, nullptr, nullptr,
                                  nullptr)) {}
  ~PostedTexts() override { ::DestroyWindow(window_); }

  const HWND window_;
};

TEST_F(PostedTexts, ArriveAsTheyWere) {
  ASSERT_TRUE(PostText(window_, kNotice, L"一\0二"));
  MSG message{};
  ASSERT_NE(::PeekMessageW(&message, window_, kNotice, kNotice, PM_REMOVE), FALSE);
  const auto text = TakePostedText(message.lParam);
  ASSERT_NE(text, nullptr);
  EXPECT_EQ(*text, L"一\0二");
  EXPECT_EQ(TakePostedText(0), nullptr);
}

TEST_F(PostedTexts, ThatWaitAreAllDroppedAndTheQuitMessageIsKept) {
  for (const UINT message :
       {kJobFinished, kHeartbeatRefused, kNotice, kFromPage, kToPage, kShowFailure}) {
    ASSERT_TRUE(PostText(window_, message, L"text"));
  }
  ::PostMessageW(window_, kIgnored, 0, 1);      // carries no text, whatever lParam says
  ::PostMessageW(window_, kLinkChanged, 0, 1);  // carries no text either
  ::PostMessageW(window_, WM_APP, 0, 0);
  ::PostQuitMessage(7);
  DropPostedTexts(window_);

  MSG message{};
  ASSERT_NE(::PeekMessageW(&message, window_, 0, 0, PM_REMOVE), FALSE);
  EXPECT_EQ(message.message, UINT{WM_APP});
  ASSERT_NE(::PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE), FALSE);
  EXPECT_EQ(message.message, UINT{WM_QUIT});
  EXPECT_EQ(message.wParam, 7u);
}

}  // namespace
}  // namespace shell
