// Every call of the paste's desk: its arguments, and what comes of its failure.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "remote/password_paste.h"
#include "win32/calls.h"

namespace remote {
namespace {

using namespace win32;

constexpr wchar_t kId[] = L"987654321";

HWND Window(std::uintptr_t number) {
  return reinterpret_cast<HWND>(number);
}

// A desk with windows that are not there, in the system's order.
class PasteDeskCalls : public testing::Test {
 protected:
  struct Shown {
    HWND window;
    std::wstring title;
    bool visible = true;
    HWND owner = nullptr;
    DWORD process = 1;
  };

  PasteDeskCalls() {
    calls_.AnswerWith<Api::EnumWindows>([this](WNDENUMPROC look, LPARAM lParam) {
      const auto more = [&](const Shown& shown) { return look(shown.window, lParam) != FALSE; };
      return std::ranges::all_of(windows_, more) ? TRUE : FALSE;
    });
    calls_.AnswerWith<Api::IsWindowVisible>(
        [this](HWND window) { return At(window).visible ? TRUE : FALSE; });
    calls_.AnswerWith<Api::GetWindow>([this](HWND window, UINT) { return At(window).owner; });
    calls_.AnswerWith<Api::GetWindowTextLengthW>(
        [this](HWND window) { return static_cast<int>(At(window).title.size()); });
    calls_.AnswerWith<Api::GetWindowTextW>([this](HWND window, wchar_t* text, int) {
      const std::wstring& title = At(window).title;
      std::ranges::copy(title, text);
      return static_cast<int>(title.size());
    });
    calls_.AnswerWith<Api::SetForegroundWindow>([](HWND) { return TRUE; });
    calls_.AnswerWith<Api::GetForegroundWindow>([this] { return inFront_; });
    calls_.AnswerWith<Api::GetWindowThreadProcessId>([this](HWND window, DWORD* process) -> DWORD {
      if (window == nullptr) return 0;
      *process = At(window).process;
      return 1;
    });
    calls_.AnswerWith<Api::SendInput>([](UINT count, INPUT*, int) { return count; });
  }

  [[nodiscard]] const Shown& At(HWND window) const {
    return *std::ranges::find(windows_, window, &Shown::window);
  }
  [[nodiscard]] void* Find() const { return desk_.findWindow(kId); }

