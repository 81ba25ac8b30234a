#include "rustdesk/plan.h"

#include <windows.h>

#include <array>
#include <cstdio>
#include <cwchar>

#include "platform/unique_handle.h"
#include "text/strings.h"
#include "text/utf8.h"

namespace rustdesk {
namespace {

int Number(const std::wstring& value) {
  return static_cast<int>(std::wcstol(value.c_str(), nullptr, 10));
}

std::chrono::milliseconds Milliseconds(const std::wstring& value) {
  return std::chrono::milliseconds(Number(value));
}

void Take(const std::wstring& name, const std::wstring& value, Plan& plan) {
  if (name == L"title") plan.title = value;
  if (name == L"firstTitle") plan.firstTitle = value;
  if (name == L"titleAfterMs") plan.titleAfter = Milliseconds(value);
  if (name == L"showAfterMs") plan.showAfter = Milliseconds(value);
  if (name == L"left") plan.left = Number(value);
  if (name == L"lifeMs") plan.life = Milliseconds(value);
  if (name == L"shape" && value == L"owned") plan.shape = Shape::Owned;
}

struct FileTraits {
  using Raw = HANDLE;
  static Raw Invalid() noexcept { return INVALID_HANDLE_VALUE; }
  static bool IsValid(Raw file) noexcept { return file != INVALID_HANDLE_VALUE; }
  static void Close(Raw file) noexcept { ::CloseHandle(file); }
};
using File = platform::UniqueHandle<FileTraits>;

// A JSON string; all control characters escaped (RFC 8259, section 7).
std::string Quote(std::wstring_view value) {
  std::string quoted = "\"";
  for (const char byte : text::ToUtf8(value)) {
    if (byte == '"' || byte == '\\') quoted += '\\';
    if (static_cast<unsigned char>(byte) >= 0x20) {
      quoted += byte;
    } else {
      std::array<char, 8> escaped{};
      std::snprintf(escaped.data(), escaped.size(), "\\u%04x", static_cast<unsigned>(byte));
      quoted += escaped.data();
    }
  }
  return quoted + "\"";
}

std::wstring FolderOfProgram() {
  std::array<wchar_t, 4096> file{};
  const DWORD units = ::GetModuleFileNameW(nullptr, file.data(), static_cast<DWORD>(file.size()));
  const std::wstring_view path(file.data(), units);
  return std::wstring(path.substr(0, path.find_last_of(L"\\/")));
}

}  // namespace

Plan ReadPlan(std::string_view bytes) {
  Plan plan;
  for (const std::wstring& line : text::SplitLines(text::FromUtf8(bytes))) {
    const std::size_t sign = line.find(L'=');
    if (sign != std::wstring::npos) Take(line.substr(0, sign), line.substr(sign + 1), plan);
  }
  return plan;
}

void Record::Add(std::string_view event, std::initializer_list<Member> members) const {
  std::string line = "{\"event\":\"" + std::string(event) +
                     "\",\"pid\":" + std::to_string(::GetCurrentProcessId()) +
                     ",\"atMs\":" + std::to_string(::GetTickCount64());
  for (const auto& [name, value] : members) {
    line += ",\"" + std::string(name) + "\":" + Quote(value);
  }
  line += "}\n";
  // Append-only access makes each write atomic, so that several processes can share the file.
  const File file(::CreateFileW(file_.c_str(), FILE_APPEND_DATA, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                nullptr, OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
  DWORD written = 0;
  if (file) {
    ::WriteFile(file.Get(), line.data(), static_cast<DWORD>(line.size()), &written, nullptr);
  }
}

std::wstring RecordFolder() {
  std::array<wchar_t, 4096> named{};
  const DWORD units =
      ::GetEnvironmentVariableW(L"LAB_RUSTDESK", named.data(), static_cast<DWORD>(named.size()));
  if (units == 0 || units >= named.size()) return FolderOfProgram();
  const std::wstring folder(named.data(), units);
  return folder.starts_with(L"/") ? L"Z:" + folder : folder;
}

std::string ReadBytes(const std::wstring& file) {
  const File opened(::CreateFileW(file.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                  nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
  if (!opened) return {};
  std::array<char, 4096> bytes{};
  DWORD count = 0;
  ::ReadFile(opened.Get(), bytes.data(), static_cast<DWORD>(bytes.size()), &count, nullptr);
  return {bytes.data(), count};
}

}  // namespace rustdesk
