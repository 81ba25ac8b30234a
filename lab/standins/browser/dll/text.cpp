#include "text.h"

#include <objbase.h>

namespace browser {

std::string ToUtf8(std::wstring_view text) {
  if (text.empty()) return {};
  const int length = static_cast<int>(text.size());
  const int size =
      ::WideCharToMultiByte(CP_UTF8, 0, text.data(), length, nullptr, 0, nullptr, nullptr);
  std::string bytes(static_cast<size_t>(size), '\0');
  ::WideCharToMultiByte(CP_UTF8, 0, text.data(), length, bytes.data(), size, nullptr, nullptr);
  return bytes;
}

std::wstring FromUtf8(std::string_view bytes) {
  if (bytes.empty()) return {};
  const int length = static_cast<int>(bytes.size());
  const int size = ::MultiByteToWideChar(CP_UTF8, 0, bytes.data(), length, nullptr, 0);
  std::wstring text(static_cast<size_t>(size), L'\0');
  ::MultiByteToWideChar(CP_UTF8, 0, bytes.data(), length, text.data(), size);
  return text;
}

HRESULT CopyForCaller(std::wstring_view text, LPWSTR* out) {
  if (out == nullptr) return E_POINTER;
  *out = static_cast<LPWSTR>(::CoTaskMemAlloc((text.size() + 1) * sizeof(wchar_t)));
  if (*out == nullptr) return E_OUTOFMEMORY;
  text.copy(*out, text.size());
  (*out)[text.size()] = L'\0';
  return S_OK;
}

std::wstring EnvironmentValue(const wchar_t* name) {
  std::wstring value(256, L'\0');
  for (;;) {
    const DWORD size =
        ::GetEnvironmentVariableW(name, value.data(), static_cast<DWORD>(value.size()));
    const bool whole = size < value.size();
    value.resize(size);
    if (whole) return value;
  }
}

}  // namespace browser
