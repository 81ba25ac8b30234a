#include "platform/clipboard.h"
#include "platform/clipboard_text.h"
#include "platform/unique_handle.h"
#include "platform/windows_sdk.h"

namespace platform {
namespace {

struct GlobalMemoryTraits {
  using Raw = HGLOBAL;
  static Raw Invalid() noexcept { return nullptr; }
  static bool IsValid(Raw memory) noexcept { return memory != nullptr; }
  static void Close(Raw memory) noexcept { ::GlobalFree(memory); }
};

class SystemClipboard {
 public:
  using Memory = UniqueHandle<GlobalMemoryTraits>;

  explicit SystemClipboard(HWND owner) : owner_(owner) {}

  bool Open() const { return ::OpenClipboard(owner_) != FALSE; }
  static void Close() { ::CloseClipboard(); }
  static bool Empty() { return ::EmptyClipboard() != FALSE; }

  // With its terminator, in the kind of memory that the clipboard takes over.
  static Memory CopyOf(const std::wstring& text) {
    Memory memory(::GlobalAlloc(GMEM_MOVEABLE, (text.size() + 1) * sizeof(wchar_t)));
    if (!memory) return memory;
    auto* units = static_cast<wchar_t*>(::GlobalLock(memory.Get()));
    if (units == nullptr) return Memory();
    std::char_traits<wchar_t>::copy(units, text.c_str(), text.size() + 1);
    ::GlobalUnlock(memory.Get());
    return memory;
  }

  static bool Set(HGLOBAL memory) { return ::SetClipboardData(CF_UNICODETEXT, memory) != nullptr; }

 private:
  const HWND owner_;
};

}  // namespace

bool CopyTextToClipboard(const std::wstring& text, void* ownerWindow) {
  SystemClipboard clipboard(static_cast<HWND>(ownerWindow));
  return PutTextOn(clipboard, text);
}

}  // namespace platform
