#include "clipboard.h"

namespace browser {
namespace {

// Holds the clipboard open.
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

std::wstring ClipboardText(HWND owner) {
  const OpenedClipboard clipboard(owner);
  if (!clipboard) return {};
  const HANDLE memory = ::GetClipboardData(CF_UNICODETEXT);  // belongs to the clipboard
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
