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
  // The longest text is the file's name with 19 units.
  std::array<wchar_t, 64> buffer{};
  const int lengthUnits = std::swprintf(buffer.data(), buffer.size(), format, numbers...);
  return lengthUnits > 0 ? std::wstring(buffer.data()) : std::wstring();
}

}  // namespace

void LogFile::Start(const std::wstring& base,
                    const std::function<void(const std::wstring& folder)>& createFolders) {
  const std::lock_guard<std::recursive_mutex> held(lock_);
  if (!path_.empty()) return;

  const LocalTime now = now_();
  std::wstring folder = platform::JoinPath(base, L"Log");
  folder = platform::JoinPath(folder, Format(L"%04d%02d", now.year, now.month));
  // Without the folder, lines are lost silently and the program runs all the same.
  createFolders(folder);
  path_ = folder + L"\\" +
          Format(L"%04d%02d%02d_%02d%02d%02d.log", now.year, now.month, now.day, now.hour,
                 now.minute, now.second);
}

void LogFile::WriteLine(std::wstring_view text) {
  const std::lock_guard<std::recursive_mutex> held(lock_);
  if (path_.empty()) return;

  const LocalTime now = now_();
  std::wstring line = Format(L"[%02d:%02d:%02d] ", now.hour, now.minute, now.second);
  // A text's own line breaks stay: its further lines have no time.
  line.append(text).append(L"\r\n");
  append_(path_, kUtf8Mark, text::ToUtf8(line));
}

std::wstring LogFile::Path() const {
  const std::lock_guard<std::recursive_mutex> held(lock_);
  return path_;
}

}  // namespace shell
