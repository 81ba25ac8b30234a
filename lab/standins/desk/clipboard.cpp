// Another program that uses the clipboard.
// Usage: clipboard.exe read         prints its text (UTF-8, no line end); exit code 2 without text
//        clipboard.exe write TEXT   sets its text
//        clipboard.exe hold         opens it, prints "ready" and keeps it open until ended
#include <windows.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "text/utf8.h"

namespace {

constexpr int kTries = 100;
constexpr DWORD kBetweenTriesMs = 20;
constexpr int kNoText = 2;

// Another program may hold it open for a moment.
bool Open(HWND owner) {
  for (int i = 0; i < kTries; ++i) {
    if (::OpenClipboard(owner)) return true;
    ::Sleep(kBetweenTriesMs);
  }
  return false;
}

int Read() {
  if (!Open(nullptr)) return 1;
  std::string bytes;
  const HANDLE data = ::GetClipboardData(CF_UNICODETEXT);
  if (data != nullptr) {
    bytes = text::ToUtf8(static_cast<const wchar_t*>(::GlobalLock(data)));
    ::GlobalUnlock(data);
  }
  ::CloseClipboard();
  std::fwrite(bytes.data(), 1, bytes.size(), stdout);
  return data == nullptr ? kNoText : 0;
}

int Write(const std::wstring& text) {
  if (!Open(nullptr)) return 1;
  ::EmptyClipboard();
  const std::size_t sizeBytes = (text.size() + 1) * sizeof(wchar_t);
  const HGLOBAL memory = ::GlobalAlloc(GMEM_MOVEABLE, sizeBytes);
  std::memcpy(::GlobalLock(memory), text.c_str(), sizeBytes);
  ::GlobalUnlock(memory);
  const bool isSet = ::SetClipboardData(CF_UNICODETEXT, memory) != nullptr;
  ::CloseClipboard();
  return isSet ? 0 : 1;
}

// Opened with a window: opening without one would count as the same owner, and succeed.
int Hold() {
  const HWND window = ::CreateWindowW(L"STATIC", L"", 0, 0, 0, 1, 1, HWND_MESSAGE, nullptr,
                                      ::GetModuleHandleW(nullptr), nullptr);
  if (!Open(window)) return 1;
  std::printf("ready\n");
  std::fflush(stdout);
  MSG message;
  while (::GetMessageW(&message, nullptr, 0, 0) > 0) ::DispatchMessageW(&message);
  return 0;
}

}  // namespace

int wmain(int count, wchar_t** arguments) {
  const std::wstring command = count > 1 ? arguments[1] : L"";
  if (command == L"read") return Read();
  if (command == L"write" && count > 2) return Write(arguments[2]);
  if (command == L"hold") return Hold();
  return 1;
}
