#include "shell/clipboard.h"

#include "platform/unique_handle.h"

namespace shell {
namespace {

struct GlobalMemoryTraits {
  using Raw = HGLOBAL;
  static Raw Invalid() noexcept { return nullptr; }
  static bool IsValid(Raw memory) noexcept { return memory != nullptr; }
  static void Close(Raw memory) noexcept { ::GlobalFree(memory); }
};
using GlobalMemory = platform::UniqueHandle<GlobalMemoryTraits>;

class OpenClipboardScope {
 public:
  explicit OpenClipboardScope(HWND owner) : opened_(::OpenClipboard(owner) != FALSE) {}
  ~OpenClipboardScope() {
    if (opened_) ::CloseClipboard();
  }
  OpenClipboardScope(const OpenClipboardScope&) = delete;
  OpenClipboardScope& operator=(const OpenClipboardScope&) = delete;
  explicit operator bool() const { return opened_; }

 private:
  const bool opened_;
};

// A copy with its terminator, in the kind of memory that the clipboard takes over.
GlobalMemory CopyToGlobalMemory(const std::wstring& text) {
  GlobalMemory memory(::GlobalAlloc(GMEM_MOVEABLE, (text.size() + 1) * sizeof(wchar_t)));
  if (!memory) return memory;
  auto* units = static_cast<wchar_t*>(::GlobalLock(memory.Get()));
  if (units == nullptr) return GlobalMemory();
  std::char_traits<wchar_t>::copy(units, text.c_str(), text.size() + 1);
  ::GlobalUnlock(memory.Get());
  return memory;
}

}  // namespace

bool CopyToClipboard(HWND owner, const std::wstring& text) {
  GlobalMemory memory = CopyToGlobalMemory(text);
  const OpenClipboardScope clipboard(owner);
  if (!memory || !clipboard || ::EmptyClipboard() == FALSE) return false;
  if (::SetClipboardData(CF_UNICODETEXT, memory.Get()) == nullptr) return false;
  static_cast<void>(memory.Release());  // the clipboard's from here on
  return true;
}

}  // namespace shell
