#pragma once

#include <windows.h>

#include <string>
#include <string_view>

namespace browser {

// Unpaired surrogates and invalid bytes become U+FFFD.
std::string ToUtf8(std::wstring_view text);
std::wstring FromUtf8(std::string_view bytes);

// Copies `text` for the caller of a COM method, who must free it with CoTaskMemFree. Errors:
// E_POINTER without `out`, E_OUTOFMEMORY.
HRESULT CopyForCaller(std::wstring_view text, LPWSTR* out);

// The value of an environment variable; empty if it is not set.
std::wstring EnvironmentValue(const wchar_t* name);

// The clipboard's text; empty if it has none or another program holds it open.
std::wstring ClipboardText(HWND owner);

// Replaces the clipboard's content.
void SetClipboardText(HWND owner, std::wstring_view text);

}  // namespace browser
