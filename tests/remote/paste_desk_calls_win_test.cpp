// Every call of the real desktop: its arguments, and the effect of its failure.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <string>
#include <vector>

#include "remote/password_paste.h"
#include "remote/remote_desktop.h"
#include "win32/calls.h"

namespace remote {
namespace {

using namespace win32;

constexpr wchar_t kId[] = L"987654321";

HWND Window(std::uintptr_t number) {
  return reinterpret_cast<HWND>(number);
}

// A desktop with imaginary windows, in the system's order.
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
    calls_.AnswerWith<Api::OpenProcess>(
        [this](DWORD, BOOL, DWORD id) { return Openable(id) ? ProcessHandleOf(id) : nullptr; });
    calls_.AnswerWith<Api::QueryFullProcessImageNameW>(
        [this](HANDLE process, DWORD, wchar_t* path, DWORD* lengthUnits) {
          const std::wstring& image = images_.at(IdOf(process));
          *lengthUnits = static_cast<DWORD>(image.copy(path, *lengthUnits));
          return TRUE;
        });
    calls_.AnswerWith<Api::CloseHandle>([](HANDLE) { return TRUE; });
    calls_.AnswerWith<Api::SendInput>([](UINT count, INPUT*, int) { return count; });
  }

  [[nodiscard]] const Shown& At(HWND window) const {
    return *std::ranges::find(windows_, window, &Shown::window);
  }
  [[nodiscard]] bool Openable(DWORD id) const { return images_.contains(id); }
  static HANDLE ProcessHandleOf(DWORD id) {
    return reinterpret_cast<HANDLE>(static_cast<std::uintptr_t>(0x1000 + id));
  }
  static DWORD IdOf(HANDLE process) {
    return static_cast<DWORD>(reinterpret_cast<std::uintptr_t>(process) - 0x1000);
  }
  [[nodiscard]] void* Find() { return desk_.FindWindowFor(kId); }

  Calls calls_;
  std::vector<Shown> windows_;
  std::map<DWORD, std::wstring> images_;  // of the processes that may be queried
  HWND inFront_ = nullptr;
  const std::shared_ptr<PasswordKeeper> keeper_ = MakePasswordKeeper();
  std::stop_source closing_;
  const PasteTurn turn_{keeper_, keeper_->Begin(), closing_.get_token()};
  RealPasteDeps desk_{turn_, L"D:\\remote.exe", {}};
};

TEST_F(PasteDeskCalls, QueryEachWindowAndTheProcessesOfMatchingOnes) {
  const HWND hidden = Window(0x101), owned = Window(0x102), untitled = Window(0x103),
             other = Window(0x104), stranger = Window(0x105), wanted = Window(0x106);
  windows_ = {{hidden, kId, false},
              {owned, kId, true, untitled},
              {untitled, L""},
              {other, L"Notes"},
              {stranger, L"RustDesk", true, nullptr, 7},
              {wanted, kId, true, nullptr, 8}};
  images_ = {{8, L"d:\\REMOTE.exe"}};
  EXPECT_EQ(Find(), wanted);
  EXPECT_TRUE(calls_.Were({
      Said<Api::EnumWindows>(Text{"function"}, Some{}),
      Said<Api::IsWindowVisible>(hidden),
      Said<Api::IsWindowVisible>(owned),
      Said<Api::GetWindow>(owned, GW_OWNER),
      Said<Api::IsWindowVisible>(Handle{1}),  // the owner, which is printed by number from now on
      Said<Api::GetWindow>(Handle{1}, GW_OWNER),
      Said<Api::GetWindowTextLengthW>(Handle{1}),
      Said<Api::IsWindowVisible>(other),
      Said<Api::GetWindow>(other, GW_OWNER),
      Said<Api::GetWindowTextLengthW>(other),
      Said<Api::GetWindowTextW>(other, L"", 6),
      Said<Api::IsWindowVisible>(stranger),
      Said<Api::GetWindow>(stranger, GW_OWNER),
      Said<Api::GetWindowTextLengthW>(stranger),
      Said<Api::GetWindowTextW>(stranger, L"", 9),
      Said<Api::GetWindowThreadProcessId>(stranger, Ref{0}),
      Said<Api::OpenProcess>(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, 7),
      Said<Api::IsWindowVisible>(wanted),
      Said<Api::GetWindow>(wanted, GW_OWNER),
      Said<Api::GetWindowTextLengthW>(wanted),
      Said<Api::GetWindowTextW>(wanted, L"", 10),
      Said<Api::GetWindowThreadProcessId>(wanted, Ref{0}),
      Said<Api::OpenProcess>(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, 8),
      Said<Api::QueryFullProcessImageNameW>(Handle{2}, 0, L"", Ref{32768}),
      Said<Api::CloseHandle>(Handle{2}),
  }));
  EXPECT_EQ(calls_.Unbalanced(), "");
}

TEST_F(PasteDeskCalls, TakeTheFirstMatchWhereProcessesCannotBeQueried) {
  const HWND first = Window(0x101), own = Window(0x102);
  windows_ = {{first, kId, true, nullptr, 7}, {own, kId, true, nullptr, 8}};
  images_ = {{7, L"C:\\browser.exe"}, {8, L"C:\\x\\RustDesk.exe"}};
  ASSERT_EQ(Find(), own);
  const struct {
    Api api;
    int nth;
  } rows[] = {{Api::GetWindowThreadProcessId, 2},
              {Api::OpenProcess, 2},
              {Api::QueryFullProcessImageNameW, 2}};
  for (const auto& row : rows) {
    calls_.Fail(row.api, ERROR_ACCESS_DENIED, row.nth);
    EXPECT_EQ(Find(), first) << Of(row.api).name;
    EXPECT_EQ(calls_.Unbalanced(), "");
  }
}

