#pragma once

#include <string>

namespace platform {

// Replaces the clipboard's contents by `text`, a secret, in the name of a window (an HWND) or of
// nobody. The clipboard's history and its copy in the cloud are asked to leave it out. False for an
// empty text, which changes nothing, and when another program holds the clipboard for 100 ms or
// memory is short. The clipboard is closed again whatever happens. Windows only; any thread, a
// window's own when one is named.
bool CopySecretToClipboard(const std::wstring& text, void* ownerWindow = nullptr);

}  // namespace platform
