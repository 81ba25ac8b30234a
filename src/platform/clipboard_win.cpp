#include "platform/clipboard.h"

#include <cstring>
#include <optional>
#include <string_view>

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

  // Includes the terminator; movable memory is what SetClipboardData takes over.
  static Memory CopyOf(const std::wstring& text) {
    return CopyOf(text.c_str(), (text.size() + 1) * sizeof(wchar_t));
  }

  // GetClipboardData waits for an owner that renders its text on demand, for ever if that program
  // hangs.
  static std::optional<bool> Holds(const std::wstring& text) {
    if (::IsHungAppWindow(::GetClipboardOwner())) return std::nullopt;
    const HANDLE memory = ::GetClipboardData(CF_UNICODETEXT);
    if (memory == nullptr) return false;
    const auto* const units = static_cast<const wchar_t*>(::GlobalLock(memory));
    if (units == nullptr) return std::nullopt;
    // The memory may be larger than the text, and another program may have left out the terminator.
    const std::wstring_view all(units, ::GlobalSize(memory) / sizeof(wchar_t));
    const bool isSame = all.substr(0, all.find(L'\0')) == text;
    ::GlobalUnlock(memory);
    return isSame;
  }

  static bool Set(HGLOBAL memory) { return ::SetClipboardData(CF_UNICODETEXT, memory) != nullptr; }

  // Any one of the first two keeps the text out of the history, the third out of the cloud.
  static void KeepOutOfHistory() {
    constexpr DWORD kNo = 0;
    for (const wchar_t* const format :
         {L"ExcludeClipboardContentFromMonitorProcessing", L"CanIncludeInClipboardHistory",
          L"CanUploadToCloudClipboard"}) {
      Memory memory = CopyOf(&kNo, sizeof(kNo));
      // On success the clipboard owns the memory, so it must not be freed here.
      if (memory && ::SetClipboardData(::RegisterClipboardFormatW(format), memory.Get())) {
        static_cast<void>(memory.Release());
      }
    }
  }

 private:
  static Memory CopyOf(const void* bytes, std::size_t sizeBytes) {
    Memory memory(::GlobalAlloc(GMEM_MOVEABLE, sizeBytes));
    if (!memory) return memory;
    void* const locked = ::GlobalLock(memory.Get());
    if (locked == nullptr) return Memory();
    std::memcpy(locked, bytes, sizeBytes);
    ::GlobalUnlock(memory.Get());
    return memory;
  }

  const HWND owner_;
};

void Pause(std::chrono::milliseconds time) {
  ::Sleep(static_cast<DWORD>(time.count()));
}

}  // namespace

bool CopySecretToClipboard(const std::wstring& text, void* ownerWindow) {
  SystemClipboard clipboard(static_cast<HWND>(ownerWindow));
  return PutTextOn(clipboard, text, Pause);
}

bool TakeSecretOffClipboard(const std::wstring& text) {
  // No owner is needed, because nothing is put on the clipboard.
  SystemClipboard clipboard(nullptr);
  return TakeTextOff(clipboard, text, Pause);
}

}  // namespace platform
