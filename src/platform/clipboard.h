#pragma once

#include <chrono>
#include <optional>
#include <string>

namespace platform {

// Replaces the clipboard's contents by `text`, a secret, on behalf of a window (an HWND) or of no
// window. Asks the clipboard's history and cloud copy to leave it out. False for an empty text,
// which changes nothing, and when another program holds the clipboard for 100 ms or memory is
// short. Windows only; any thread, but the window's own when one is given.
bool CopySecretToClipboard(const std::wstring& text, void* ownerWindow = nullptr);

// Empties the clipboard if it holds `text`. Compares the text, not the clipboard's sequence number:
// programs that share clipboards between computers write the same text once more. False when the
// contents cannot be determined or changed now: another program holds the clipboard for 100 ms, or
// its owner hangs. Windows only; any thread.
bool TakeSecretOffClipboard(const std::wstring& text);

// ---- the order of calls behind the two functions, tested with a fake clipboard
//
// `Clipboard` provides:
//   Memory                     owns a copy of the text until the clipboard takes it over
//   bool Open(), void Close()  Open() returns false while another program holds the clipboard
//   bool Empty()
//   Memory CopyOf(text)        an empty Memory when memory is short
//   bool Set(memory)           on success the clipboard owns the memory
//   void KeepOutOfHistory()    best effort
//   optional<bool> Holds(text) whether that is its text; empty when it cannot be determined
// An opened clipboard is closed on every path, exceptions included.

template <typename Clipboard>
struct OpenedClipboard {
  Clipboard& opened;
  ~OpenedClipboard() { opened.Close(); }
};

// Other programs hold a clipboard for some milliseconds, mostly just after a change. Tries five
// times, 100 ms in all; `pause` takes the milliseconds between two attempts.
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

// False when the text is not on the clipboard. Continues when the clipboard cannot be emptied:
// setting the text replaces the old one anyway.
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

// Compares and empties while the clipboard is open, so that no other program can change it in
// between. False when it may still hold the text.
template <typename Clipboard, typename Pause>
bool TakeTextOff(Clipboard& clipboard, const std::wstring& text, const Pause& pause) {
  if (!OpenPatiently(clipboard, pause)) return false;
  const OpenedClipboard<Clipboard> closing{clipboard};
  const std::optional<bool> holdsIt = clipboard.Holds(text);
  if (!holdsIt) return false;
  return !*holdsIt || clipboard.Empty();
}

}  // namespace platform
