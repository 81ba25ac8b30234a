#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

#include "platform/path.h"
#include "platform/windows_sdk.h"
#include "remote/password_paste.h"
#include "remote/remote_desktop.h"
#include "text/utf8.h"

namespace remote {
namespace {

constexpr wchar_t kShownId[] = L"987654321";

// A top-level window of this thread.
class TestWindow {
 public:
  explicit TestWindow(const std::wstring& title, bool visible = true, HWND owner = nullptr)
      : window_(::CreateWindowExW(0, L"STATIC", title.c_str(), WS_OVERLAPPEDWINDOW, 10, 10, 300,
                                  200, owner, nullptr, nullptr, nullptr)) {
    if (visible) ::ShowWindow(window_, SW_SHOW);
  }
  ~TestWindow() { ::DestroyWindow(window_); }
  TestWindow(const TestWindow&) = delete;
  TestWindow& operator=(const TestWindow&) = delete;

  [[nodiscard]] HWND Get() const { return window_; }

 private:
  const HWND window_;
};

PasteTurn NewTurn() {
  auto keeper = MakePasswordKeeper();
  const PasswordKeeper::Session session = keeper->Begin();
  return {std::move(keeper), session, {}};
}

HWND Find(const std::wstring& id = kShownId) {
  return static_cast<HWND>(RealPasteDeps(NewTurn(), {}, {}).FindWindowFor(id));
}

// For failure messages.
std::string TitleOf(HWND window) {
  std::wstring title(200, L'\0');
  title.resize(static_cast<std::size_t>(::GetWindowTextW(window, title.data(), 200)));
  return text::ToUtf8(title);
}

TEST(PasteDeskWindows, AreNotFoundAmongDecoysOnly) {
  const TestWindow untitled(L"");
  const TestWindow other(L"Notes");
  const TestWindow shorter(L"Rust");
  const TestWindow hidden(std::wstring(L"RustDesk ") + kShownId, false);
  const TestWindow owned(std::wstring(L"RustDesk ") + kShownId, true, other.Get());
  EXPECT_EQ(Find(), nullptr) << TitleOf(Find());
  EXPECT_EQ(Find(L""), nullptr) << TitleOf(Find(L""));
}

TEST(PasteDeskWindows, AreFoundAmongDecoys) {
  const std::wstring titles[] = {kShownId, std::wstring(L"远程桌面 ") + kShownId, L"RustDesk",
                                 L"rUSTdESK 1.2", std::wstring(3000, L'x') + kShownId};
  const TestWindow other(L"Notes");
  const TestWindow hidden(kShownId, false);
  const TestWindow owned(kShownId, true, other.Get());
  for (const std::wstring& title : titles) {
    const TestWindow wanted(title);
    EXPECT_EQ(Find(), wanted.Get()) << title.size();
  }
  EXPECT_EQ(Find(), nullptr);
}

TEST(PasteDeskWindows, TheFirstThatMatchesInTheSystemsOrderIsTaken) {
  const TestWindow byName(L"RustDesk");
  const TestWindow byId(kShownId);
  for (const HWND first : {byName.Get(), byId.Get()}) {
    ::SetWindowPos(first, HWND_TOP, 0, 0, 0, 0, SWP_NOMOVE | SWP_NOSIZE);
    EXPECT_EQ(Find(), first);
  }
}

// Here this test program counts as the started one, so its windows are preferred.
TEST(PasteDeskWindows, TheStartedProgramsWindowIsPreferred) {
  RealPasteDeps desk(NewTurn(), platform::ProgramPath(), {});
  const TestWindow own(L"RustDesk");
  EXPECT_EQ(desk.FindWindowFor(kShownId), own.Get());
}

// Runs this thread's message loop until `done` and records the keys. False on a time-out.
class Pump {
 public:
  template <typename Condition>
  bool Until(const Condition& done) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (!done()) {
      if (std::chrono::steady_clock::now() > end) return false;
      MSG message{};
      while (::PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE)) Dispatch(message);
      ::Sleep(5);
    }
    return true;
  }

  [[nodiscard]] const std::vector<std::wstring>& Keys() const { return keys_; }

