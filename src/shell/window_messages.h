#pragma once

#include <memory>
#include <string>

#include "platform/windows_sdk.h"

// The window's own messages. Those with a text carry it as a heap string in lParam, owned by
// whoever receives the message.
namespace shell {

inline constexpr UINT kJobFinished = WM_APP + 20;  // text: the job's result
inline constexpr UINT kIgnored = WM_APP + 21;
inline constexpr UINT kHeartbeatRefused = WM_APP + 22;  // text: the service's refusal
inline constexpr UINT kNotice = WM_APP + 23;            // text: a line for the log
inline constexpr UINT kLinkChanged = WM_APP + 24;  // wParam: relay was found again (1) or lost (0)
inline constexpr UINT kUdpChanged = WM_APP + 25;   // wParam: whether packets go by UDP now
inline constexpr UINT kAddressesChanged = WM_APP + 26;  // of this computer
inline constexpr UINT kFromPage = WM_APP + 30;          // text: what the page has posted
inline constexpr UINT kToPage = WM_APP + 31;            // text: JSON for the page
inline constexpr UINT kShowFailure = WM_APP + 32;       // text: for a message box
inline constexpr UINT kBrowserFailed = WM_APP + 33;     // wParam: the webview::ProcessFailedKind
inline constexpr UINT kMakePageAnew = WM_APP + 34;

// An item of the system menu; the system itself uses the four low bits and what lies above 0xF000.
inline constexpr UINT_PTR kReportItem = 0x0E10;

inline constexpr UINT_PTR kUnusedTimer = 302;
inline constexpr UINT_PTR kRetryTimer = 303;
inline constexpr UINT kRetryMs = 5000;
inline constexpr UINT_PTR kResultTimer = 304;  // while a job runs: looks for a stranded result
inline constexpr UINT kResultMs = 1000;
inline constexpr UINT_PTR kAddressTimer = 305;  // after a change of address: no other has followed
inline constexpr UINT kAddressMs = 500;

// True for those with a text, which whoever takes the message out of the queue has to free.
bool CarriesText(UINT message) noexcept;

// Posts `message` with `text`. False, with nothing left over, when the window is gone or its queue
// is full. Any thread.
bool PostText(HWND window, UINT message, std::wstring text);

// The text that came with a message, null when it came without. To be called once per message.
std::unique_ptr<std::wstring> TakePostedText(LPARAM lParam) noexcept;

// Frees the texts that still wait in the queue of a window about to go. Window's thread.
void DropPostedTexts(HWND window) noexcept;

}  // namespace shell
