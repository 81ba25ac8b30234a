#pragma once

#include <memory>
#include <string>

#include "platform/windows_sdk.h"

// The window's own messages. A text is a heap string in lParam; the receiver owns it.
namespace shell {

inline constexpr UINT kJobFinished = WM_APP + 20;  // text: the job's result
inline constexpr UINT kIgnored = WM_APP + 21;
inline constexpr UINT kHeartbeatRefused = WM_APP + 22;  // text: the service's refusal
inline constexpr UINT kNotice = WM_APP + 23;            // text: a line for the log
inline constexpr UINT kLinkChanged = WM_APP + 24;  // wParam: relay was found again (1) or lost (0)
inline constexpr UINT kUdpChanged = WM_APP + 25;   // wParam: small packets use UDP (1) or not (0)
inline constexpr UINT kAddressesChanged = WM_APP + 26;  // of this computer
inline constexpr UINT kFromPage = WM_APP + 30;          // text: posted by the page
inline constexpr UINT kToPage = WM_APP + 31;            // text: JSON for the page
inline constexpr UINT kShowFailure = WM_APP + 32;       // text: for a message box
inline constexpr UINT kBrowserFailed = WM_APP + 33;     // wParam: the webview::ProcessFailedKind
inline constexpr UINT kMakePageAnew = WM_APP + 34;

// An item of the system menu. The system uses the four low bits and all values above 0xF000.
inline constexpr UINT_PTR kReportItem = 0x0E10;

inline constexpr UINT_PTR kUnusedTimer = 302;
inline constexpr UINT_PTR kRetryTimer = 303;
inline constexpr UINT kRetryMs = 5000;
inline constexpr UINT_PTR kResultTimer = 304;  // while a job runs: takes a stranded result
inline constexpr UINT kResultMs = 1000;
inline constexpr UINT_PTR kAddressTimer = 305;  // no further change of address has followed
inline constexpr UINT kAddressMs = 500;

// True for messages with a text; the code that removes one from the queue must free it.
bool CarriesText(UINT message) noexcept;

// Posts `message` with `text`. False, without a leak, when the window is gone or its queue is full.
// Any thread.
bool PostText(HWND window, UINT message, std::wstring text);

// The text of a message, or null. Must be called once per message.
std::unique_ptr<std::wstring> TakePostedText(LPARAM lParam) noexcept;

// Frees the texts in the queue of a window that is being destroyed. Window's thread.
void DropPostedTexts(HWND window) noexcept;

}  // namespace shell
