#pragma once

#include <string>

namespace platform {

// Replaces the clipboard's contents by `text`, in the name of a window (an HWND) or of nobody.
// False for an empty text, which changes nothing, and when another program holds the clipboard or
// memory is short. The clipboard is closed again whatever happens. Windows only; any thread, a
// window's own when one is named.
bool CopyTextToClipboard(const std::wstring& text, void* ownerWindow = nullptr);

}  // namespace platform
