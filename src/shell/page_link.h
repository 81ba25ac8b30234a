#pragma once

#include <string>

#include "shell/app_state.h"

// The way to the page, and the log that goes the same way. Window's thread, except PostToPage.
namespace shell {

// Sends `json` to the page by way of the window's message queue; dropped when there is no window.
void PostToPage(const AppState& state, std::wstring json);

// The other end of it: hands `json` to the page, or keeps it until the first page is ready. A text
// that the page refuses is sent once more with its control characters replaced; refused again, it
// is dropped. So is one that comes between two pages.
void DeliverToPage(AppState& state, std::wstring json);

// A page is ready: hands over all that has been kept, in order, then form and state. One that
// stands in for another page gets that one's log and what the engineer had typed, too.
void WelcomePage(AppState& state);

// The page that is shown, if there is one, has gone.
void LosePage(AppState& state) noexcept;

// A process of the browser has died or hangs: brings the page back, or gives up, and logs that.
void OnBrowserFailed(AppState& state, webview::ProcessFailedKind kind);

void PostStateMessage(const AppState& state);
// The form is taken to show what it is told here.
void PostApplyMessage(AppState& state);

// Takes the form's fields into the settings.
void TakeFields(AppState& state);

// One line for the engineer: to the page's live log and to the log file. Behind the first line of a
// known cause comes one more that says what it is and what helps; it is no result of a job.
void Log(AppState& state, const std::wstring& text);

// The lines that the settings' store has for the engineer.
void LogSettingsReports(AppState& state);

}  // namespace shell
