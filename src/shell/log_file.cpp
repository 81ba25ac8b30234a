#include "shell/log_file.h"

#include <array>
#include <cwchar>

#include "platform/path.h"
#include "text/utf8.h"

namespace shell {
namespace {

constexpr std::string_view kUtf8Mark = "\xEF\xBB\xBF";

template <typename... Numbers>
std::wstring Format(const wchar_t* format, Numbers... numbers) {
  std::array<wchar_t, 64> buffer{};
  const int lengthUnits = std::swprintf(buffer.data(), buffer.size(), format, numbers...);
  return lengthUnits > 0 ? std::wstring(buffer.data()) : std::wstring();
}

}  // namespace

void LogFile::Start() {
  const std::lock_guard<std::recursive_mutex> held(lock_);
  if (!path_.empty()) return;

  const LocalTime time = ports_.now();
  std::wstring folder = platform::JoinPath(ports_.baseFolder(), L"Log");
  folder = platform::JoinPath(folder, Format(L"%04d%02d", time.year, time.month));
  ports_.createFolders(folder);
  path_ = folder + L"\\" +
          Format(L"%04d%02d%02d_%02d%02d%02d.log", time.year, time.month, time.day, time.hour,
                 time.minute, time.second);
}

void LogFile::WriteLine(std::wstring_view text) {
  const std::lock_guard<std::recursive_mutex> held(lock_);
  if (path_.empty()) return;

  const LocalTime time = ports_.now();
  std::wstring line = Format(L"[%02d:%02d:%02d] ", time.hour, time.minute, time.second);
  line.append(text).append(L"\r\n");
  ports_.append(path_, kUtf8Mark, text::ToUtf8(line));
}

std::wstring LogFile::Path() const {
  const std::lock_guard<std::recursive_mutex> held(lock_);
  return path_;
}

}  // namespace shell