 private:
  void Dispatch(const MSG& message) {
    if (message.message == WM_KEYDOWN) keys_.push_back(L"down " + std::to_wstring(message.wParam));
    if (message.message == WM_KEYUP) keys_.push_back(L"up " + std::to_wstring(message.wParam));
    ::TranslateMessage(&message);
    ::DispatchMessageW(&message);
  }

  std::vector<std::wstring> keys_;
};

// The real desktop, but once the window is in front it sleeps only after the field has the focus.
struct FocusedDesk : RealPasteDeps {
  FocusedDesk() : RealPasteDeps(NewTurn(), {}, {}) {}

  bool Sleep(std::chrono::milliseconds time) override {
    while (inFront && !focused) std::this_thread::yield();
    return RealPasteDeps::Sleep(time);
  }
  bool BringToFront(void* window) override {
    const bool goesOn = RealPasteDeps::BringToFront(window);
    inFront = true;
    return goesOn;
  }

  std::atomic<bool> inFront{false};
  std::atomic<bool> focused{false};
};

TEST(PasteDeskPaste, ReachesTheRightWindowsFieldFollowedByEnter) {
  const std::wstring password = L"s3cret 密码 \xD83D\xDE00";
  const TestWindow wanted(std::wstring(L"RustDesk ") + kShownId);
  const HWND field = ::CreateWindowExW(0, L"EDIT", L"", WS_CHILD | WS_VISIBLE | ES_AUTOHSCROLL, 5,
                                       5, 200, 30, wanted.Get(), nullptr, nullptr, nullptr);
  const TestWindow decoy(L"Notes");
  Pump pump;
  ::SetForegroundWindow(decoy.Get());
  pump.Until([&] { return ::GetForegroundWindow() == decoy.Get(); });

  FocusedDesk desk;
  std::atomic<bool> ended{false};
  std::thread paster([&] {
    PastePassword(password, kShownId, desk);
    ended = true;
  });
  EXPECT_TRUE(pump.Until([&] { return desk.inFront && ::GetForegroundWindow() == wanted.Get(); }));
  ::SetFocus(field);  // as RustDesk gives the focus to its field
  desk.focused = true;
  EXPECT_TRUE(pump.Until([&] { return ended && pump.Keys().size() >= 6; }));
  paster.join();

  EXPECT_EQ(pump.Keys(), (std::vector<std::wstring>{L"down 17", L"down 86", L"up 86", L"up 17",
                                                    L"down 13", L"up 13"}));
  std::wstring text(200, L'\0');
  text.resize(static_cast<std::size_t>(::GetWindowTextW(field, text.data(), 200)));
  EXPECT_EQ(text, password);
}

TEST(PasteDeskSleep, EndsAtOnceWhenTheProgramCloses) {
  std::stop_source closing;
  PasteTurn turn = NewTurn();
  turn.closing = closing.get_token();
  RealPasteDeps desk(turn, {}, {});
  EXPECT_TRUE(desk.Sleep(std::chrono::milliseconds(1)));
  std::thread closer([&closing] { closing.request_stop(); });
  EXPECT_FALSE(desk.Sleep(std::chrono::hours(1)));
  closer.join();
  EXPECT_FALSE(desk.Sleep(std::chrono::hours(1))) << "stays so";
}

TEST(PasteDeskSleep, EndsAtOnceWhenANewerSessionBegins) {
  const PasteTurn turn = NewTurn();
  RealPasteDeps desk(turn, {}, {});
  std::thread beginner([&turn] { static_cast<void>(turn.keeper->Begin()); });
  EXPECT_FALSE(desk.Sleep(std::chrono::hours(1)));
  beginner.join();
}

TEST(PasteDeskFront, IsTheProcessThatHasTheForegroundWindow) {
  const TestWindow first(L"RustDesk");
  const TestWindow second(L"Notes");
  RealPasteDeps desk(NewTurn(), {}, {});
  Pump pump;
  desk.BringToFront(second.Get());
  ASSERT_TRUE(pump.Until([&] { return ::GetForegroundWindow() == second.Get(); }));
  EXPECT_TRUE(desk.IsInFront(second.Get()));
  EXPECT_TRUE(desk.IsInFront(first.Get())) << "another window of the same process";
  EXPECT_FALSE(desk.IsInFront(::GetDesktopWindow())) << "another process's";
  EXPECT_FALSE(desk.IsInFront(nullptr)) << "gone";
}

}  // namespace
}  // namespace remote
