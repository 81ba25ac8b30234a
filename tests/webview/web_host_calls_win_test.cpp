// Every Windows call of the host, with its arguments and its failure.
#include <algorithm>

#include "webview/web_host_fixture.h"
#include "win32/calls.h"

namespace webview {
namespace {

using win32::Api;
using win32::Handle;
using win32::Said;
using win32::Some;
using win32::Text;

class WebHostCalls : public WebHostTest {
 protected:
  void CreateAndComplete() {
    Create();
    CompleteEnvironment();
    CompleteController();
  }
  [[nodiscard]] bool Did(const std::string& call) const {
    return std::ranges::find(calls_, call) != calls_.end();
  }
};

TEST_F(WebHostCalls, QueryTheWindowsAreaStateAndFocus) {
  win32::Calls windows;
  CreateAndComplete();
  EXPECT_TRUE(windows.WereAmong(
      {Api::GetClientRect, Api::IsIconic, Api::GetForegroundWindow, Api::GetFocus},
      {
          Said<Api::GetClientRect>(window_, Text{"[0 0 0 0]"}),
          Said<Api::IsIconic>(window_),
          Said<Api::GetFocus>(),
      }));
}

TEST_F(WebHostCalls, CoverNothingWithoutAnArea) {
  win32::Calls windows;
  windows.Fail(Api::GetClientRect, ERROR_INVALID_WINDOW_HANDLE);
  CreateAndComplete();
  EXPECT_TRUE(host_->IsUp());
  EXPECT_FALSE(Did("put_Bounds"));
}

TEST_F(WebHostCalls, HideThePageOfAMinimisedWindow) {
  win32::Calls windows;
  windows.AnswerWith<Api::IsIconic>([](HWND) { return TRUE; });
  CreateAndComplete();
  EXPECT_TRUE(Did("hide"));
  EXPECT_FALSE(Did("MoveFocus"));
}

TEST_F(WebHostCalls, PassOnTheWindowsKeyboard) {
  win32::Calls windows;
  windows.AnswerWith<Api::GetFocus>([this] { return window_; });
  CreateAndComplete();
  EXPECT_TRUE(Did("MoveFocus"));
  EXPECT_FALSE(Did("hide"));
}

// The destroyed control had the keyboard, so no window has it now.
TEST_F(WebHostCalls, PassOnTheKeyboardOfADestroyedControl) {
  BringUp();
  for (const bool isActive : {true, false}) {
    win32::Calls windows;
    windows.AnswerWith<Api::GetForegroundWindow>([&] { return isActive ? window_ : nullptr; });
    windows.AnswerWith<Api::GetFocus>([]() -> HWND { return nullptr; });
    host_->MakeAnew();
    calls_.clear();
    CompleteEnvironment();
    CompleteController();
    EXPECT_EQ(Did("MoveFocus"), isActive);
    EXPECT_TRUE(windows.EachWas(Api::GetForegroundWindow, Said<Api::GetForegroundWindow>()));
    EXPECT_EQ(windows.Count(Api::GetFocus), isActive ? 0 : 1);
  }
}

TEST_F(WebHostCalls, FreeThePagesTextOnce) {
  BringUp();
  win32::Calls windows;
  Post(L"text");
  Post(std::nullopt);
  EXPECT_EQ(messages_, std::vector<std::wstring>{L"text"});
  EXPECT_TRUE(windows.WereAmong({Api::CoTaskMemFree}, {Said<Api::CoTaskMemFree>(Some{})}));
}

TEST(PageResourceCalls, ReadResource210) {
  win32::Calls calls;
  EXPECT_FALSE(PageFromResources().empty());
  EXPECT_TRUE(calls.Were({
      Said<Api::FindResourceW>(nullptr, MAKEINTRESOURCEW(210), RT_RCDATA),
      Said<Api::LoadResource>(nullptr, Handle{1}),
      Said<Api::LockResource>(Text{calls.Given(Api::LoadResource)}),
      Said<Api::SizeofResource>(nullptr, Handle{1}),
  }));
  for (const Api api : {Api::FindResourceW, Api::LoadResource, Api::LockResource}) {
    calls.Fail(api, ERROR_RESOURCE_NAME_NOT_FOUND);
    EXPECT_EQ(PageFromResources(), L"") << Of(api).name;
  }
}

}  // namespace
}  // namespace webview
