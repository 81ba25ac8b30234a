#pragma once

#include <windows.h>

#include <cstdint>
#include <optional>
#include <string_view>

namespace browser {

// Port of the bridge on 127.0.0.1 (LAB_WEBVIEW_PORT); nothing when it is not set or no port number.
std::optional<uint16_t> BridgePort();

// The HRESULT that LAB_WEBVIEW_FAIL asks for at this step ("create", "environment", "controller",
// "navigate"), either `usual` or the one written after the step; nothing when it names another
// step.
std::optional<HRESULT> FailureAt(std::wstring_view step, HRESULT usual);

// Appends one line to the file that LAB_WEBVIEW_LOG names, if it names one. Any thread.
void Log(const char* format, ...) __attribute__((format(gnu_printf, 1, 2)));

}  // namespace browser
