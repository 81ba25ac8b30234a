#pragma once

#include <string_view>

#include "shell/app_state.h"

// What the engineer asks for: by the page, or by native controls. Window's thread.
namespace shell {

// A string that the page has posted. What is no known action does nothing.
void HandlePageMessage(AppState& state, std::wstring_view json);

// A WM_COMMAND: its identifier, its notification code and the control that sent it, if any. False
// when the identifier is none of the window's.
bool HandleCommand(AppState& state, int id, int notification, HWND control);

}  // namespace shell
