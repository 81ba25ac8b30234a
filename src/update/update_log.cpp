#include "update/update_log.h"

#include <array>
#include <cwchar>

namespace update {

std::wstring UpdateLogLine(const platform::LocalTime& time, std::wstring_view message) {
  std::array<wchar_t, 96> prefix{};
  std::swprintf(prefix.data(), prefix.size(), L"[%04d-%02d-%02d %02d:%02d:%02d] ", time.year,
                time.month, time.day, time.hour, time.minute, time.second);
  return std::wstring(prefix.data()).append(message).append(L"\r\n");
}

}  // namespace update
