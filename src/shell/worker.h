#pragma once

#include <string>

#include "shell/app_state.h"

// The one worker thread and what follows from its results. Window's thread.
namespace shell {

// Waits for the worker's end, if there is one; a failed wait ends the program. Messages sent from
// other threads are answered meanwhile, posted ones wait.
void JoinWorker(AppState& state) noexcept;

// Takes the form's fields, saves them and starts `job` on the worker, with `busyText` as the
// status. Dropped without a trace while another job runs and once the window closes. The result
// comes back as kJobFinished.
void StartWorker(AppState& state, const std::wstring& busyText, const Job& job);

// The job has ended with `text`: shows what it has left and the text, and decides whether the
// connection request is to be repeated.
void FinishJob(AppState& state, const std::wstring& text);

// The same for a job whose result could not be posted, if there is one.
void TakeStrandedResult(AppState& state);

// The retry timer has run out: asks for the connection again, if that is still wanted.
void RetryConnect(AppState& state);

// No retry from here on.
void DisarmRetry(AppState& state) noexcept;

}  // namespace shell
