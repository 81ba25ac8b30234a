#pragma once

#include <windows.h>

#include <cstdint>
#include <optional>
#include <string_view>

namespace browser {

// The bridge's port on 127.0.0.1 (LAB_WEBVIEW_PORT); empty if it is unset or invalid.
std::optional<uint16_t> BridgePort();

// The HRESULT that LAB_WEBVIEW_FAIL requests for this step ("create", "environment", "controller",
// "navigate"): `usual` or the one written after the step. Empty if it names another step.
std::optional<HRESULT> FailureAt(std::wstring_view step, HRESULT usual);

// Appends one line to the file named by LAB_WEBVIEW_LOG, if any. Any thread.
void Log(const char* format, ...) __attribute__((format(gnu_printf, 1, 2)));

// This DLL's own module handle; must not be freed.
HINSTANCE OwnModule();

// Keeps the DLL loaded until the process ends, as the real runtime does: a loader may free its
// reference at once.
void StayLoaded();

}  // namespace browser
