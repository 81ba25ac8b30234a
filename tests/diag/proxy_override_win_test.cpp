#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <chrono>
#include <future>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "diag/fake_proxy_lists.h"
#include "diag/proxy_bypass.h"
#include "platform/desktop_user.h"
#include "platform/files.h"
#include "platform/handles_win.h"
#include "platform/path.h"
#include "settings/settings_file.h"

namespace diag {
namespace {

constexpr wchar_t kInternetSettings[] =
    L"Software\\Microsoft\\Windows\\CurrentVersion\\Internet Settings";
constexpr wchar_t kValue[] = L"ProxyOverride";

using Bytes = std::vector<BYTE>;

struct Value {
  DWORD type = REG_NONE;
  Bytes bytes;
};

platform::RegistryKey OpenSettings() {
  HKEY opened = nullptr;
  ::RegCreateKeyExW(HKEY_CURRENT_USER, kInternetSettings, 0, nullptr, 0, KEY_ALL_ACCESS, nullptr,
                    &opened, nullptr);
  return platform::RegistryKey(opened);
}

// The bytes of `text` in the registry, without a terminating zero.
Bytes BytesOf(const std::wstring& text) {
  const auto* const first = static_cast<const BYTE*>(static_cast<const void*>(text.data()));
  return {first, first + text.size() * sizeof(wchar_t)};
}

// Works on the current user's real value and restores it after each test.
class ProxyOverride : public testing::Test {
 protected:
  ProxyOverride() : key_(OpenSettings()), before_(Get()) {}
  ~ProxyOverride() override {
    if (before_.type == REG_NONE) {
      Delete();
    } else {
      Set(before_.type, before_.bytes);
    }
  }

  Value Get() const {
    Value value;
    DWORD size = 0;
    if (::RegQueryValueExW(key_.Get(), kValue, nullptr, &value.type, nullptr, &size) != 0) {
      return {};
    }
    value.bytes.resize(size);
    ::RegQueryValueExW(key_.Get(), kValue, nullptr, nullptr, value.bytes.data(), &size);
    return value;
  }
  void Set(DWORD type, const Bytes& bytes) const {
    ASSERT_EQ(::RegSetValueExW(key_.Get(), kValue, 0, type, bytes.data(),
                               static_cast<DWORD>(bytes.size())),
              ERROR_SUCCESS);
  }
  void Delete() const { ::RegDeleteValueW(key_.Get(), kValue); }

  const ProxyListDeps store_ = RealProxyOverride();
  MemoryNote memory_;
  ProxyNote note_{L"Client.proxy.json", memory_};

