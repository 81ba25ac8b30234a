#include "options.h"

#include <cstdarg>
#include <cstdio>
#include <cwchar>
#include <mutex>
#include <string>

#include "text.h"

namespace browser {
namespace {

HINSTANCE Find(DWORD flags) {
  HMODULE module = nullptr;
  ::GetModuleHandleExW(flags | GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS,
                       reinterpret_cast<LPCWSTR>(&OwnModule), &module);
  return module;
}

}  // namespace

std::optional<uint16_t> BridgePort() {
  const std::wstring value = EnvironmentValue(L"LAB_WEBVIEW_PORT");
  wchar_t* end = nullptr;
  const unsigned long port = std::wcstoul(value.c_str(), &end, 10);
  if (value.empty() || *end != L'\0' || port == 0 || port > 65535) return std::nullopt;
  return static_cast<uint16_t>(port);
}

std::optional<HRESULT> FailureAt(std::wstring_view step, HRESULT usual) {
  const std::wstring value = EnvironmentValue(L"LAB_WEBVIEW_FAIL");
  const size_t equals = value.find(L'=');
  if (std::wstring_view(value).substr(0, equals) != step) return std::nullopt;
  if (equals == std::wstring::npos) return usual;
  return static_cast<HRESULT>(std::wcstoul(value.c_str() + equals + 1, nullptr, 16));
}

// Opens the file for each line, so that the log is complete even if the process is killed.
void Log(const char* format, ...) {
  const std::wstring path = EnvironmentValue(L"LAB_WEBVIEW_LOG");
  if (path.empty()) return;
  static std::mutex lock;
  const std::lock_guard guard(lock);
  std::FILE* file = ::_wfopen(path.c_str(), L"ab");
  if (file == nullptr) return;
  std::va_list arguments;
  va_start(arguments, format);
  std::vfprintf(file, format, arguments);
  va_end(arguments);
  std::fputc('\n', file);
  std::fclose(file);
}

HINSTANCE OwnModule() {
  return Find(GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT);
}

void StayLoaded() {
  Find(GET_MODULE_HANDLE_EX_FLAG_PIN);
}

}  // namespace browser
