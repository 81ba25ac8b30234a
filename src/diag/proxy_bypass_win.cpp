#include "diag/proxy_bypass.h"

#include <optional>
#include <string>
#include <system_error>
#include <utility>

#include "platform/desktop_user.h"
#include "platform/detached_thread.h"
#include "platform/handles_win.h"
#include "platform/path.h"
#include "settings/settings_file.h"

namespace diag {
namespace {

constexpr wchar_t kKey[] = L"Software\\Microsoft\\Windows\\CurrentVersion\\Internet Settings";
constexpr wchar_t kValue[] = L"ProxyOverride";
constexpr UINT kAnnounceMs = 1500;

bool IsText(DWORD type) {
  return type == REG_SZ || type == REG_EXPAND_SZ;
}

// The first `sizeBytes` of `text`, without zeros at the end: values may be stored with none or
// many.
std::wstring Trimmed(std::wstring text, DWORD sizeBytes) {
  text.resize(sizeBytes / sizeof(wchar_t));
  text.resize(text.find_last_not_of(L'\0') + 1);
  return text;
}

// Empty text without a string value; empty optional when the value cannot be read. Reads again if
// another program wrote a longer value after the query for its size.
std::optional<std::wstring> ReadText(HKEY key) {
  constexpr int kTries = 5;
  DWORD type = 0;
  DWORD sizeBytes = 0;
  LSTATUS status = ::RegQueryValueExW(key, kValue, nullptr, &type, nullptr, &sizeBytes);
  for (int i = 0; i < kTries && (status == ERROR_SUCCESS || status == ERROR_MORE_DATA); ++i) {
    if (!IsText(type) || sizeBytes == 0) return L"";
    // One unit more, for a size that is not a multiple of a unit; half a unit is not a character.
    std::wstring text(sizeBytes / sizeof(wchar_t) + 1, L'\0');
    // The type may change between the two calls as well.
    status = ::RegQueryValueExW(key, kValue, nullptr, &type,
                                static_cast<BYTE*>(static_cast<void*>(text.data())), &sizeBytes);
    if (status == ERROR_SUCCESS) return IsText(type) ? Trimmed(std::move(text), sizeBytes) : L"";
  }
  if (status == ERROR_FILE_NOT_FOUND) return L"";
  return std::nullopt;
}

std::optional<std::wstring> ReadProxyOverride(HKEY root) {
  HKEY opened = nullptr;
  const LSTATUS status = ::RegOpenKeyExW(root, kKey, 0, KEY_QUERY_VALUE, &opened);
  // No list yet; that is not a failure.
  if (status == ERROR_FILE_NOT_FOUND) return L"";
  if (status != ERROR_SUCCESS) return std::nullopt;
  const platform::RegistryKey key(opened);
  return ReadText(key.Get());
}

// Makes running programs reload the list. Gives up on a program that hangs.
void AnnounceChange() {
  ::SendMessageTimeoutW(HWND_BROADCAST, WM_SETTINGCHANGE, 0, reinterpret_cast<LPARAM>(kKey),
                        SMTO_ABORTIFHUNG, kAnnounceMs, nullptr);
}

bool WriteProxyOverride(HKEY root, const std::wstring& text) {
  HKEY opened = nullptr;
  if (::RegCreateKeyExW(root, kKey, 0, nullptr, 0, KEY_SET_VALUE, nullptr, &opened, nullptr) !=
      ERROR_SUCCESS) {
    return false;
  }
  const platform::RegistryKey key(opened);
  // A registry text is stored with its zero.
  const auto sizeBytes = static_cast<DWORD>((text.size() + 1) * sizeof(wchar_t));
  return ::RegSetValueExW(key.Get(), kValue, 0, REG_SZ,
                          static_cast<const BYTE*>(static_cast<const void*>(text.c_str())),
                          sizeBytes) == ERROR_SUCCESS;
}

// The user's part of the registry; loaded only while that user is signed in, otherwise empty.
platform::RegistryKey RootOf(const std::wstring& sid) {
  HKEY opened = nullptr;
  const LSTATUS status =
      ::RegOpenKeyExW(HKEY_USERS, sid.c_str(), 0, KEY_READ | KEY_CREATE_SUB_KEY, &opened);
  return platform::RegistryKey(status == ERROR_SUCCESS ? opened : nullptr);
}

ProxyListDeps OwnProxyOverride() {
  ProxyListDeps store;
  store.read = [] { return ReadProxyOverride(HKEY_CURRENT_USER); };
  store.write = [](const std::wstring& text) {
    return WriteProxyOverride(HKEY_CURRENT_USER, text);
  };
  store.announce = AnnounceChange;
  return store;
}

}  // namespace

ProxyListDeps RealProxyOverride() {
  ProxyListDeps store = OwnProxyOverride();
  if (const auto user = platform::OtherDesktopUser()) {
    store.others.push_back(ProxyOverrideOf(user->sid));
  }
  return store;
}

ProxyListDeps ProxyOverrideOf(const std::wstring& sid) {
  ProxyListDeps store;
  store.user = sid;
  store.read = [sid] {
    const platform::RegistryKey root = RootOf(sid);
    return root ? ReadProxyOverride(root.Get()) : std::nullopt;
  };
  store.write = [sid](const std::wstring& text) {
    const platform::RegistryKey root = RootOf(sid);
    return root && WriteProxyOverride(root.Get(), text);
  };
  store.announce = AnnounceChange;
  return store;
}

ProxyListDeps LeftoverProxyOverride(const std::wstring& user) {
  ProxyListDeps store = user.empty() ? OwnProxyOverride() : ProxyOverrideOf(user);
  store.announce = [] {
    try {
      platform::StartDetached(AnnounceChange);
    } catch (const std::system_error&) {  // no thread; programs still read the list at their start
    }
  };
  return store;
}

// Never destroyed: the end of the Windows session may still use it when the process exits.
ProxyNote& RealProxyNote() {
  static ProxyNote& note =
      *new ProxyNote(platform::JoinPath(platform::ParentFolder(settings::SettingsFilePath()),
                                        L"Client.proxy.json"),
                     platform::RealFiles());
  return note;
}

}  // namespace diag
