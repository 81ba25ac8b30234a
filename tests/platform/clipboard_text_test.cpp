#include "platform/clipboard_text.h"

#include <gtest/gtest.h>

#include <stdexcept>
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

// A clipboard that notes what is asked of it, and refuses or throws at the step named.
class FakeClipboard {
 public:
  using Memory = UniqueHandle<CountingMemoryTraits>;

  bool Open() { return Allows(L"open"); }
  void Close() { events.emplace_back(L"close"); }
  bool Empty() { return Allows(L"empty"); }
  Memory CopyOf(const std::wstring& text) {
    return Allows(L"copy") && !text.empty() ? Memory(7) : Memory();
  }
  bool Set(int memory) { return Allows(L"set") && memory == 7; }

  Events events;
  std::wstring refusesAt;
  std::wstring throwsAt;

 private:
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
  EXPECT_TRUE(PutTextOn(clipboard_, L"pw"));
  EXPECT_EQ(clipboard_.events, (Events{L"open", L"empty", L"copy", L"set", L"close"}));
  EXPECT_EQ(freed, 0);
}

TEST_F(PutTextOnTest, LeavesTheClipboardAloneForAnEmptyText) {
  EXPECT_FALSE(PutTextOn(clipboard_, L""));
  EXPECT_EQ(clipboard_.events, Events{});
}

TEST_F(PutTextOnTest, ClosesWhatItOpenedAndFreesWhatWasNotTaken) {
  const struct {
    const wchar_t* refusesAt;
    Events events;
    int freed;
  } rows[] = {
      {L"open", {L"open"}, 0},
      {L"empty", {L"open", L"empty", L"close"}, 0},
      {L"copy", {L"open", L"empty", L"copy", L"close"}, 0},
      {L"set", {L"open", L"empty", L"copy", L"set", L"close"}, 1},
  };
  for (const auto& row : rows) {
    freed = 0;
    FakeClipboard clipboard;
    clipboard.refusesAt = row.refusesAt;
    EXPECT_FALSE(PutTextOn(clipboard, L"pw"));
    EXPECT_EQ(clipboard.events, row.events);
    EXPECT_EQ(freed, row.freed) << clipboard.events.size();
  }
}

TEST_F(PutTextOnTest, ClosesAndFreesWhenAStepThrows) {
  for (const wchar_t* const step : {L"empty", L"copy", L"set"}) {
    freed = 0;
    FakeClipboard clipboard;
    clipboard.throwsAt = step;
    EXPECT_THROW(PutTextOn(clipboard, L"pw"), std::runtime_error);
    EXPECT_EQ(clipboard.events.back(), L"close");
    EXPECT_EQ(freed, clipboard.throwsAt == L"set" ? 1 : 0);
  }
}

}  // namespace
}  // namespace platform
