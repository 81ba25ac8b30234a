#include "platform/clipboard.h"

#include <gtest/gtest.h>

#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "platform/unique_handle.h"

namespace platform {
namespace {

using Events = std::vector<std::wstring>;

int freed = 0;

struct CountingMemoryTraits {
  using Raw = int;
  static Raw Invalid() noexcept { return 0; }
  static bool IsValid(Raw raw) noexcept { return raw != 0; }
  static void Close(Raw /*raw*/) noexcept { ++freed; }
};

// A clipboard that records its calls and fails or throws at the named step.
class FakeClipboard {
 public:
  using Memory = UniqueHandle<CountingMemoryTraits>;

  bool Open() { return Allows(L"open") && --heldFor < 0; }
  void Close() { events.emplace_back(L"close"); }
  bool Empty() { return Allows(L"empty"); }
  std::optional<bool> Holds(const std::wstring& text) {
    if (!Allows(L"look")) return std::nullopt;
    return held == text;
  }
  Memory CopyOf(const std::wstring& text) {
    return Allows(L"copy") && !text.empty() ? Memory(7) : Memory();
  }
  bool Set(int memory) { return Allows(L"set") && memory == 7; }

  void KeepOutOfHistory() { Allows(L"keep out"); }

  bool Put(const std::wstring& text) { return PutTextOn(*this, text, Pause()); }
  bool TakeOff(const std::wstring& text) { return TakeTextOff(*this, text, Pause()); }

  Events events;
  std::wstring held;
  int heldFor = 0;  // how many attempts to open it fail
  std::wstring refusesAt;
  std::wstring throwsAt;

 private:
  std::function<void(std::chrono::milliseconds time)> Pause() {
    return [this](std::chrono::milliseconds time) {
      events.push_back(L"pause " + std::to_wstring(time.count()));
    };
  }

  bool Allows(const std::wstring& step) {
    events.push_back(step);
    if (step == throwsAt) throw std::runtime_error("no memory");
    return step != refusesAt;
  }
};

class PutTextOnTest : public testing::Test {
 protected:
  void SetUp() override { freed = 0; }
  FakeClipboard clipboard_;
};

TEST_F(PutTextOnTest, HandsTheCopyOverAndCloses) {
  EXPECT_TRUE(clipboard_.Put(L"pw"));
  EXPECT_EQ(clipboard_.events, (Events{L"open", L"empty", L"copy", L"set", L"keep out", L"close"}));
  EXPECT_EQ(freed, 0);
}

TEST_F(PutTextOnTest, LeavesTheClipboardAloneForAnEmptyText) {
  EXPECT_FALSE(clipboard_.Put(L""));
  EXPECT_EQ(clipboard_.events, Events{});
}

TEST_F(PutTextOnTest, ClosesTheClipboardAndFreesARefusedCopy) {
  const struct {
    const wchar_t* refusesAt;
    Events events;
    int freed;
  } rows[] = {
      {L"copy", {L"open", L"empty", L"copy", L"close"}, 0},
      {L"set", {L"open", L"empty", L"copy", L"set", L"close"}, 1},
  };
  for (const auto& row : rows) {
    freed = 0;
    FakeClipboard clipboard;
    clipboard.refusesAt = row.refusesAt;
    EXPECT_FALSE(clipboard.Put(L"pw"));
    EXPECT_EQ(clipboard.events, row.events);
    EXPECT_EQ(freed, row.freed) << clipboard.events.size();
  }
}

TEST_F(PutTextOnTest, TriesFiveTimesToOpenAHeldClipboard) {
  const Events open = {L"open", L"empty", L"copy", L"set", L"keep out", L"close"};
  for (const int heldFor : {1, 4, 5}) {
    FakeClipboard clipboard;
    clipboard.heldFor = heldFor;
    Events wanted;
    for (int attempt = 1; attempt <= 4 && attempt <= heldFor; ++attempt) {
      wanted.insert(wanted.end(), {L"open", L"pause 25"});
    }
    if (heldFor < 5) wanted.insert(wanted.end(), open.begin(), open.end());
    if (heldFor >= 5) wanted.emplace_back(L"open");
    EXPECT_EQ(clipboard.Put(L"pw"), heldFor < 5) << heldFor;
    EXPECT_EQ(clipboard.events, wanted) << heldFor;
  }
}

TEST_F(PutTextOnTest, ContinuesWhenEmptyingOrExcludingFails) {
  for (const wchar_t* const step : {L"empty", L"keep out"}) {
    FakeClipboard clipboard;
    clipboard.refusesAt = step;
    EXPECT_TRUE(clipboard.Put(L"pw"));
    EXPECT_EQ(clipboard.events,
              (Events{L"open", L"empty", L"copy", L"set", L"keep out", L"close"}));
  }
}

TEST_F(PutTextOnTest, ClosesAndFreesWhenAStepThrows) {
  for (const wchar_t* const step : {L"empty", L"copy", L"set", L"keep out"}) {
    freed = 0;
    FakeClipboard clipboard;
    clipboard.throwsAt = step;
    EXPECT_THROW(clipboard.Put(L"pw"), std::runtime_error);
    EXPECT_EQ(clipboard.events.back(), L"close");
    EXPECT_EQ(freed, clipboard.throwsAt == L"set" ? 1 : 0);
  }
}

// ---- removing the text

TEST(TakeTextOffTest, EmptiesAClipboardOnlyOfThisText) {
  const struct {
    const wchar_t* held;
    bool empties;
  } rows[] = {{L"pw", true}, {L"pw ", false}, {L"PW", false}, {L"p", false}, {L"", false}};
  for (const auto& row : rows) {
    FakeClipboard clipboard;
    clipboard.held = row.held;
    EXPECT_TRUE(clipboard.TakeOff(L"pw")) << row.held;
    EXPECT_EQ(clipboard.events, row.empties ? (Events{L"open", L"look", L"empty", L"close"})
                                            : (Events{L"open", L"look", L"close"}))
        << row.held;
  }
}

TEST(TakeTextOffTest, ReportsATextThatMayRemain) {
  const struct {
    const wchar_t* refusesAt;
    int heldFor;
    Events events;
  } rows[] = {
      {L"look", 0, {L"open", L"look", L"close"}},
      {L"empty", 0, {L"open", L"look", L"empty", L"close"}},
      {L"",
       5,
       {L"open", L"pause 25", L"open", L"pause 25", L"open", L"pause 25", L"open", L"pause 25",
        L"open"}},
  };
  for (const auto& row : rows) {
    FakeClipboard clipboard;
    clipboard.held = L"pw";
    clipboard.refusesAt = row.refusesAt;
    clipboard.heldFor = row.heldFor;
    EXPECT_FALSE(clipboard.TakeOff(L"pw"));
    EXPECT_EQ(clipboard.events, row.events);
  }
}

TEST(TakeTextOffTest, ClosesWhenAStepThrows) {
  for (const wchar_t* const step : {L"look", L"empty"}) {
    FakeClipboard clipboard;
    clipboard.held = L"pw";
    clipboard.throwsAt = step;
    EXPECT_THROW(clipboard.TakeOff(L"pw"), std::runtime_error);
    EXPECT_EQ(clipboard.events.back(), L"close");
  }
}

}  // namespace
}  // namespace platform
