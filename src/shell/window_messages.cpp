#include "shell/window_messages.h"

#include <utility>

namespace shell {

bool CarriesText(UINT message) noexcept {
  switch (message) {
    case kJobFinished:
    case kHeartbeatRefused:
    case kNotice:
    case kFromPage:
    case kToPage:
    case kShowFailure:
      return true;
    default:
      return false;
  }
}

bool PostText(HWND window, UINT message, std::wstring text) {
  auto posted = std::make_unique<std::wstring>(std::move(text));
  if (::PostMessageW(window, message, 0, reinterpret_cast<LPARAM>(posted.get())) == FALSE) {
    return false;
  }
  static_cast<void>(posted.release());  // owned by the receiver from here on
  // The analyser cannot follow the pointer through the message.
  return true;  // NOLINT(clang-analyzer-cplusplus.NewDeleteLeaks)
}

std::unique_ptr<std::wstring> TakePostedText(LPARAM lParam) noexcept {
  return std::unique_ptr<std::wstring>(reinterpret_cast<std::wstring*>(lParam));
}

void DropPostedTexts(HWND window) noexcept {
  MSG message{};
  while (::PeekMessageW(&message, window, kJobFinished, kShowFailure, PM_REMOVE) != FALSE) {
    // Returned whatever the filter is, once nothing else waits.
    if (message.message == WM_QUIT) return ::PostQuitMessage(static_cast<int>(message.wParam));
    if (CarriesText(message.message)) TakePostedText(message.lParam);
  }
}

}  // namespace shell
