#include "remote/password_paste.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <future>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace remote {
namespace {

using Events = std::vector<std::wstring>;

// A desktop on which RustDesk's window appears at the n-th look (0: never). Records all actions.
class FakeDesk : public PasteDeps {
 public:
  explicit FakeDesk(int shownAtLook) : shownAtLook_(shownAtLook) {}

  bool Sleep(std::chrono::milliseconds time) override {
    Note(L"sleep " + std::to_wstring(time.count()));
    return ++sleeps_ != closesInSleep && IsGoingOn();
  }
  void* FindWindowFor(const std::wstring& id) override {
    Note(L"look for " + id);
    ++looks_;
    return shownAtLook_ > 0 && looks_ >= shownAtLook_ ? &window_ : nullptr;
  }
  void CopyToClipboard(const std::wstring& text) override {
    if (IsGoingOn()) Note(L"copy " + text);
  }
  bool BringToFront(void* given) override {
    if (!IsGoingOn()) return false;
    Note(given == &window_ ? L"front" : L"stranger");
    return true;
  }
  bool IsInFront(void* given) override {
    Note(given == &window_ ? L"in front?" : L"stranger?");
    return looks_ >= inFrontAtLook;
  }
  bool PressKey(std::uint16_t key) override {
    if (!IsGoingOn()) return false;
    Note(L"down " + std::to_wstring(key));
    return true;
  }
  void ReleaseKey(std::uint16_t key) override { Note(L"up " + std::to_wstring(key)); }
  void Notice(const std::wstring& text) override { notices.push_back(text); }

  Events events;
  Events notices;
  int inFrontAtLook = 0;  // before that, the window does not come to the front
  int closesInSleep = 0;  // the n-th; 0: never
  int overAfter = -1;     // the paste is over after so many events; below 0: never

 private:
  [[nodiscard]] bool IsGoingOn() const {
    return overAfter < 0 || static_cast<int>(events.size()) < overAfter;
  }
  void Note(const std::wstring& event) { events.push_back(event); }

  const int shownAtLook_;
  int looks_ = 0;
  int sleeps_ = 0;
  int window_ = 0;
};

const Events kLook = {L"sleep 900", L"look for 987"};
const Events kFront = {L"front", L"sleep 180", L"in front?"};
const Events kCopy = {L"copy pw"};
const Events kKeys = {L"down 17",   L"down 86", L"up 86", L"up 17",
                      L"sleep 120", L"down 13", L"up 13"};

Events Joined(const std::vector<Events>& parts) {
  Events events;
  for (const Events& part : parts) events.insert(events.end(), part.begin(), part.end());
  return events;
}

Events Looks(int count) {
  return Joined(std::vector<Events>(static_cast<std::size_t>(count), kLook));
}

Events LooksAndPasting(int count) {
  return Joined({Looks(count), kCopy, kFront, kKeys});
}

TEST(PastePassword, PastesAndPressesEnterOnceTheWindowAppears) {
  for (const int look : {1, 2, 9, 10}) {
    FakeDesk fake(look);
    PastePassword(L"pw", L"987", fake);
    EXPECT_EQ(fake.events, LooksAndPasting(look)) << look;
    EXPECT_EQ(fake.notices, Events{});
  }
}

TEST(PastePassword, GivesUpAfterTenLooks) {
  for (const int look : {0, 11}) {
    FakeDesk fake(look);
    PastePassword(L"pw", L"987", fake);
    EXPECT_EQ(fake.events, Looks(10)) << look;
    EXPECT_EQ(fake.notices, Events{});
  }
}

TEST(PastePassword, TriesAgainAtTheNextLookWhenTheWindowIsNotInFront) {
  FakeDesk fake(2);
  fake.inFrontAtLook = 4;
  PastePassword(L"pw", L"987", fake);
  EXPECT_EQ(fake.events,
            Joined({Looks(2), kCopy, kFront, kLook, kFront, kLook, kFront, kCopy, kKeys}));
  EXPECT_EQ(fake.notices, Events{});
}

TEST(PastePassword, TypesNothingWhenTheWindowNeverIsInFrontAndSaysSo) {
  FakeDesk fake(9);
  fake.inFrontAtLook = 11;
  PastePassword(L"pw", L"987", fake);
  EXPECT_EQ(fake.events, Joined({Looks(9), kCopy, kFront, kLook, kFront}));
  ASSERT_EQ(fake.notices.size(), 1u);
  EXPECT_NE(fake.notices[0].find(L"手动粘贴"), std::wstring::npos);
  EXPECT_EQ(fake.notices[0].find(L"pw"), std::wstring::npos);
}

TEST(PastePassword, StopsTypingWhenTheProgramCloses) {
  const Events all = LooksAndPasting(2);  // with four sleeps
  for (const int sleep : {1, 2, 3, 4}) {
    FakeDesk fake(2);
    fake.closesInSleep = sleep;
    PastePassword(L"pw", L"987", fake);
    const auto last = std::ranges::find_if(all, [left = sleep](const std::wstring& event) mutable {
      return event.starts_with(L"sleep") && --left == 0;
    });
    EXPECT_EQ(fake.events, Events(all.begin(), last + 1)) << sleep;
  }
}

bool IsAct(const std::wstring& event) {
  return event.starts_with(L"copy") || event == L"front" || event.starts_with(L"down");
}

// Between any two steps: from then on nothing is copied, brought to the front or pressed, and
// pressed keys are released.
TEST(PastePassword, StopsCopyingAndTypingWhenAnotherSessionBegins) {
  FakeDesk whole(1);
  whole.inFrontAtLook = 2;
  PastePassword(L"pw", L"987", whole);
  const auto count = static_cast<int>(whole.events.size());
  for (int over = 0; over < count; ++over) {
    FakeDesk fake(1);
    fake.inFrontAtLook = 2;
    fake.overAfter = over;
    PastePassword(L"pw", L"987", fake);
    const auto atOver =
        fake.events.begin() + std::min<std::ptrdiff_t>(over, std::ssize(fake.events));
    EXPECT_EQ(Events(fake.events.begin(), atOver),
              Events(whole.events.begin(), whole.events.begin() + (atOver - fake.events.begin())));
    EXPECT_TRUE(std::none_of(atOver, fake.events.end(), IsAct)) << over;
    for (const std::wstring key : {L"17", L"86", L"13"}) {
      EXPECT_EQ(std::ranges::count(fake.events, L"down " + key),
                std::ranges::count(fake.events, L"up " + key))
          << over;
    }
    EXPECT_EQ(fake.notices, Events{}) << over;
  }
}

// A desktop that reports its destruction.
class WatchedDesk : public FakeDesk {
 public:
  WatchedDesk() : FakeDesk(0) {}
  ~WatchedDesk() override { ended.set_value(); }

