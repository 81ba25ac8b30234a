#pragma once

#include <string>

namespace platform {

// The order in which a text is put on a clipboard, over the calls that `Clipboard` gives:
//   Memory                     owns the text's copy until the clipboard has taken it over
//   bool Open(), void Close()  false: somebody else holds it
//   bool Empty()
//   Memory CopyOf(text)        an empty Memory when memory is short
//   bool Set(memory)           true: the memory is the clipboard's from here on
// What was opened is closed and what was not taken over is freed on every path, that of an
// exception too. False when the text is not on the clipboard.
template <typename Clipboard>
bool PutTextOn(Clipboard& clipboard, const std::wstring& text) {
  if (text.empty() || !clipboard.Open()) return false;
  struct Closing {
    Clipboard& opened;
    ~Closing() { opened.Close(); }
  } const closing{clipboard};
  if (!clipboard.Empty()) return false;
  typename Clipboard::Memory memory = clipboard.CopyOf(text);
  if (!memory || !clipboard.Set(memory.Get())) return false;
  static_cast<void>(memory.Release());
  return true;
}

}  // namespace platform