 private:
  const platform::RegistryKey key_;
  const Value before_;
};

struct ValueRow {
  const char* name;
  DWORD type;
  Bytes bytes;
  const wchar_t* text;
};

TEST_F(ProxyOverride, ReadsStringsOfEveryForm) {
  using std::literals::operator""s;  // keeps embedded zeros
  const ValueRow rows[] = {
      {"a string", REG_SZ, BytesOf(L"a;b\0"s), L"a;b"},
      {"an expandable string", REG_EXPAND_SZ, BytesOf(L"a;%TEMP%\0"s), L"a;%TEMP%"},
      {"no zero at the end", REG_SZ, BytesOf(L"a;b"), L"a;b"},
      {"one character, no zero", REG_SZ, BytesOf(L"a"), L"a"},
      {"several zeros at the end", REG_SZ, BytesOf(L"a;b\0\0\0\0"s), L"a;b"},
      {"a zero alone", REG_SZ, BytesOf(L"\0"s), L""},
      {"zeros alone", REG_EXPAND_SZ, BytesOf(L"\0\0\0"s), L""},
      {"no bytes", REG_SZ, {}, L""},
      {"no bytes, expandable", REG_EXPAND_SZ, {}, L""},
      {"half a unit", REG_SZ, {'a'}, L""},
      {"half a unit behind text", REG_SZ, {'a', 0, 'b', 0, 'c'}, L"ab"},
      {"half a unit behind the zero", REG_SZ, {'a', 0, 0, 0, 'c'}, L"a"},
      {"a number", REG_DWORD, {'a', 0, 'b', 0}, L""},
      {"bytes", REG_BINARY, BytesOf(L"a;b\0"s), L""},
      {"several strings", REG_MULTI_SZ, BytesOf(L"a\0b\0\0"s), L""},
      {"beyond the basic plane", REG_SZ, BytesOf(L"泵站\xD83D\xDE00\0"s), L"泵站\xD83D\xDE00"},
  };
  for (const ValueRow& row : rows) {
    Set(row.type, row.bytes);
    EXPECT_EQ(store_.read(), row.text) << row.name;
  }
}

TEST_F(ProxyOverride, ReadsALongList) {
  std::wstring list;
  for (int i = 0; i < 20'000; ++i) list += L"host" + std::to_wstring(i) + L";";
  store_.write(list);
  EXPECT_EQ(store_.read(), list);
}

TEST_F(ProxyOverride, ReadsNothingWithoutTheValue) {
  Delete();
  EXPECT_EQ(store_.read(), L"");
}

TEST_F(ProxyOverride, WritesAPlainStringWithItsZero) {
  using std::literals::operator""s;
  for (const std::wstring& list : {L"localhost;<local>"s, L""s}) {
    Set(REG_EXPAND_SZ, BytesOf(L"something longer that was there before"));
    store_.write(list);
    const Value value = Get();
    EXPECT_EQ(value.type, DWORD{REG_SZ});
    EXPECT_EQ(value.bytes, BytesOf(list + L'\0'));
    EXPECT_EQ(store_.read(), list);
  }
}

TEST_F(ProxyOverride, CreatesAMissingValue) {
  Delete();
  store_.write(L"10.1.*");
  EXPECT_EQ(store_.read(), L"10.1.*");
}

TEST_F(ProxyOverride, IsEditedInPlace) {
  store_.write(L"localhost;<local>;10.1.*");
  const std::vector<std::wstring> routes = {L"10.1.0.0/16", L"192.168.5.0/24"};
  EXPECT_EQ(AddProxyBypass(routes, store_, note_), L"已加入系统代理旁路：10.1.*;192.168.5.*");
  EXPECT_EQ(store_.read(), L"localhost;<local>;10.1.*;192.168.5.*");
  EXPECT_EQ(RemoveProxyBypass(routes, store_, note_), L"已移除系统代理旁路：10.1.*;192.168.5.*");
  EXPECT_EQ(store_.read(), L"localhost;<local>");
}

// Redirects HKEY_CURRENT_USER to another key during its lifetime.
class OtherUser {
 public:
  explicit OtherUser(DWORD options) {
    HKEY made = nullptr;
    ::RegCreateKeyExW(HKEY_CURRENT_USER, kName, 0, nullptr, options, KEY_ALL_ACCESS, nullptr, &made,
                      nullptr);
    const platform::RegistryKey key(made);
    replaced_ = ::RegOverridePredefKey(HKEY_CURRENT_USER, key.Get()) == ERROR_SUCCESS;
  }
  ~OtherUser() {
    ::RegOverridePredefKey(HKEY_CURRENT_USER, nullptr);
    ::RegDeleteTreeW(HKEY_CURRENT_USER, kName);
  }
  OtherUser(const OtherUser&) = delete;
  OtherUser& operator=(const OtherUser&) = delete;

  [[nodiscard]] bool IsInPlace() const { return replaced_; }

 private:
  static constexpr wchar_t kName[] = L"Software\\VelmarineProxyTest";
  bool replaced_ = false;
};

TEST_F(ProxyOverride, CreatesAMissingKey) {
  const OtherUser user(REG_OPTION_NON_VOLATILE);
  ASSERT_TRUE(user.IsInPlace());
  EXPECT_EQ(store_.read(), L"");
  store_.write(L"10.1.*");
  EXPECT_EQ(store_.read(), L"10.1.*");
}

TEST_F(ProxyOverride, IsSilentWhenItCannotBeWritten) {
  const OtherUser user(REG_OPTION_VOLATILE);  // only volatile keys can be created below it
  ASSERT_TRUE(user.IsInPlace());
  store_.write(L"10.1.*");
  EXPECT_EQ(store_.read(), L"");
  EXPECT_EQ(AddProxyBypass({L"10.1.0.0/16"}, store_, note_), L"已加入系统代理旁路：10.1.*");
}

// Only one user is signed in here, so the test uses his own id instead of the desktop user's.
TEST_F(ProxyOverride, IsReachedByTheUsersId) {
  const ProxyListDeps his = ProxyOverrideOf(platform::OwnSid());
  store_.write(L"localhost");
  EXPECT_EQ(his.read(), L"localhost");
  AddProxyBypass({L"10.1.0.0/16"}, his, note_);
  EXPECT_EQ(store_.read(), L"localhost;10.1.*");
  RemoveProxyBypass({L"10.1.0.0/16"}, his, note_);
  EXPECT_EQ(store_.read(), L"localhost");
  EXPECT_TRUE(store_.others.empty()) << "the desktop is the program's own user's";
}

TEST_F(ProxyOverride, OfAUserWhoIsNotSignedInIsNeitherReadNorCreated) {
  constexpr wchar_t kNobody[] = L"S-1-5-21-0-0-0-12345";
  const ProxyListDeps his = ProxyOverrideOf(kNobody);
  his.write(L"10.1.*");
  EXPECT_EQ(his.read(), std::nullopt);
  HKEY key = nullptr;
  EXPECT_NE(::RegOpenKeyExW(HKEY_USERS, kNobody, 0, KEY_READ, &key), ERROR_SUCCESS);
}

// A top-level window on its own thread, like that of another program.
class Listener {
 public:
  // Handles messages at once, or only once `answer` is ready.
  explicit Listener(std::shared_future<void> answer = {}) : answer_(std::move(answer)) {
    std::promise<HWND> made;
    std::future<HWND> window = made.get_future();
    thread_ = std::thread([this, &made] { Run(made); });
    window_ = window.get();
  }
  ~Listener() {
    ::PostMessageW(window_, WM_CLOSE, 0, 0);
    thread_.join();
  }
  Listener(const Listener&) = delete;
  Listener& operator=(const Listener&) = delete;

  // The number of notifications, and the arguments of the last. Read them after its arrival.
  [[nodiscard]] int Count() const { return count_; }
  [[nodiscard]] std::wstring Area() const { return area_; }
  [[nodiscard]] WPARAM Word() const { return word_; }

 private:
  void Run(std::promise<HWND>& made) {
    WNDCLASSW type{};
    type.lpfnWndProc = &Listener::Procedure;
    type.hInstance = ::GetModuleHandleW(nullptr);
    type.lpszClassName = L"VelmarineProxyListener";
    ::RegisterClassW(&type);
    const HWND window = ::CreateWindowExW(0, type.lpszClassName, L"", WS_OVERLAPPED, 0, 0, 1, 1,
                                          nullptr, nullptr, type.hInstance, nullptr);
    ::SetWindowLongPtrW(window, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(this));
    made.set_value(window);
    MSG message{};
    while (::GetMessageW(&message, nullptr, 0, 0) > 0) ::DispatchMessageW(&message);
  }

  static LRESULT CALLBACK Procedure(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
    auto* const self = reinterpret_cast<Listener*>(::GetWindowLongPtrW(window, GWLP_USERDATA));
    if (message == WM_SETTINGCHANGE && self != nullptr) self->OnSettingChange(wParam, lParam);
    if (message == WM_DESTROY) ::PostQuitMessage(0);
    return ::DefWindowProcW(window, message, wParam, lParam);
  }

  void OnSettingChange(WPARAM wParam, LPARAM lParam) {
    if (answer_.valid()) answer_.wait();
    word_ = wParam;
    area_ = lParam == 0 ? L"(none)" : reinterpret_cast<const wchar_t*>(lParam);
    ++count_;
  }

  const std::shared_future<void> answer_;
  std::atomic<int> count_{0};
  std::wstring area_;
  WPARAM word_ = 1;
  HWND window_ = nullptr;
  std::thread thread_;
};

TEST_F(ProxyOverride, NotifiesEveryTopLevelWindowAfterAWrite) {
  const Listener one;
  const Listener other;
  AddProxyBypass({L"10.1.0.0/16"}, store_, note_);
  for (const Listener* listener : {&one, &other}) {
    EXPECT_EQ(listener->Count(), 1);
    EXPECT_EQ(listener->Area(), kInternetSettings);
    EXPECT_EQ(listener->Word(), WPARAM{0});
  }
}

TEST_F(ProxyOverride, AnnouncesNothingWhenNothingIsWritten) {
  store_.write(L"10.1.*");
  const Listener listener;
  store_.read();
  AddProxyBypass({L"10.1.0.0/16"}, store_, note_);
  RemoveProxyBypass({L"10.2.0.0/16"}, store_, note_);
  EXPECT_EQ(listener.Count(), 0);
}

TEST_F(ProxyOverride, DoesNotWaitForeverForAHungWindow) {
  std::promise<void> answer;
  {
    const Listener hung(answer.get_future().share());
    AddProxyBypass({L"10.1.0.0/16"}, store_, note_);  // must not block
    EXPECT_EQ(hung.Count(), 0);
    EXPECT_EQ(store_.read(), L"10.1.*");
    answer.set_value();
  }
}

TEST_F(ProxyOverride, OfALeftoverIsAnnouncedOnAnotherThread) {
  std::promise<void> answer;
  const Listener hung(answer.get_future().share());
  const auto begin = std::chrono::steady_clock::now();
  for (int i = 0; i < 4; ++i) LeftoverProxyOverride(L"").announce();  // 1.5 s each
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(1500));
  answer.set_value();
  while (hung.Count() == 0) std::this_thread::yield();
}

// The program's real note: a file beside the settings, deleted when it becomes empty.
TEST(ProxyNoteOfTheProgram, IsBesideTheSettings) {
  const std::wstring path = platform::JoinPath(platform::ParentFolder(settings::SettingsFilePath()),
                                               L"Client.proxy.json");
  ProxyNote& note = RealProxyNote();
  const platform::MutexLock held(note.lock);
  note.Remember(L"", {L"10.1.*"});
  EXPECT_TRUE(platform::IsFile(path));
  EXPECT_EQ(note.Read(), (std::vector<NotedList>{{L"", {L"10.1.*"}}}));
  note.Forget(L"", {L"10.1.*"});
  EXPECT_FALSE(platform::IsFile(path));
}

}  // namespace
}  // namespace diag
