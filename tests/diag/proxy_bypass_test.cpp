#include "diag/proxy_bypass.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "diag/fake_proxy_lists.h"
#include "text/ipv4_text.h"

namespace diag {
namespace {

using Entries = std::vector<std::wstring>;

struct RouteRow {
  const wchar_t* route;
  const wchar_t* entry;
};

TEST(RouteToBypassEntry, CoversTheNetworkWithWholeBytes) {
  const RouteRow rows[] = {
      {L"192.168.1.77/32", L"192.168.1.77"},
      {L"192.168.1.77/31", L"192.168.1.*"},
      {L"192.168.1.77/25", L"192.168.1.*"},
      {L"192.168.1.0/24", L"192.168.1.*"},
      {L"192.168.1.77/24", L"192.168.1.*"},
      {L"10.1.2.0/23", L"10.1.*"},
      {L"10.1.2.0/17", L"10.1.*"},
      {L"10.1.2.3/16", L"10.1.*"},
      {L"10.1.2.0/15", L"10.*"},
      {L"10.1.2.3/8", L"10.*"},
      {L"10.0.0.0/7", L""},
      {L"10.0.0.0/1", L""},
      {L"0.0.0.0/0", L""},
      {L"255.255.255.255/32", L"255.255.255.255"},
      {L"0.0.0.0/32", L"0.0.0.0"},
      {L"0.0.0.0/8", L"0.*"},
  };
  for (const RouteRow& row : rows) EXPECT_EQ(RouteToBypassEntry(row.route), row.entry) << row.route;
}

TEST(RouteToBypassEntry, AllowsBlanksAroundTheParts) {
  for (const wchar_t* route :
       {L" 10.1.2.0/24", L"10.1.2.0/24\r\n", L"10.1.2.0 / 24", L"\t10.1.2.0\t/\t24\t",
        L"\x3000"
        L"10.1.2.0/\x00A0"
        L"24"}) {
    EXPECT_EQ(RouteToBypassEntry(route), L"10.1.2.*") << route;
  }
}

TEST(RouteToBypassEntry, AllowsAnyNumberOfLeadingZerosInThePrefix) {
  EXPECT_EQ(RouteToBypassEntry(L"10.1.2.0/024"), L"10.1.2.*");
  EXPECT_EQ(RouteToBypassEntry(L"10.1.2.0/" + std::wstring(5000, L'0') + L"24"), L"10.1.2.*");
  EXPECT_EQ(RouteToBypassEntry(L"10.1.2.0/" + std::wstring(5000, L'0')), L"");
}

TEST(RouteToBypassEntry, IsEmptyForInvalidRoutes) {
  for (const wchar_t* route : {L"",
                               L" ",
                               L"/",
                               L"/24",
                               L"10.1.2.0",
                               L"10.1.2.0/",
                               L"10.1.2.0/ ",
                               L"10.1.2.0/33",
                               L"10.1.2.0/99",
                               L"10.1.2.0/2x",
                               L"10.1.2.0/x",
                               L"10.1.2.0/+24",
                               L"10.1.2.0/-1",
                               L"10.1.2.0/24.0",
                               L"10.1.2.0/2 4",
                               L"10.1.2.0/24/8",
                               L"10.1.2.0//24",
                               L"10.1.2.0\\24",
                               L"10.1.2/24",
                               L"10.1.2.256/24",
                               L"10.1.2.0.0/24",
                               L"010.1.2.0/24",
                               L"host/24",
                               L"::1/32",
                               L"10.1.2.0/２４",
                               L"10.1.2.0/255.255.255.0",
                               L"10.1. 2.0/24",
                               L"ALL"}) {
    EXPECT_EQ(RouteToBypassEntry(route), L"") << route;
  }
}

TEST(RouteToBypassEntry, IsEmptyForAPrefixThatOverflows) {
  // The first two are 24 plus a power of two, which 32 or 64 bits would truncate to 24.
  EXPECT_EQ(RouteToBypassEntry(L"10.1.2.0/4294967320"), L"");
  EXPECT_EQ(RouteToBypassEntry(L"10.1.2.0/18446744073709551640"), L"");
  EXPECT_EQ(RouteToBypassEntry(L"10.1.2.0/" + std::wstring(5000, L'9')), L"");
}

// An entry covers every address of its route.
TEST(RouteToBypassEntry, CoversEveryAddressOfRandomRoutes) {
  std::mt19937 engine(20260401);
  std::uniform_int_distribution<std::uint32_t> random;
  for (int round = 0; round < 5000; ++round) {
    const std::uint32_t address = random(engine);
    const std::uint32_t prefix = 8 + random(engine) % 25;
    const std::uint32_t hosts = prefix == 32 ? 0 : 0xFFFFFFFF >> prefix;
    const std::wstring inside = text::FormatIpv4((address & ~hosts) | (random(engine) & hosts));
    const std::wstring entry =
        RouteToBypassEntry(text::FormatIpv4(address) + L"/" + std::to_wstring(prefix));
    ASSERT_FALSE(entry.empty());
    if (prefix == 32) {
      ASSERT_EQ(entry, inside);
    } else {
      ASSERT_TRUE(entry.ends_with(L".*"));
      ASSERT_TRUE(inside.starts_with(entry.substr(0, entry.size() - 1)));
    }
  }
}

TEST(BypassEntriesForRoutes, KeepsTheOrderAndDropsDuplicates) {
  EXPECT_EQ(BypassEntriesForRoutes({L"10.1.2.0/24", L"bad", L"10.1.2.128/25", L"10.1.2.9/32",
                                    L"0.0.0.0/0", L"10.1.0.0/16", L"10.1.2.0/24"}),
            (Entries{L"10.1.2.*", L"10.1.2.9", L"10.1.*"}));
  EXPECT_TRUE(BypassEntriesForRoutes({}).empty());
  EXPECT_TRUE(BypassEntriesForRoutes({L"10.0.0.0/7", L"10.1.2.3", L""}).empty());
}

class ProxyBypass : public testing::Test {
 protected:
  std::wstring Add(const Entries& routes) { return AddProxyBypass(routes, store_, note_); }
  std::wstring Remove(const Entries& routes) { return RemoveProxyBypass(routes, store_, note_); }

