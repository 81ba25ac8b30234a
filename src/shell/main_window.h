#pragma once

#include "platform/windows_sdk.h"
#include "shell/app_state.h"

// The program's one window, and the hub of its work: jobs report to it, the page's messages come
// through it. All on the thread that made it.
namespace shell {

inline constexpr wchar_t kWindowClass[] = L"VelmarineNativeWindow";
inline constexpr wchar_t kWindowTitle[] = L"Velmarine.Client 维马林";

// To be called once, before the window is made. False when the system refuses.
bool RegisterMainWindow(HINSTANCE instance);

// Makes the window, not shown yet, and with it starts everything that lives in it: the page, the
// settings, the update check. `state` must outlive it. Null when it cannot be made.
HWND CreateMainWindow(HINSTANCE instance, AppState& state);

// Gives the window its icons and size and shows it as `showCommand` says.
void ShowMainWindow(HINSTANCE instance, HWND window, int showCommand);

}  // namespace shell
