#include "text.h"

#include <objbase.h>

namespace browser {
namespace {

// Keeps the clipboard open during its lifetime.
class OpenedClipboard {
 public:
  explicit OpenedClipboard(HWND owner) : open_(::OpenClipboard(owner) != FALSE) {}
  ~OpenedClipboard() {
    if (open_) ::CloseClipboard();
  }
  OpenedClipboard(const OpenedClipboard&) = delete;
  OpenedClipboard& operator=(const OpenedClipboard&) = delete;
  explicit operator bool() const { return open_; }

 private:
  bool open_;
};

}  // namespace

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

std::wstring ClipboardText(HWND owner) {
  const OpenedClipboard clipboard(owner);
  if (!clipboard) return {};
  const HANDLE memory = ::GetClipboardData(CF_UNICODETEXT);  // owned by the clipboard
  if (memory == nullptr) return {};
  const auto* text = static_cast<const wchar_t*>(::GlobalLock(memory));
  if (text == nullptr) return {};
  std::wstring copy(text);
  ::GlobalUnlock(memory);
  return copy;
}

void SetClipboardText(HWND owner, std::wstring_view text) {
  const OpenedClipboard clipboard(owner);
  if (!clipboard || ::EmptyClipboard() == FALSE) return;
  const HGLOBAL memory = ::GlobalAlloc(GMEM_MOVEABLE, (text.size() + 1) * sizeof(wchar_t));
  if (memory == nullptr) return;
  auto* target = static_cast<wchar_t*>(::GlobalLock(memory));
  text.copy(target, text.size());
  target[text.size()] = L'\0';
  ::GlobalUnlock(memory);
  if (::SetClipboardData(CF_UNICODETEXT, memory) == nullptr) ::GlobalFree(memory);
}

}  // namespace browser
