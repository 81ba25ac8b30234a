#include "diag/proxy_note.h"

#include <gtest/gtest.h>

#include <map>
#include <stdexcept>

#include "diag/fake_proxy_lists.h"

namespace diag {
namespace {

using Entries = std::vector<std::wstring>;
using Lists = std::vector<NotedList>;

constexpr wchar_t kOtherUser[] = L"S-1-5-21-1-2-3-1001";
constexpr char kNoteOfTwo[] =
    "{\"lists\":[{\"user\":\"\",\"entries\":[\"10.1.*\",\"10.2.*\"]},"
    "{\"user\":\"S-1-5-21-1-2-3-1001\",\"entries\":[\"10.1.*\"]}]}\n";

class ProxyNoteTest : public testing::Test {
 protected:
  Lists Read() {
    const platform::MutexLock held(note_.lock);
    return note_.Read();
  }
  void Remember(const std::wstring& user, const Entries& entries) {
    const platform::MutexLock held(note_.lock);
    note_.Remember(user, entries);
  }
  void Forget(const std::wstring& user, const Entries& entries) {
    const platform::MutexLock held(note_.lock);
    note_.Forget(user, entries);
  }

  MemoryNote memory_;
  ProxyNote note_{L"Client.proxy.json", memory_};
};

TEST_F(ProxyNoteTest, ContainsTheEntriesOfEachUser) {
  EXPECT_EQ(Read(), Lists());
  Remember(L"", {L"10.1.*"});
  Remember(kOtherUser, {L"10.1.*"});
  Remember(L"", {L"10.1.*", L"10.2.*"});
  EXPECT_EQ(memory_.bytes, kNoteOfTwo);
  EXPECT_EQ(Read(), (Lists{{L"", {L"10.1.*", L"10.2.*"}}, {kOtherUser, {L"10.1.*"}}}));
}

TEST_F(ProxyNoteTest, IsDeletedOnceItIsEmpty) {
  memory_.bytes = kNoteOfTwo;
  Forget(L"", {L"10.1.*", L"10.9.*"});
  EXPECT_EQ(Read(), (Lists{{L"", {L"10.2.*"}}, {kOtherUser, {L"10.1.*"}}}));
  Forget(kOtherUser, {L"10.1.*"});
  Forget(L"", {L"10.2.*"});
  EXPECT_EQ(memory_.bytes, std::nullopt);
}

TEST_F(ProxyNoteTest, IsNotWrittenWhenNothingChanges) {
  memory_.bytes = std::string(kNoteOfTwo) + " ";
  Forget(L"", {L"10.9.*"});
  Forget(L"S-1-5-21-9", {L"10.1.*"});
  EXPECT_EQ(memory_.bytes, std::string(kNoteOfTwo) + " ");
}

// A truncated note is from a run that ended while writing it, before it changed the list.
TEST_F(ProxyNoteTest, IsEmptyIfTruncatedOrForeign) {
  const std::string whole = kNoteOfTwo;
  for (std::size_t length = 0; length < whole.size() - 2; ++length) {
    memory_.bytes = whole.substr(0, length);
    EXPECT_EQ(Read(), Lists()) << length;
  }
  for (const char* const bytes :
       {"[]", "7", "{\"lists\":7}", "{\"lists\":[7,[],{}]}", "{\"lists\":[{\"user\":\"\"}]}",
        "{\"lists\":[{\"entries\":[\"10.1.*\"]}]}", "{\"lists\":[{\"user\":\"\",\"entries\":[7]}]}",
        "\xFF\xFE", "\0\0"}) {
    memory_.bytes = bytes;
    EXPECT_EQ(Read(), Lists()) << bytes;
  }
}

// ---- notes made while a list is edited

// Two users' lists, edited by one run of the program and cleaned up by the next.
class ProxyLeftovers : public ProxyNoteTest {
 protected:
  ProxyLeftovers() { stores_.others.push_back(desktop_.Store(kOtherUser)); }

  void Connect(const Entries& routes) { AddProxyBypass(routes, stores_, note_); }
  std::wstring Disconnect(const Entries& routes) {
    return RemoveProxyBypass(routes, stores_, note_);
  }
  std::wstring Start() {
    return RemoveLeftovers(note_, [this](const std::wstring& user) {
      return user.empty() ? own_.Store() : desktop_.Store(user);
    });
  }

