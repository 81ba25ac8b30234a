// Every call concerning the proxy list: its arguments, and the effect of its failure.
#include <gtest/gtest.h>

#include <cstring>
#include <optional>
#include <string>
#include <string_view>

#include "diag/fake_proxy_lists.h"
#include "diag/proxy_bypass.h"
#include "text/utf8.h"
#include "win32/calls.h"

namespace diag {
namespace {

using namespace win32;

constexpr wchar_t kKey[] = L"Software\\Microsoft\\Windows\\CurrentVersion\\Internet Settings";
constexpr wchar_t kSid[] = L"S-1-5-21-1-2-3-1001";

HKEY Key(std::uintptr_t number) {
  return reinterpret_cast<HKEY>(number);
}

// The bytes of L"a;b" and its terminating zero.
const std::string kListBytes("a\0;\0b\0\0\0", 8);

// Simulates a registry in which every list is "a;b", and programs that handle the change
// notification at once.
void SimulateRegistry(Calls& calls, DWORD type) {
  calls.AnswerWith<Api::RegOpenKeyExW>([](HKEY, const wchar_t* name, DWORD, REGSAM, HKEY* opened) {
    *opened = Key(std::wstring_view(name) == kKey ? 0x102 : 0x101);
    return LSTATUS{ERROR_SUCCESS};
  });
  calls.AnswerWith<Api::RegCreateKeyExW>([](HKEY, const wchar_t*, DWORD, wchar_t*, DWORD, REGSAM,
                                            SECURITY_ATTRIBUTES*, HKEY* opened, DWORD*) {
    *opened = Key(0x102);
    return LSTATUS{ERROR_SUCCESS};
  });
  calls.AnswerWith<Api::RegQueryValueExW>(
      [type](HKEY, const wchar_t*, DWORD*, DWORD* valueType, BYTE* bytes, DWORD* sizeBytes) {
        if (valueType != nullptr) *valueType = type;
        if (bytes != nullptr) std::memcpy(bytes, kListBytes.data(), kListBytes.size());
        *sizeBytes = static_cast<DWORD>(kListBytes.size());
        return LSTATUS{ERROR_SUCCESS};
      });
  calls.AnswerWith<Api::RegSetValueExW>([](HKEY, const wchar_t*, DWORD, DWORD, const BYTE*, DWORD) {
    return LSTATUS{ERROR_SUCCESS};
  });
  calls.AnswerWith<Api::RegCloseKey>([](HKEY) { return LSTATUS{ERROR_SUCCESS}; });
  calls.AnswerWith<Api::SendMessageTimeoutW>(
      [](HWND, UINT, WPARAM, LPARAM, UINT, UINT, DWORD_PTR*) { return LRESULT{1}; });
}

class ProxyOverrideCalls : public testing::Test {
 protected:
  ProxyOverrideCalls() { SimulateRegistry(calls_, REG_SZ); }

