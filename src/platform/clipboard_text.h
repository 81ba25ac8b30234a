#pragma once

#include <chrono>
#include <string>

namespace platform {

// The order in which a text is put on a clipboard, over the calls that `Clipboard` gives:
//   Memory                     owns the text's copy until the clipboard has taken it over
//   bool Open(), void Close()  false: somebody else holds it
//   void Empty()               as far as that works
//   Memory CopyOf(text)        an empty Memory when memory is short
//   bool Set(memory)           true: the memory is the clipboard's from here on
//   void KeepOutOfHistory()    as far as that works
// Others hold a clipboard for some milliseconds, above all just after a change: opening is tried
// five times, `pause` (called with milliseconds) in between, 100 ms in all. What was opened is
// closed and what was not taken over is freed on every path, that of an exception too. False when
// the text is not on the clipboard.
template <typename Clipboard, typename Pause>
bool PutTextOn(Clipboard& clipboard, const std::wstring& text, const Pause& pause) {
  constexpr int kAttempts = 5;
  constexpr std::chrono::milliseconds kBetween{25};
  if (text.empty()) return false;
  for (int attempt = 1; !clipboard.Open(); ++attempt) {
    if (attempt == kAttempts) return false;
    pause(kBetween);
  }
  struct Closing {
    Clipboard& opened;
    ~Closing() { opened.Close(); }
  } const closing{clipboard};
  clipboard.Empty();
  typename Clipboard::Memory memory = clipboard.CopyOf(text);
  if (!memory || !clipboard.Set(memory.Get())) return false;
  static_cast<void>(memory.Release());
  clipboard.KeepOutOfHistory();
  return true;
}

}  // namespace platform