  bool Sleep(std::chrono::milliseconds) override { return true; }
  void* FindWindowFor(const std::wstring&) override { return findWindow(); }
  void CopyToClipboard(const std::wstring& text) override {
    if (copied != nullptr) copied->set_value(text);
  }
  bool IsInFront(void*) override { return true; }

  std::function<void*()> findWindow;
  std::promise<std::wstring>* copied = nullptr;
  std::promise<void> ended;
};

TEST(StartPasswordPaste, PastesOnItsOwnThreadAndReleasesTheDesktop) {
  // Publishes its events when the thread releases it.
  struct RecordedDesk : FakeDesk {
    RecordedDesk() : FakeDesk(3) {}
    ~RecordedDesk() override { ended.set_value(events); }
    std::promise<Events> ended;
  };
  auto desk = std::make_shared<RecordedDesk>();
  std::future<Events> ended = desk->ended.get_future();
  {
    std::wstring password = L"pw";
    std::wstring id = L"987";
    StartPasswordPaste(password, id, std::move(desk));
    password = id = L"overwritten";
  }
  EXPECT_EQ(ended.get(), LooksAndPasting(3));
}

TEST(StartPasswordPaste, EndsQuietlyWhateverTheDeskThrows) {
  struct NoException {};
  const std::function<void()> throwers[] = {
      [] { throw std::runtime_error("no desk"); },
      [] { throw std::bad_alloc(); },
      [] { throw NoException(); },
  };
  for (const auto& thrower : throwers) {
    auto desk = std::make_shared<WatchedDesk>();
    std::future<void> ended = desk->ended.get_future();
    desk->findWindow = [&thrower]() -> void* {
      thrower();
      return nullptr;
    };
    StartPasswordPaste(L"pw", L"987", std::move(desk));
    ended.wait();
  }
}

TEST(StartPasswordPaste, RunsSeveralAtOnceEachWithItsOwnPassword) {
  constexpr int kThreads = 4;
  std::promise<void> go;
  const std::shared_future<void> gone = go.get_future().share();
  std::atomic<int> waiting{0};
  std::vector<std::future<void>> ends;
  std::vector<std::promise<std::wstring>> copied(kThreads);
  for (int i = 0; i < kThreads; ++i) {
    auto desk = std::make_shared<WatchedDesk>();
    ends.push_back(desk->ended.get_future());
    desk->findWindow = [&waiting, gone, window = &waiting]() -> void* {
      ++waiting;
      gone.wait();
      return window;
    };
    desk->copied = &copied[static_cast<std::size_t>(i)];
    StartPasswordPaste(L"pw" + std::to_wstring(i), L"987", std::move(desk));
  }
  while (waiting < kThreads) std::this_thread::yield();
  go.set_value();
  for (auto& end : ends) end.wait();
  for (int i = 0; i < kThreads; ++i) {
    EXPECT_EQ(copied[static_cast<std::size_t>(i)].get_future().get(), L"pw" + std::to_wstring(i));
  }
}

}  // namespace
}  // namespace remote
