#include "remote/password_paste.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <future>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace remote {
namespace {

using Events = std::vector<std::wstring>;

// A desk on which RustDesk's window shows at the n-th look (0: never); notes what is done on it.
class FakeDesk {
 public:
  explicit FakeDesk(int shownAtLook) : shownAtLook_(shownAtLook) {}

  PasteDesk Desk() {
    PasteDesk desk;
    desk.sleep = [this](std::chrono::milliseconds time) {
      Note(L"sleep " + std::to_wstring(time.count()));
      return ++sleeps_ != closesInSleep;
    };
    desk.findWindow = [this](const std::wstring& id) -> void* {
      Note(L"look for " + id);
      ++looks_;
      return shownAtLook_ > 0 && looks_ >= shownAtLook_ ? &window_ : nullptr;
    };
    desk.copyToClipboard = [this](const std::wstring& text) {
      Note(L"copy " + text);
      return copies;
    };
    desk.bringToFront = [this](void* given) { Note(given == &window_ ? L"front" : L"stranger"); };
    desk.isInFront = [this](void* given) {
      Note(given == &window_ ? L"in front?" : L"stranger?");
      return looks_ >= inFrontAtLook;
    };
    desk.sendKey = [this](std::uint16_t key, bool isDown) {
      Note((isDown ? L"down " : L"up ") + std::to_wstring(key));
    };
    desk.notice = [this](const std::wstring& text) { notices.push_back(text); };
    return desk;
  }

  Events events;
  Events notices;
  bool copies = true;
  int inFrontAtLook = 0;  // before, the window does not come to the front
  int closesInSleep = 0;  // the n-th; 0: never

 private:
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

TEST(PastePassword, PastesAndPressesEnterOnceTheWindowIsThere) {
  for (const int look : {1, 2, 9, 10}) {
    FakeDesk fake(look);
    PastePassword(L"pw", L"987", fake.Desk());
    EXPECT_EQ(fake.events, LooksAndPasting(look)) << look;
    EXPECT_EQ(fake.notices, Events{});
  }
}

TEST(PastePassword, GivesUpAfterTenLooks) {
  for (const int look : {0, 11}) {
    FakeDesk fake(look);
    PastePassword(L"pw", L"987", fake.Desk());
    EXPECT_EQ(fake.events, Looks(10)) << look;
    EXPECT_EQ(fake.notices, Events{});
  }
}

TEST(PastePassword, TriesAgainAtTheNextLookWhenTheWindowIsNotInFront) {
  FakeDesk fake(2);
  fake.inFrontAtLook = 4;
  PastePassword(L"pw", L"987", fake.Desk());
  EXPECT_EQ(fake.events,
            Joined({Looks(2), kCopy, kFront, kLook, kFront, kLook, kFront, kCopy, kKeys}));
  EXPECT_EQ(fake.notices, Events{});
}

TEST(PastePassword, TypesNothingWhenTheWindowNeverIsInFrontAndSaysSo) {
  FakeDesk fake(9);
  fake.inFrontAtLook = 11;
  PastePassword(L"pw", L"987", fake.Desk());
  EXPECT_EQ(fake.events, Joined({Looks(9), kCopy, kFront, kLook, kFront}));
  ASSERT_EQ(fake.notices.size(), 1u);
  EXPECT_NE(fake.notices[0].find(L"手动粘贴"), std::wstring::npos);
  EXPECT_EQ(fake.notices[0].find(L"pw"), std::wstring::npos);
}

TEST(PastePassword, TypesNothingMoreOnceTheProgramCloses) {
  const Events all = LooksAndPasting(2);  // with four sleeps
  for (const int sleep : {1, 2, 3, 4}) {
    FakeDesk fake(2);
    fake.closesInSleep = sleep;
    PastePassword(L"pw", L"987", fake.Desk());
    const auto last = std::ranges::find_if(all, [left = sleep](const std::wstring& event) mutable {
      return event.starts_with(L"sleep") && --left == 0;
    });
    EXPECT_EQ(fake.events, Events(all.begin(), last + 1)) << sleep;
  }
}

TEST(PastePassword, DoesNotLookAtWhatTheSecondCopyCameTo) {
  FakeDesk fake(1);
  fake.copies = false;
  PastePassword(L"pw", L"987", fake.Desk());
  EXPECT_EQ(fake.events, LooksAndPasting(1));
}

// What a paste thread holds; tells when the thread has let go of it.
struct Held {
  std::promise<void> ended;
  ~Held() { ended.set_value(); }
};

PasteDesk DeskHolding(const std::shared_ptr<Held>& held) {
  PasteDesk desk;
  desk.sleep = [held](std::chrono::milliseconds) { return true; };
  desk.findWindow = [](const std::wstring&) -> void* { return nullptr; };
  desk.copyToClipboard = [](const std::wstring&) { return true; };
  desk.bringToFront = [](void*) {};
  desk.isInFront = [](void*) { return true; };
  desk.sendKey = [](std::uint16_t, bool) {};
  return desk;
}

TEST(StartPasswordPaste, PastesOnAThreadOfItsOwnThatHoldsNothingAfterwards) {
  FakeDesk fake(3);
  auto held = std::make_shared<Held>();
  std::future<void> ended = held->ended.get_future();
  {
    std::wstring password = L"pw";
    std::wstring id = L"987";
    PasteDesk desk = fake.Desk();
    desk.bringToFront = [held, before = desk.bringToFront](void* window) { before(window); };
    held.reset();
    StartPasswordPaste(password, id, std::move(desk));
    password = id = L"overwritten";
  }
  ended.wait();
  EXPECT_EQ(fake.events, LooksAndPasting(3));
}

TEST(StartPasswordPaste, EndsQuietlyWhateverTheDeskThrows) {
  struct NoException {};
  const std::function<void()> throwers[] = {
      [] { throw std::runtime_error("no desk"); },
      [] { throw std::bad_alloc(); },
      [] { throw NoException(); },
  };
  for (const auto& thrower : throwers) {
    auto held = std::make_shared<Held>();
    std::future<void> ended = held->ended.get_future();
    PasteDesk desk = DeskHolding(held);
    held.reset();
    desk.findWindow = [&thrower](const std::wstring&) -> void* {
      thrower();
      return nullptr;
    };
    StartPasswordPaste(L"pw", L"987", std::move(desk));
    ended.wait();
  }
}

TEST(StartPasswordPaste, LetsSeveralBeUnderWayEachWithItsOwn) {
  constexpr int kThreads = 4;
  std::promise<void> go;
  const std::shared_future<void> gone = go.get_future().share();
  std::atomic<int> waiting{0};
  std::vector<std::future<void>> ends;
  std::vector<std::promise<std::wstring>> copied(kThreads);
  for (int i = 0; i < kThreads; ++i) {
    auto held = std::make_shared<Held>();
    ends.push_back(held->ended.get_future());
    PasteDesk desk = DeskHolding(held);
    desk.findWindow = [&waiting, gone, window = &waiting](const std::wstring&) -> void* {
      ++waiting;
      gone.wait();
      return window;
    };
    desk.copyToClipboard = [&copied, i](const std::wstring& text) {
      copied[static_cast<std::size_t>(i)].set_value(text);
      return true;
    };
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
