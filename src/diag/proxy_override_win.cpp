#include "diag/proxy_bypass.h"
#include "platform/handles_win.h"

namespace diag {
namespace {

constexpr wchar_t kKey[] = L"Software\\Microsoft\\Windows\\CurrentVersion\\Internet Settings";
constexpr wchar_t kValue[] = L"ProxyOverride";
constexpr UINT kTellMs = 1500;

// Empty on any failure and for a value that is no string.
std::wstring ReadProxyOverride() {
  HKEY opened = nullptr;
  if (::RegOpenKeyExW(HKEY_CURRENT_USER, kKey, 0, KEY_QUERY_VALUE, &opened) != ERROR_SUCCESS) {
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

void SetValue(const std::wstring& text) {
  HKEY opened = nullptr;
  if (::RegCreateKeyExW(HKEY_CURRENT_USER, kKey, 0, nullptr, 0, KEY_SET_VALUE, nullptr, &opened,
                        nullptr) != ERROR_SUCCESS) {
    return;
  }
  const platform::RegistryKey key(opened);
  const auto sizeBytes = static_cast<DWORD>((text.size() + 1) * sizeof(wchar_t));
  ::RegSetValueExW(key.Get(), kValue, 0, REG_SZ,
                   static_cast<const BYTE*>(static_cast<const void*>(text.c_str())), sizeBytes);
}

void WriteProxyOverride(const std::wstring& text) {
  SetValue(text);
  TellSettingChange();
}

}  // namespace

ProxyOverrideStore RealProxyOverride() {
  return {ReadProxyOverride, WriteProxyOverride};
}

}  // namespace diag