TEST_F(PasteDeskCalls, FindNothingWhenACallFails) {
  windows_ = {{Window(0x101), kId}};
  for (const Api api :
       {Api::EnumWindows, Api::IsWindowVisible, Api::GetWindowTextLengthW, Api::GetWindowTextW}) {
    calls_.Fail(api, ERROR_INVALID_WINDOW_HANDLE);
    EXPECT_EQ(Find(), nullptr) << Of(api).name;
  }
  EXPECT_EQ(Find(), Window(0x101));
}

TEST_F(PasteDeskCalls, BringToFrontWithOneCall) {
  desk_.BringToFront(Window(0x101));
  EXPECT_TRUE(calls_.Were({Said<Api::SetForegroundWindow>(Window(0x101))}));
}

TEST_F(PasteDeskCalls, CompareTheProcessesOfTheWindowAndTheForegroundWindow) {
  windows_ = {{Window(0x101), kId, true, nullptr, 7}, {Window(0x102), L"", true, nullptr, 7}};
  inFront_ = Window(0x102);
  EXPECT_TRUE(desk_.IsInFront(Window(0x101)));
  EXPECT_TRUE(calls_.Were({
      Said<Api::GetWindowThreadProcessId>(Window(0x101), Ref{0}),
      Said<Api::GetForegroundWindow>(),
      Said<Api::GetWindowThreadProcessId>(Handle{1}, Ref{0}),
  }));
}

TEST_F(PasteDeskCalls, AreNotInFrontWhenACallFails) {
  windows_ = {{Window(0x101), kId, true, nullptr, 7}};
  inFront_ = Window(0x101);
  ASSERT_TRUE(desk_.IsInFront(Window(0x101)));
  const struct {
    Api api;
    int nth;
  } rows[] = {{Api::GetWindowThreadProcessId, 1},
              {Api::GetForegroundWindow, 1},
              {Api::GetWindowThreadProcessId, 2},
              {Api::GetWindowThreadProcessId, 0}};
  for (const auto& row : rows) {
    calls_.Fail(row.api, ERROR_INVALID_WINDOW_HANDLE, row.nth);
    EXPECT_FALSE(desk_.IsInFront(Window(0x101))) << Of(row.api).name << row.nth;
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
  struct KeysOnly : RealPasteDeps {
    using RealPasteDeps::RealPasteDeps;
    bool Sleep(std::chrono::milliseconds) override { return true; }
    void CopyToClipboard(const std::wstring&) override {}
  };
  KeysOnly desk(turn_, L"D:\\remote.exe", {});
  PastePassword(L"secret", kId, desk);
  EXPECT_TRUE(calls_.WereAmong(
      {Api::SendInput},
      {SaidKey(VK_CONTROL, false), SaidKey('V', false), SaidKey('V', true),
       SaidKey(VK_CONTROL, true), SaidKey(VK_RETURN, false), SaidKey(VK_RETURN, true)}));
}

TEST_F(PasteDeskCalls, ContinueWithTheKeysWhenOneIsRefused) {
  calls_.Fail(Api::SendInput, ERROR_ACCESS_DENIED, 0);
  EXPECT_TRUE(desk_.PressKey(kKeyControl));
  desk_.ReleaseKey(kKeyControl);
  EXPECT_EQ(calls_.Count(Api::SendInput), 2);
}

// Pressed keys are still released.
TEST_F(PasteDeskCalls, StopOnceThePasteIsOver) {
  const auto isOver = [this] {
    const int before = calls_.Count(Api::SendInput);
    desk_.CopyToClipboard(L"pw");
    const bool acts = desk_.BringToFront(Window(0x101)) || desk_.PressKey(kKeyV);
    desk_.ReleaseKey(kKeyV);
    return !acts && calls_.Count(Api::SendInput) == before + 1 &&
           calls_.Count(Api::OpenClipboard) + calls_.Count(Api::SetForegroundWindow) == 0;
  };
  static_cast<void>(keeper_->Begin());
  EXPECT_TRUE(isOver()) << "a newer session";
  RealPasteDeps newest({keeper_, keeper_->Begin(), closing_.get_token()}, {}, {});
  EXPECT_TRUE(newest.PressKey(kKeyV));
  closing_.request_stop();
  EXPECT_FALSE(newest.PressKey(kKeyV)) << "the program closes";
  EXPECT_FALSE(newest.BringToFront(Window(0x101)));
  newest.CopyToClipboard(L"pw");
  EXPECT_EQ(calls_.Count(Api::OpenClipboard), 0);
}

// Each desktop's deps are a session of their own; only the newest counts.
TEST(RemoteDesktopSessions, ASecondDesktopEndsTheCopyingOfTheFirst) {
  const auto keeper = MakePasswordKeeper();
  RealRemoteDesktopDeps first(keeper, {}, {});
  EXPECT_TRUE(first.CopyPassword(L"first"));
  RealRemoteDesktopDeps second(keeper, {}, {});
  EXPECT_FALSE(first.CopyPassword(L"first"));
  EXPECT_TRUE(second.CopyPassword(L"second"));
}

}  // namespace
}  // namespace remote