  std::wstring list_;
  int reads_ = 0;
  int writes_ = 0;
  const ProxyListDeps store_ = {[this] {
                                  ++reads_;
                                  return list_;
                                },
                                [this](const std::wstring& list) {
                                  ++writes_;
                                  list_ = list;
                                  return true;
                                },
                                [] {}};
  MemoryNote memory_;
  ProxyNote note_{L"Client.proxy.json", memory_};
};

TEST_F(ProxyBypass, AddsMissingEntriesAndReportsAll) {
  list_ = L"localhost;<local>;10.1.*";
  EXPECT_EQ(Add({L"10.1.0.0/16", L"192.168.5.0/24"}), L"已加入系统代理旁路：10.1.*;192.168.5.*");
  EXPECT_EQ(list_, L"localhost;<local>;10.1.*;192.168.5.*");
  EXPECT_EQ(writes_, 1);
}

TEST_F(ProxyBypass, RemovesItsEntriesEvenIfTheyExistedBefore) {
  list_ = L"localhost;<local>;10.1.*";
  Add({L"10.1.0.0/16", L"192.168.5.0/24"});
  EXPECT_EQ(Remove({L"10.1.0.0/16", L"192.168.5.0/24"}), L"已移除系统代理旁路：10.1.*;192.168.5.*");
  EXPECT_EQ(list_, L"localhost;<local>");
  EXPECT_EQ(writes_, 2);
}

TEST_F(ProxyBypass, StartsAndEndsWithAnEmptyList) {
  EXPECT_EQ(Add({L"10.1.2.0/24"}), L"已加入系统代理旁路：10.1.2.*");
  EXPECT_EQ(list_, L"10.1.2.*");
  EXPECT_EQ(Remove({L"10.1.2.0/24"}), L"已移除系统代理旁路：10.1.2.*");
  EXPECT_EQ(list_, L"");
  EXPECT_EQ(writes_, 2);
}

TEST_F(ProxyBypass, ReportsButDoesNotWriteWhenAllEntriesExist) {
  list_ = L" 10.1.2.* ;; x ";
  EXPECT_EQ(Add({L"10.1.2.0/24"}), L"已加入系统代理旁路：10.1.2.*");
  EXPECT_EQ(list_, L" 10.1.2.* ;; x ");
  EXPECT_EQ(writes_, 0);
}

TEST_F(ProxyBypass, WritesAndReportsNothingWhenNoEntryExists) {
  list_ = L" x ;; y ";
  EXPECT_EQ(Remove({L"10.1.2.0/24"}), L"");
  EXPECT_EQ(list_, L" x ;; y ");
  EXPECT_EQ(writes_, 0);
}

TEST_F(ProxyBypass, ReportsAllEntriesWhenSomeAreRemoved) {
  list_ = L"10.1.2.*;x";
  EXPECT_EQ(Remove({L"10.9.0.0/16", L"10.1.2.0/24"}), L"已移除系统代理旁路：10.9.*;10.1.2.*");
  EXPECT_EQ(list_, L"x");
}

TEST_F(ProxyBypass, DoesNotReadTheListWithoutAnEntry) {
  for (const Entries& routes : {Entries{}, Entries{L"10.1.2.3"}, Entries{L"1.0.0.0/7", L""}}) {
    EXPECT_EQ(Add(routes), L"");
    EXPECT_EQ(Remove(routes), L"");
  }
  EXPECT_EQ(reads_, 0);
  EXPECT_EQ(writes_, 0);
}

TEST_F(ProxyBypass, TidiesTheListWhenItIsWritten) {
  list_ = L"; localhost ;\t<local>\r\n;; ;\x3000host name\x00A0;";
  Add({L"10.1.2.0/24"});
  EXPECT_EQ(list_, L"localhost;<local>;host name;10.1.2.*");
  list_ = L" a ; 10.1.2.* ;; b ;";
  Remove({L"10.1.2.0/24"});
  EXPECT_EQ(list_, L"a;b");
}

TEST_F(ProxyBypass, KeepsForeignEntriesAsTheyAre) {
  list_ = L"B;a;B;10.1.2.3;10.1.2;10.1.2.*.*;x10.1.2.*";
  Add({L"10.1.2.0/24"});
  EXPECT_EQ(list_, L"B;a;B;10.1.2.3;10.1.2;10.1.2.*.*;x10.1.2.*;10.1.2.*");
  Remove({L"10.1.2.0/24"});
  EXPECT_EQ(list_, L"B;a;B;10.1.2.3;10.1.2;10.1.2.*.*;x10.1.2.*");
}

TEST_F(ProxyBypass, RemovesEveryCopy) {
  list_ = L"10.1.2.*;a; 10.1.2.*;b;10.1.2.*";
  Remove({L"10.1.2.0/24"});
  EXPECT_EQ(list_, L"a;b");
}

TEST_F(ProxyBypass, RemovesOnlyTheEntriesOfTheRoutesGiven) {
  Add({L"10.1.2.0/24", L"10.2.0.0/16"});
  EXPECT_EQ(Remove({L"10.2.0.0/16"}), L"已移除系统代理旁路：10.2.*");
  EXPECT_EQ(list_, L"10.1.2.*");
}

TEST_F(ProxyBypass, AddingTwiceIsAddingOnce) {
  Add({L"10.1.2.0/24"});
  Add({L"10.1.2.0/24", L"10.1.2.128/25"});
  EXPECT_EQ(list_, L"10.1.2.*");
  EXPECT_EQ(writes_, 1);
}

class ProxyBypassOfTwoUsers : public testing::Test {
 protected:
  MemoryNote memory_;
  ProxyNote note_{L"Client.proxy.json", memory_};
};

TEST_F(ProxyBypassOfTwoUsers, EachListIsEditedIndependently) {
  FakeList own{L"localhost"};
  FakeList desktop{L"10.1.*;intranet"};
  ProxyListDeps store = own.Store();
  store.others.push_back(desktop.Store());
  const Entries routes = {L"10.1.0.0/16", L"192.168.5.0/24"};
  EXPECT_EQ(AddProxyBypass(routes, store, note_), L"已加入系统代理旁路：10.1.*;192.168.5.*");
  EXPECT_EQ(own.list, L"localhost;10.1.*;192.168.5.*");
  EXPECT_EQ(desktop.list, L"10.1.*;intranet;192.168.5.*");
  AddProxyBypass(routes, store, note_);
  EXPECT_EQ(own.writes, 1);
  EXPECT_EQ(desktop.writes, 1);
  EXPECT_EQ(RemoveProxyBypass(routes, store, note_), L"已移除系统代理旁路：10.1.*;192.168.5.*");
  EXPECT_EQ(own.list, L"localhost");
  EXPECT_EQ(desktop.list, L"intranet");
  EXPECT_EQ(RemoveProxyBypass(routes, store, note_), L"");
  EXPECT_EQ(own.writes, 2);
  EXPECT_EQ(desktop.writes, 2);
}

TEST_F(ProxyBypassOfTwoUsers, AnUnreadableListIsLeftAloneAndTheOtherEdited) {
  FakeList own{L"localhost"};
  FakeList desktop{L"intranet"};
  ProxyListDeps store = own.Store();
  store.read = [] { return std::nullopt; };
  store.others.push_back(desktop.Store());
  EXPECT_EQ(AddProxyBypass({L"10.1.0.0/16"}, store, note_), L"已加入系统代理旁路：10.1.*");
  EXPECT_EQ(desktop.list, L"intranet;10.1.*");
  EXPECT_EQ(RemoveProxyBypass({L"10.1.0.0/16"}, store, note_), L"已移除系统代理旁路：10.1.*");
  EXPECT_EQ(desktop.list, L"intranet");
  EXPECT_EQ(own.list, L"localhost");
  EXPECT_EQ(own.writes, 0);
}

TEST_F(ProxyBypassOfTwoUsers, AChangeOfTheOtherListAloneIsReported) {
  FakeList own{L"localhost"};
  FakeList desktop{L"10.1.*"};
  ProxyListDeps store = own.Store();
  store.others.push_back(desktop.Store());
  EXPECT_EQ(RemoveProxyBypass({L"10.1.0.0/16"}, store, note_), L"已移除系统代理旁路：10.1.*");
  EXPECT_EQ(own.writes, 0);
  EXPECT_EQ(desktop.list, L"");
}

// Adding and removing keep all other entries of the list in their order.
TEST_F(ProxyBypass, LeavesEveryForeignEntryOfRandomLists) {
  std::mt19937 random(20260402);
  for (int round = 0; round < 2000; ++round) {
    Entries routes = {L"10.0.0.0/16"};
    for (auto i = random() % 6; i > 0; --i) {
      routes.push_back(L"10." + std::to_wstring(random() % 4) + L".0.0/16");
    }
    const Entries ours = BypassEntriesForRoutes(routes);
    std::wstring foreign;
    list_.clear();
    for (auto i = random() % 8; i > 0; --i) {
      const std::wstring entry = L"10." + std::to_wstring(random() % 6) + L".*";
      list_ += entry + (random() % 2 == 0 ? L";" : L" ; ");
      if (std::ranges::count(ours, entry) == 0) foreign += (foreign.empty() ? L"" : L";") + entry;
    }
    Add(routes);
    for (const std::wstring& entry : ours) ASSERT_NE(list_.find(entry), std::wstring::npos);
    Remove(routes);
    ASSERT_EQ(list_, foreign) << round;
  }
}

}  // namespace
}  // namespace diag