  FakeList own_{L"localhost;10.1.*"};
  FakeList desktop_{L"intranet"};
  ProxyListDeps stores_ = own_.Store();
};

const Entries kLeftRoutes = {L"10.1.0.0/16", L"192.168.5.0/24"};

TEST_F(ProxyLeftovers, AreRemovedByTheNextStartButNotTheUsersOwnEntries) {
  Connect(kLeftRoutes);
  ASSERT_EQ(own_.list, L"localhost;10.1.*;192.168.5.*");
  ASSERT_EQ(desktop_.list, L"intranet;10.1.*;192.168.5.*");
  EXPECT_EQ(Start(), L"已清理上次运行遗留的系统代理旁路：192.168.5.*;10.1.*");
  EXPECT_EQ(own_.list, L"localhost;10.1.*");
  EXPECT_EQ(desktop_.list, L"intranet");
  EXPECT_EQ(own_.tells, 2);
  EXPECT_EQ(desktop_.tells, 2);
  EXPECT_EQ(memory_.bytes, std::nullopt);
  EXPECT_EQ(Start(), L"") << "said once";
}

TEST_F(ProxyLeftovers, AreNoneAfterADisconnect) {
  Connect(kLeftRoutes);
  EXPECT_NE(Disconnect(kLeftRoutes), L"");
  EXPECT_EQ(memory_.bytes, std::nullopt);
  own_.list = L"192.168.5.*";
  EXPECT_EQ(Start(), L"");
  EXPECT_EQ(own_.list, L"192.168.5.*");
}

TEST_F(ProxyLeftovers, AreNotReportedIfTheUserRemovedThem) {
  Connect(kLeftRoutes);
  own_.list = L"localhost";
  desktop_.list = L"";
  EXPECT_EQ(Start(), L"");
  EXPECT_EQ(own_.writes, 1) << "that of the connection";
  EXPECT_EQ(memory_.bytes, std::nullopt);
}

TEST_F(ProxyLeftovers, AreTheLastCopyOfEachEntry) {
  Connect({L"192.168.5.0/24"});
  own_.list = L"192.168.5.*; A ;192.168.5.*;b";
  Start();
  EXPECT_EQ(own_.list, L"192.168.5.*;A;b");
}

TEST_F(ProxyLeftovers, StayNotedUntilTheirListCanBeEdited) {
  Connect({L"192.168.5.0/24"});
  for (bool FakeList::*const ability : {&FakeList::readable, &FakeList::writable}) {
    desktop_.*ability = false;
    Start();
    EXPECT_EQ(Read(), (Lists{{kOtherUser, {L"192.168.5.*"}}}));
    desktop_.*ability = true;
  }
  EXPECT_NE(Start(), L"");
  EXPECT_EQ(desktop_.list, L"intranet");
  EXPECT_EQ(memory_.bytes, std::nullopt);
}

TEST_F(ProxyLeftovers, StayNotedIfADisconnectCannotRemoveThem) {
  Connect({L"192.168.5.0/24"});
  own_.writable = false;
  desktop_.readable = false;
  Disconnect({L"192.168.5.0/24"});
  own_.writable = desktop_.readable = true;
  EXPECT_NE(Start(), L"");
  EXPECT_EQ(own_.list, L"localhost;10.1.*");
  EXPECT_EQ(desktop_.list, L"intranet");
}

TEST_F(ProxyLeftovers, OfSeveralConnectionsAreAllNoted) {
  Connect({L"192.168.5.0/24"});
  Connect({L"192.168.5.0/24", L"192.168.6.0/24"});
  Disconnect({L"192.168.6.0/24"});
  EXPECT_EQ(Read(), (Lists{{L"", {L"192.168.5.*"}}, {kOtherUser, {L"192.168.5.*"}}}));
}

TEST_F(ProxyLeftovers, AreAddedEvenIfTheNoteIsLost) {
  memory_.writes = false;
  Connect({L"192.168.5.0/24"});
  EXPECT_EQ(own_.list, L"localhost;10.1.*;192.168.5.*");
  EXPECT_EQ(Start(), L"");
}

struct ProgramEnded {};

// Whichever step of an edit the process ends at, after the next start the list contains all of the
// user's entries and none of the program's.
TEST_F(ProxyLeftovers, AreRemovedWhereverTheProgramWasKilled) {
  for (int steps = 0; steps < 8; ++steps) {
    own_ = {L"localhost;10.1.*"};
    memory_.bytes.reset();
    int left = steps;
    const auto countStep = [&left] {
      if (left-- == 0) throw ProgramEnded();
    };
    memory_.onStep = countStep;
    ProxyListDeps store = own_.Store();
    store.write = [countStep, write = store.write](const std::wstring& list) {
      countStep();
      const bool written = write(list);
      countStep();
      return written;
    };
    ProxyNote note(L"Client.proxy.json", memory_);
    bool wasKilled = false;
    try {
      AddProxyBypass({L"192.168.5.0/24"}, store, note);
      RemoveProxyBypass({L"192.168.5.0/24"}, store, note);
    } catch (const ProgramEnded&) {
      wasKilled = true;
    }
    memory_.onStep = [] {};
    EXPECT_EQ(wasKilled, steps < 7) << steps;
    Start();
    EXPECT_EQ(own_.list, L"localhost;10.1.*") << steps;
    EXPECT_EQ(memory_.bytes, std::nullopt) << steps;
  }
}

}  // namespace
}  // namespace diag
