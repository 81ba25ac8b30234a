// Sends a window a message that the system would send.
// Usage: send_message.exe CLASS MESSAGE WPARAM [COUNT]   (numbers in decimal)
// Sends it COUNT times (1), one after the other. Prints the last answer and the total time:
// "answer 1 after 23 ms". Exits with 2 if there is no such window or it does not answer within ten
// seconds.
#include <windows.h>

#include <cstdio>
#include <cwchar>

int wmain(int count, wchar_t** arguments) {
  if (count < 4) return 1;
  const unsigned long times = count > 4 ? ::wcstoul(arguments[4], nullptr, 10) : 1;
  const HWND window = ::FindWindowW(arguments[1], nullptr);
  if (window == nullptr) return 2;
  const ULONGLONG begin = ::GetTickCount64();
  DWORD_PTR answer = 0;
  for (unsigned long i = 0; i < times; ++i) {
    if (::SendMessageTimeoutW(window, ::wcstoul(arguments[2], nullptr, 10),
                              ::wcstoul(arguments[3], nullptr, 10), 0, SMTO_NORMAL, 10'000,
                              &answer) == 0) {
      return 2;
    }
  }
  std::printf("answer %llu after %llu ms\n", static_cast<unsigned long long>(answer),
              static_cast<unsigned long long>(::GetTickCount64() - begin));
  return 0;
}
