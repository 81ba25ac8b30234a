#include "driver/environment_win.h"

#include <cstdlib>

#include "platform/unique_handle.h"
#include "platform/windows_sdk.h"

namespace driver {
namespace {

struct LogFileTraits {
  using Raw = HANDLE;
  static Raw Invalid() noexcept { return INVALID_HANDLE_VALUE; }
  static bool IsValid(Raw file) noexcept { return file != INVALID_HANDLE_VALUE; }
  static void Close(Raw file) noexcept { ::CloseHandle(file); }
};

std::wstring ReadText(const wchar_t* name) {
  const DWORD units = ::GetEnvironmentVariableW(name, nullptr, 0);
  std::wstring text(units, L'\0');
  text.resize(::GetEnvironmentVariableW(name, text.data(), units));
  return text;
}

template <typename Number>
void ReadNumber(const wchar_t* name, Number& number) {
  const std::wstring text = ReadText(name);
  if (!text.empty()) number = static_cast<Number>(std::wcstoull(text.c_str(), nullptr, 10));
}

}  // namespace

Environment ReadEnvironment() {
  Environment environment;
  ReadNumber(L"LAB_WINDIVERT_PORT", environment.port);
  ReadNumber(L"LAB_WINDIVERT_PEER", environment.peerPort);
  ReadNumber(L"LAB_WINDIVERT_OPEN_ERROR", environment.openError);
  ReadNumber(L"LAB_WINDIVERT_FAIL_OPEN", environment.failOpen);
  ReadNumber(L"LAB_WINDIVERT_FAIL_RECV", environment.failRecv);
  ReadNumber(L"LAB_WINDIVERT_FAIL_SEND", environment.failSend);
  ReadNumber(L"LAB_WINDIVERT_FAIL_CHECKSUM", environment.failChecksum);
  environment.logFile = ReadText(L"LAB_WINDIVERT_LOG");
  // Wine maps the Linux root to drive Z:.
  if (environment.logFile.starts_with(L"/")) environment.logFile.insert(0, L"Z:");
  return environment;
}

void AppendLog(const std::wstring& file, const std::string& line) {
  if (file.empty()) return;
  const platform::UniqueHandle<LogFileTraits> log(
      ::CreateFileW(file.c_str(), FILE_APPEND_DATA, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                    OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
  if (!log) return;
  // One write per line, so that lines of several processes do not mix.
  const std::string text = line + "\n";
  DWORD written = 0;
  ::WriteFile(log.Get(), text.data(), static_cast<DWORD>(text.size()), &written, nullptr);
}

}  // namespace driver
