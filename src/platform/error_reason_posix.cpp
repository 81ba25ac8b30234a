#include <system_error>

#include "platform/error_reason.h"
#include "text/utf8.h"

namespace platform {

std::wstring ErrorReason(std::uint32_t code) {
  return text::FromUtf8(std::generic_category().message(static_cast<int>(code)));
}

}  // namespace platform
