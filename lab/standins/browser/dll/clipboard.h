#pragma once

#include <windows.h>

#include <string>
#include <string_view>

namespace browser {

// The clipboard's text; empty when it holds none or another program has it open.
std::wstring ClipboardText(HWND owner);

// Replaces what the clipboard holds.
void SetClipboardText(HWND owner, std::wstring_view text);

}  // namespace browser