  const ProxyListDeps own_ = RealProxyOverride();
  const ProxyListDeps his_ = ProxyOverrideOf(kSid);
  MemoryNote memory_;
  ProxyNote note_{L"Client.proxy.json", memory_};
  Calls calls_;
};

template <typename Root>
std::string SaidCreate(const Root& root) {
  return Said<Api::RegCreateKeyExW>(root, kKey, 0, nullptr, 0, KEY_SET_VALUE, nullptr, Some{},
                                    nullptr);
}

std::string SaidSet(const Handle& key) {
  return Said<Api::RegSetValueExW>(key, L"ProxyOverride", 0, REG_SZ, kListBytes, 8);
}

// The notification of every top-level window: 1.5 s for each, hung ones are skipped.
std::string SaidTell() {
  return Said<Api::SendMessageTimeoutW>(HWND_BROADCAST, WM_SETTINGCHANGE, 0, kKey, SMTO_ABORTIFHUNG,
                                        1500, nullptr);
}

std::string SaidSize(const Handle& key) {
  return Said<Api::RegQueryValueExW>(key, L"ProxyOverride", nullptr, Ref{0}, nullptr, Ref{0});
}

std::string SaidRead(const Handle& key) {
  return Said<Api::RegQueryValueExW>(key, L"ProxyOverride", nullptr, Ref{1}, Some{}, Ref{8});
}

std::string SaidOpenUser() {
  return Said<Api::RegOpenKeyExW>(HKEY_USERS, kSid, 0, KEY_READ | KEY_CREATE_SUB_KEY, Some{});
}

TEST_F(ProxyOverrideCalls, ReadTheUsersOwnList) {
  EXPECT_EQ(own_.read(), L"a;b");
  EXPECT_TRUE(calls_.Were({
      Said<Api::RegOpenKeyExW>(HKEY_CURRENT_USER, kKey, 0, KEY_QUERY_VALUE, Some{}),
      SaidSize(Handle{1}),
      SaidRead(Handle{1}),
      Said<Api::RegCloseKey>(Handle{1}),
  }));
  EXPECT_EQ(calls_.Unbalanced(), "");
}

TEST_F(ProxyOverrideCalls, WriteTheUsersOwnListAndNotifyEveryProgram) {
  EXPECT_TRUE(own_.write(L"a;b"));
  own_.announce();
  EXPECT_TRUE(calls_.Were({
      SaidCreate(HKEY_CURRENT_USER),
      SaidSet(Handle{1}),
      Said<Api::RegCloseKey>(Handle{1}),
      SaidTell(),
  }));
  EXPECT_EQ(calls_.Unbalanced(), "");
}

TEST_F(ProxyOverrideCalls, ReadTheListOfAnotherUser) {
  EXPECT_EQ(his_.read(), L"a;b");
  EXPECT_TRUE(calls_.Were({
      SaidOpenUser(),
      Said<Api::RegOpenKeyExW>(Handle{1}, kKey, 0, KEY_QUERY_VALUE, Some{}),
      SaidSize(Handle{2}),
      SaidRead(Handle{2}),
      Said<Api::RegCloseKey>(Handle{2}),
      Said<Api::RegCloseKey>(Handle{1}),
  }));
  EXPECT_EQ(calls_.Unbalanced(), "");
}

TEST_F(ProxyOverrideCalls, WriteTheListOfAnotherUser) {
  EXPECT_TRUE(his_.write(L"a;b"));
  his_.announce();
  EXPECT_TRUE(calls_.Were({
      SaidOpenUser(),
      SaidCreate(Handle{1}),
      SaidSet(Handle{2}),
      Said<Api::RegCloseKey>(Handle{2}),
      Said<Api::RegCloseKey>(Handle{1}),
      SaidTell(),
  }));
  EXPECT_EQ(calls_.Unbalanced(), "");
}

// Distinguishes a list that cannot be read from an empty one.
std::string ReadOf(const ProxyListDeps& store) {
  const std::optional<std::wstring> list = store.read();
  return list ? "\"" + text::ToUtf8(*list) + "\"" : "unknown";
}

TEST(ProxyOverrideFailures, LeaveTheListUnknown) {
  const auto prepare = [](Calls& calls) { SimulateRegistry(calls, REG_EXPAND_SZ); };
  const ProxyListDeps his = ProxyOverrideOf(kSid);
  EXPECT_EQ(EachFailure([&his] { return ReadOf(his); }, ERROR_ACCESS_DENIED, prepare),
            "all well: \"a;b\"\n"
            "RegOpenKeyExW: unknown\nRegOpenKeyExW: unknown\n"
            "RegQueryValueExW: unknown\nRegQueryValueExW: unknown\n"
            "RegCloseKey: \"a;b\"\nRegCloseKey: \"a;b\"\n");
}

TEST(ProxyOverrideFailures, OfAMissingKeyOrValueYieldAnEmptyList) {
  const auto prepare = [](Calls& calls) { SimulateRegistry(calls, REG_SZ); };
  const ProxyListDeps own = RealProxyOverride();
  EXPECT_EQ(EachFailure([&own] { return ReadOf(own); }, ERROR_FILE_NOT_FOUND, prepare),
            "all well: \"a;b\"\nRegOpenKeyExW: \"\"\n"
            "RegQueryValueExW: \"\"\nRegQueryValueExW: \"\"\nRegCloseKey: \"a;b\"\n");
}

// Makes the value grow by two units at each of the first `times` reads: "a;b", then "a;bb;"...
void GrowAtEachRead(Calls& calls, int times) {
  calls.AnswerWith<Api::RegQueryValueExW>(
      [times, list = std::wstring(L"a;b")](HKEY, const wchar_t*, DWORD*, DWORD* type, BYTE* bytes,
                                           DWORD* sizeBytes) mutable {
        if (type != nullptr) *type = REG_SZ;
        if (bytes != nullptr && times-- > 0) list += L";b";
        const auto neededBytes = static_cast<DWORD>((list.size() + 1) * sizeof(wchar_t));
        const bool fits = bytes != nullptr && *sizeBytes >= neededBytes;
        *sizeBytes = neededBytes;
        if (fits) std::memcpy(bytes, list.c_str(), neededBytes);
        return LSTATUS{bytes == nullptr || fits ? ERROR_SUCCESS : ERROR_MORE_DATA};
      });
}

TEST_F(ProxyOverrideCalls, RereadAListThatGrows) {
  const struct {
    int times;
    const char* read;
    int queries;
  } rows[] = {{0, "\"a;b\"", 2},
              {1, "\"a;b;b\"", 3},
              {4, "\"a;b;b;b;b;b\"", 6},
              {5, "unknown", 6},
              {1000, "unknown", 6}};
  for (const auto& row : rows) {
    const int before = calls_.Count(Api::RegQueryValueExW);
    GrowAtEachRead(calls_, row.times);
    EXPECT_EQ(ReadOf(own_), row.read) << row.times;
    EXPECT_EQ(calls_.Count(Api::RegQueryValueExW) - before, row.queries) << row.times;
    EXPECT_EQ(calls_.Unbalanced(), "");
  }
}

TEST_F(ProxyOverrideCalls, DoNotOverwriteAListThatCannotBeRead) {
  GrowAtEachRead(calls_, 1000);
  EXPECT_NE(AddProxyBypass({L"10.1.0.0/16"}, own_, note_), L"");
  EXPECT_EQ(RemoveProxyBypass({L"10.1.0.0/16"}, own_, note_), L"");
  EXPECT_EQ(calls_.Count(Api::RegSetValueExW), 0);
  EXPECT_EQ(calls_.Count(Api::SendMessageTimeoutW), 0);
  GrowAtEachRead(calls_, 1);
  AddProxyBypass({L"10.1.0.0/16"}, own_, note_);
  EXPECT_TRUE(calls_.Had(Said<Api::RegSetValueExW>(Text{calls_.Given(Api::RegCreateKeyExW)},
                                                   L"ProxyOverride", 0, REG_SZ,
                                                   std::string("a\0;\0b\0;\0b\0;\0"
                                                               "1\0"
                                                               "0\0.\0"
                                                               "1\0.\0*\0\0\0",
                                                               26),
                                                   26)));
}

TEST(ProxyOverrideFailures, OfWritingAreReturned) {
  const auto prepare = [](Calls& calls) { SimulateRegistry(calls, REG_SZ); };
  const auto write = [](const ProxyListDeps& store) {
    return std::string(store.write(L"a;b") ? "written" : "not written");
  };
  const ProxyListDeps his = ProxyOverrideOf(kSid);
  EXPECT_EQ(EachFailure([&] { return write(his); }, ERROR_ACCESS_DENIED, prepare),
            "all well: written\nRegOpenKeyExW: not written\nRegCreateKeyExW: not written\n"
            "RegSetValueExW: not written\nRegCloseKey: written\nRegCloseKey: written\n");
}

TEST(ProxyOverrideFailures, OfNotifyingAreNotReported) {
  Calls calls;
  SimulateRegistry(calls, REG_SZ);
  calls.Fail(Api::SendMessageTimeoutW, ERROR_TIMEOUT);
  RealProxyOverride().announce();
  EXPECT_TRUE(calls.EachWas(Api::SendMessageTimeoutW, SaidTell()));
}

TEST_F(ProxyOverrideCalls, OfALeftoverUseItsOwnersList) {
  EXPECT_EQ(LeftoverProxyOverride(L"").read(), L"a;b");
  EXPECT_TRUE(LeftoverProxyOverride(kSid).write(L"a;b"));
  EXPECT_EQ(LeftoverProxyOverride(kSid).user, kSid);
  EXPECT_TRUE(calls_.WereAmong(
      {Api::RegOpenKeyExW, Api::RegCreateKeyExW},
      {Said<Api::RegOpenKeyExW>(HKEY_CURRENT_USER, kKey, 0, KEY_QUERY_VALUE, Some{}),
       SaidOpenUser(),
       Said<Api::RegCreateKeyExW>(Text{"h2"}, kKey, 0, nullptr, 0, KEY_SET_VALUE, nullptr, Some{},
                                  nullptr)}));
}

TEST(ProxyOverrideFailures, IncludeEveryOtherTypeOfValue) {
  for (const int type : {REG_DWORD, REG_BINARY, REG_MULTI_SZ}) {
    Calls calls;
    SimulateRegistry(calls, static_cast<DWORD>(type));
    EXPECT_EQ(ProxyOverrideOf(kSid).read(), L"") << type;
    EXPECT_EQ(calls.Unbalanced(), "");
  }
}

}  // namespace
}  // namespace diag
