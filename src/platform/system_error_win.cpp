#include "platform/system_error.h"

#include "platform/unique_handle.h"
#include "platform/windows_sdk.h"
#include "text/strings.h"

namespace platform {
namespace {

constexpr DWORD kFirstHttpError = 12000;
constexpr DWORD kLastHttpError = 12199;

// Allocated by FormatMessageW.
struct LocalTextTraits {
  using Raw = wchar_t*;
  static Raw Invalid() noexcept { return nullptr; }
  static bool IsValid(Raw text) noexcept { return text != nullptr; }
  static void Close(Raw text) noexcept { ::LocalFree(text); }
};
using LocalText = UniqueHandle<LocalTextTraits>;

// The text of `code` in the table given by `source` (a FORMAT_MESSAGE_FROM_ flag), or empty.
std::wstring FormatFrom(DWORD source, HMODULE module, DWORD code) {
  wchar_t* allocated = nullptr;
  // With ALLOCATE_BUFFER the buffer parameter is the address of a pointer.
  const DWORD lengthUnits =
      ::FormatMessageW(source | FORMAT_MESSAGE_IGNORE_INSERTS | FORMAT_MESSAGE_ALLOCATE_BUFFER,
                       module, code, MAKELANGID(LANG_NEUTRAL, SUBLANG_DEFAULT),
                       reinterpret_cast<wchar_t*>(&allocated), 0, nullptr);
  const LocalText owner(allocated);
  return lengthUnits == 0 ? std::wstring() : std::wstring(allocated, lengthUnits);
}

}  // namespace

std::wstring ErrorReason(std::uint32_t code) {
  std::wstring reason = text::Trim(SystemErrorText(code));
  return reason.empty() ? L"错误 " + std::to_wstring(code) : reason;
}

std::wstring SystemErrorText(std::uint32_t code) {
  // Loaded already: the program imports it.
  return SystemErrorText(code, ::GetModuleHandleW(L"winhttp.dll"));
}

std::wstring SystemErrorText(std::uint32_t code, void* httpMessages) {
  if (code >= kFirstHttpError && code <= kLastHttpError && httpMessages != nullptr) {
    std::wstring found =
        FormatFrom(FORMAT_MESSAGE_FROM_HMODULE, static_cast<HMODULE>(httpMessages), code);
    if (!found.empty()) return found;
  }
  return FormatFrom(FORMAT_MESSAGE_FROM_SYSTEM, nullptr, code);
}

}  // namespace platform
