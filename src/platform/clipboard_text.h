#pragma once

#include <chrono>
#include <optional>
#include <string>

namespace platform {

// The order in which a text is put on a clipboard and taken off again, over the calls that
// `Clipboard` gives:
//   Memory                     owns the text's copy until the clipboard has taken it over
//   bool Open(), void Close()  false: somebody else holds it
//   bool Empty()
//   Memory CopyOf(text)        an empty Memory when memory is short
//   bool Set(memory)           true: the memory is the clipboard's from here on
//   void KeepOutOfHistory()    as far as that works
//   optional<bool> Holds(text) whether that is its text; nothing when it does not say
// What was opened is closed on every path, that of an exception too.

template <typename Clipboard>
struct OpenedClipboard {
  Clipboard& opened;
  ~OpenedClipboard() { opened.Close(); }
};

// Others hold a clipboard for some milliseconds, above all just after a change: opening is tried
// five times, `pause` (called with milliseconds) in between, 100 ms in all.
template <typename Clipboard, typename Pause>
bool OpenPatiently(Clipboard& clipboard, const Pause& pause) {
  constexpr int kAttempts = 5;
  constexpr std::chrono::milliseconds kBetween{25};
  for (int attempt = 1; !clipboard.Open(); ++attempt) {
    if (attempt == kAttempts) return false;
    pause(kBetween);
  }
  return true;
}

// What was not taken over is freed. A clipboard that cannot be emptied takes the text all the same.
// False when the text is not on the clipboard.
template <typename Clipboard, typename Pause>
bool PutTextOn(Clipboard& clipboard, const std::wstring& text, const Pause& pause) {
  if (text.empty() || !OpenPatiently(clipboard, pause)) return false;
  const OpenedClipboard<Clipboard> closing{clipboard};
  static_cast<void>(clipboard.Empty());
  typename Clipboard::Memory memory = clipboard.CopyOf(text);
  if (!memory || !clipboard.Set(memory.Get())) return false;
  static_cast<void>(memory.Release());
  clipboard.KeepOutOfHistory();
  return true;
}

// Empties the clipboard if it holds just this text; between the look and that nobody else comes to
// it. False when it may still hold the text.
template <typename Clipboard, typename Pause>
bool TakeTextOff(Clipboard& clipboard, const std::wstring& text, const Pause& pause) {
  if (!OpenPatiently(clipboard, pause)) return false;
  const OpenedClipboard<Clipboard> closing{clipboard};
  const std::optional<bool> holdsIt = clipboard.Holds(text);
  if (!holdsIt) return false;
  return !*holdsIt || clipboard.Empty();
}

}  // namespace platform
