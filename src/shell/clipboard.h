#pragma once

#include <string>

#include "platform/windows_sdk.h"

namespace shell {

// Replaces the clipboard's contents by `text`, in the name of `owner`. False when another program
// holds the clipboard or memory is short. Window's thread.
bool CopyToClipboard(HWND owner, const std::wstring& text);

}  // namespace shell
