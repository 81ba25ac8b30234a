#pragma once

#include <string>

#include "platform/windows_sdk.h"

namespace platform {

// Windows' own text for the error `code`, in the user's default language, inserts left as they
// stand, trailing line break kept. Empty when Windows has none. Any thread; changes GetLastError().
//
// WinHTTP's codes (12000 to 12199) have their texts in winhttp.dll and not in the system's table.
std::wstring SystemErrorText(DWORD code);

// The same with the module whose message table holds WinHTTP's texts (borrowed; nullptr = none).
std::wstring SystemErrorText(DWORD code, HMODULE httpMessages);

}  // namespace platform
