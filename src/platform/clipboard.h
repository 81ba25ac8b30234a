#pragma once

#include <string>

namespace platform {

// Replaces the clipboard's contents by `text`, a secret, in the name of a window (an HWND) or of
// nobody. The clipboard's history and its copy in the cloud are asked to leave it out. False for an
// empty text, which changes nothing, and when another program holds the clipboard for 100 ms or
// memory is short. The clipboard is closed again whatever happens. Windows only; any thread, a
// window's own when one is named.
bool CopySecretToClipboard(const std::wstring& text, void* ownerWindow = nullptr);

// Empties the clipboard if `text` is what it holds. By the text and not by the clipboard's sequence
// number: programs that share clipboards with other computers put the same text there once more.
// False when nobody can know or change it for now: another program holds the clipboard for 100 ms,
// or the one that has filled it hangs. Windows only; any thread.
bool TakeSecretOffClipboard(const std::wstring& text);

}  // namespace platform