  Calls calls_;
  std::vector<Shown> windows_;
  HWND inFront_ = nullptr;
  const PasteDesk desk_ = RealPasteDesk({}, {});
};

TEST_F(PasteDeskCalls, LookAtEachWindowUntilOneMatches) {
  const HWND hidden = Window(0x101), owned = Window(0x102), untitled = Window(0x103),
             other = Window(0x104), wanted = Window(0x105);
  windows_ = {{hidden, kId, false}, {owned, kId, true, untitled}, {untitled, L""},
              {other, L"Notes"},    {wanted, L"RustDesk"},        {Window(0x106), kId}};
  EXPECT_EQ(Find(), wanted);
  // The owner that a call has given bears its name from then on.
  EXPECT_TRUE(calls_.Were({
      Said<Api::EnumWindows>(Text{"function"}, Some{}),
      Said<Api::IsWindowVisible>(hidden),
      Said<Api::IsWindowVisible>(owned),
      Said<Api::GetWindow>(owned, GW_OWNER),
      Said<Api::IsWindowVisible>(Handle{1}),
      Said<Api::GetWindow>(Handle{1}, GW_OWNER),
      Said<Api::GetWindowTextLengthW>(Handle{1}),
      Said<Api::IsWindowVisible>(other),
      Said<Api::GetWindow>(other, GW_OWNER),
      Said<Api::GetWindowTextLengthW>(other),
      Said<Api::GetWindowTextW>(other, L"", 6),
      Said<Api::IsWindowVisible>(wanted),
      Said<Api::GetWindow>(wanted, GW_OWNER),
      Said<Api::GetWindowTextLengthW>(wanted),
      Said<Api::GetWindowTextW>(wanted, L"", 9),
  }));
}

TEST_F(PasteDeskCalls, FindNothingWhereOneFails) {
  windows_ = {{Window(0x101), kId}};
  for (const Api api :
       {Api::EnumWindows, Api::IsWindowVisible, Api::GetWindowTextLengthW, Api::GetWindowTextW}) {
    calls_.Fail(api, ERROR_INVALID_WINDOW_HANDLE);
    EXPECT_EQ(Find(), nullptr) << Of(api).name;
  }
  EXPECT_EQ(Find(), Window(0x101));
}

TEST_F(PasteDeskCalls, BringToFrontWithOneCall) {
  desk_.bringToFront(Window(0x101));
  EXPECT_TRUE(calls_.Were({Said<Api::SetForegroundWindow>(Window(0x101))}));
}

TEST_F(PasteDeskCalls, CompareTheProcessesOfTheWindowAndOfTheOneInFront) {
  windows_ = {{Window(0x101), kId, true, nullptr, 7}, {Window(0x102), L"", true, nullptr, 7}};
  inFront_ = Window(0x102);
  EXPECT_TRUE(desk_.isInFront(Window(0x101)));
  EXPECT_TRUE(calls_.Were({
      Said<Api::GetWindowThreadProcessId>(Window(0x101), Ref{0}),
      Said<Api::GetForegroundWindow>(),
      Said<Api::GetWindowThreadProcessId>(Handle{1}, Ref{0}),
  }));
}

TEST_F(PasteDeskCalls, AreInFrontOfNothingWhereOneFails) {
  windows_ = {{Window(0x101), kId, true, nullptr, 7}};
  inFront_ = Window(0x101);
  ASSERT_TRUE(desk_.isInFront(Window(0x101)));
  const struct {
    Api api;
    int nth;
  } rows[] = {{Api::GetWindowThreadProcessId, 1},
              {Api::GetForegroundWindow, 1},
              {Api::GetWindowThreadProcessId, 2},
              {Api::GetWindowThreadProcessId, 0}};
  for (const auto& row : rows) {
    calls_.Fail(row.api, ERROR_INVALID_WINDOW_HANDLE, row.nth);
    EXPECT_FALSE(desk_.isInFront(Window(0x101))) << Of(row.api).name << row.nth;
  }
}

std::string SaidKey(int virtualKey, bool isUp) {
  const std::string input = "{type 1 key " + std::to_string(virtualKey) + " scan 0 flags " +
                            (isUp ? "2" : "0") + " time 0 extra 0}";
  return Said<Api::SendInput>(1, Text{input}, sizeof(INPUT));
}

TEST_F(PasteDeskCalls, PressControlVAndEnterKeyByKey) {
  windows_ = {{Window(0x101), L"RustDesk"}};
  inFront_ = Window(0x101);
  PasteDesk desk = desk_;
  desk.sleep = [](std::chrono::milliseconds) { return true; };
  desk.copyToClipboard = [](const std::wstring&) { return true; };
  PastePassword(L"secret", kId, desk);
  EXPECT_TRUE(calls_.WereAmong(
      {Api::SendInput},
      {SaidKey(VK_CONTROL, false), SaidKey('V', false), SaidKey('V', true),
       SaidKey(VK_CONTROL, true), SaidKey(VK_RETURN, false), SaidKey(VK_RETURN, true)}));
}

TEST_F(PasteDeskCalls, GoOnWithTheKeysWhereOneIsRefused) {
  calls_.Fail(Api::SendInput, ERROR_ACCESS_DENIED, 0);
  desk_.sendKey(kKeyControl, true);
  desk_.sendKey(kKeyControl, false);
  EXPECT_EQ(calls_.Count(Api::SendInput), 2);
}

}  // namespace
}  // namespace remote
