#pragma once

// The texts by which the page recognises the state of a connection. The build puts the list in
// page_texts.cpp into the page's script too (webui/join.cmake), so the two cannot differ.
namespace text {

// Status lines while a job runs.
extern const wchar_t kConnectBusy[];
extern const wchar_t kRetryBusy[];
extern const wchar_t kStopBusy[];
extern const wchar_t kLatencyBusy[];
extern const wchar_t kDesktopBusy[];
extern const wchar_t kResolveBusy[];

// Whole texts: the side panel's detail, a log line, a result.
extern const wchar_t kReconnecting[];
extern const wchar_t kRetryArmed[];
extern const wchar_t kUnknownError[];

// How a line of a job's result starts.
extern const wchar_t kRefusedPrefix[];
extern const wchar_t kNotResolvedPrefix[];
extern const wchar_t kGrantedPrefix[];

}  // namespace text
