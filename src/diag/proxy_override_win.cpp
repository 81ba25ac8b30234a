#include "diag/proxy_bypass.h"
#include "platform/desktop_user.h"
#include "platform/handles_win.h"

namespace diag {
namespace {

constexpr wchar_t kKey[] = L"Software\\Microsoft\\Windows\\CurrentVersion\\Internet Settings";
constexpr wchar_t kValue[] = L"ProxyOverride";
constexpr UINT kTellMs = 1500;

// Empty on any failure and for a value that is no string.
std::wstring ReadProxyOverride(HKEY root) {
  HKEY opened = nullptr;
  if (::RegOpenKeyExW(root, kKey, 0, KEY_QUERY_VALUE, &opened) != ERROR_SUCCESS) {
    return {};
  }
  const platform::RegistryKey key(opened);
  DWORD type = 0;
  DWORD sizeBytes = 0;
  if (::RegQueryValueExW(key.Get(), kValue, nullptr, &type, nullptr, &sizeBytes) != ERROR_SUCCESS) {
    return {};
  }
  if ((type != REG_SZ && type != REG_EXPAND_SZ) || sizeBytes == 0) return {};
  // One more for a value whose size is no whole number of units; the rest of it is no character.
  std::wstring text(sizeBytes / sizeof(wchar_t) + 1, L'\0');
  if (::RegQueryValueExW(key.Get(), kValue, nullptr, nullptr,
                         static_cast<BYTE*>(static_cast<void*>(text.data())),
                         &sizeBytes) != ERROR_SUCCESS) {
    return {};
  }
  text.resize(sizeBytes / sizeof(wchar_t));
  text.resize(text.find_last_not_of(L'\0') + 1);
  return text;
}

// Running programs read the list anew when they are told.
void TellSettingChange() {
  ::SendMessageTimeoutW(HWND_BROADCAST, WM_SETTINGCHANGE, 0, reinterpret_cast<LPARAM>(kKey),
                        SMTO_ABORTIFHUNG, kTellMs, nullptr);
}

void SetValue(HKEY root, const std::wstring& text) {
  HKEY opened = nullptr;
  if (::RegCreateKeyExW(root, kKey, 0, nullptr, 0, KEY_SET_VALUE, nullptr, &opened, nullptr) !=
      ERROR_SUCCESS) {
    return;
  }
  const platform::RegistryKey key(opened);
  const auto sizeBytes = static_cast<DWORD>((text.size() + 1) * sizeof(wchar_t));
  ::RegSetValueExW(key.Get(), kValue, 0, REG_SZ,
                   static_cast<const BYTE*>(static_cast<const void*>(text.c_str())), sizeBytes);
}

void WriteProxyOverride(HKEY root, const std::wstring& text) {
  SetValue(root, text);
  TellSettingChange();
}

// The part of the registry that is the user's own; empty while he is not signed in.
platform::RegistryKey RootOf(const std::wstring& sid) {
  HKEY opened = nullptr;
  const LSTATUS status =
      ::RegOpenKeyExW(HKEY_USERS, sid.c_str(), 0, KEY_READ | KEY_CREATE_SUB_KEY, &opened);
  return platform::RegistryKey(status == ERROR_SUCCESS ? opened : nullptr);
}

}  // namespace

ProxyOverrideStore RealProxyOverride() {
  ProxyOverrideStore store{
      [] { return ReadProxyOverride(HKEY_CURRENT_USER); },
      [](const std::wstring& text) { WriteProxyOverride(HKEY_CURRENT_USER, text); }};
  if (const auto user = platform::OtherDesktopUser()) {
    store.others.push_back(ProxyOverrideOf(user->sid));
  }
  return store;
}

ProxyOverrideStore ProxyOverrideOf(const std::wstring& sid) {
  return {[sid] {
            const platform::RegistryKey root = RootOf(sid);
            return root ? ReadProxyOverride(root.Get()) : std::wstring();
          },
          [sid](const std::wstring& text) {
            if (const platform::RegistryKey root = RootOf(sid)) {
              WriteProxyOverride(root.Get(), text);
            }
          }};
}

}  // namespace diag
