#include "platform/error_reason.h"
#include "platform/error_text_win.h"
#include "text/strings.h"

namespace platform {

std::wstring ErrorReason(std::uint32_t code) {
  std::wstring reason = text::Trim(SystemErrorText(code));
  return reason.empty() ? L"错误 " + std::to_wstring(code) : reason;
}

}  // namespace platform
