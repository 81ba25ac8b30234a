#pragma once

#include <cstdint>
#include <string>

namespace platform {

// The system's own words for one of its error codes, as one line without a line break: "拒绝访问。"
// for a Chinese Windows' 5. A code for which it has none gives "错误 " and the number. Any thread.
std::wstring ErrorReason(std::uint32_t code);

}  // namespace platform
