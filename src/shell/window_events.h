#pragma once

#include <string>

#include "platform/windows_sdk.h"
#include "shell/app_state.h"
#include "shell/window_size.h"

// What the main window does at each of its messages; one function a message. Window's thread.
// Those that return an LRESULT give the window procedure's answer.
namespace shell {

// ---- its life (window_life.cpp)

// -1, which ends the window's creation, when memory is short. A thread that cannot be started ends
// the program.
LRESULT OnCreate(HWND window, LPARAM lParam) noexcept;
// The page's control has to be closed while its window is still whole.
LRESULT OnClose(AppState& state);
// Ends retry, tunnel, worker and whatever request is under way; the central service is not told.
// What the tunnel's stop throws is dropped: nobody is left to read it.
LRESULT OnDestroy(AppState& state);
LRESULT OnGone(AppState& state, WPARAM wParam, LPARAM lParam);

// ---- reports and timers (window_reports.cpp)

void OnJobFinished(AppState& state, const std::wstring& text);
// Stops a tunnel that the service no longer accepts, so that nothing looks online which is not.
void OnHeartbeatRefused(AppState& state, std::wstring text);
void OnNotice(AppState& state, const std::wstring& text);
// Shows and logs a lost or a regained relay; nothing once the tunnel has stopped. `connected` is
// what the relay became then; it may be different again by now.
void OnLinkChanged(AppState& state, bool connected);
// Logs by which way small packets go from now on; nothing once the tunnel has stopped.
void OnUdpChanged(AppState& state, bool ready);
LRESULT OnTimer(AppState& state, WPARAM wParam, LPARAM lParam);
LRESULT OnCommand(AppState& state, WPARAM wParam, LPARAM lParam);

// ---- the computer around it (window_system.cpp)

// Sleep and wake: one line each. After a wake the tunnel looks at the network.
LRESULT OnPowerBroadcast(AppState& state, WPARAM event);
// The session is locked, switched, reached from afar: one line each.
LRESULT OnSessionChange(AppState& state, WPARAM change);
// One line, and a look at the network, once no other change has followed for half a second.
LRESULT OnAddressesChanged(AppState& state);
void TakeAddressChange(AppState& state);
// The program ends: takes the remote desktop's password off the clipboard. Returns within three
// seconds.
void ForgetPassword(AppState& state) noexcept;
// Agrees to the end of the session.
LRESULT OnQueryEndSession(AppState& state);
// The session ends now (or goes on after all): stops the tunnel for good, takes the connection's
// entries off the proxy list and the password off the clipboard, and saves. Returns within three
// seconds, whatever those take.
LRESULT OnEndSession(AppState& state, bool ends);

// ---- the report for a question (diagnosis.cpp)

// Adds the item to the window's system menu.
void AddReportItem(HWND window);
// The item writes a report on a thread of its own, one at a time; all else is the system's.
LRESULT OnSystemCommand(AppState& state, WPARAM wParam, LPARAM lParam);

// ---- its place and looks (window_view.cpp)

LRESULT OnMinMaxInfo(HWND window, LPARAM lParam) noexcept;
LRESULT OnSize(AppState& state, WPARAM wParam);
LRESULT OnMoved(AppState& state, UINT message, WPARAM wParam, LPARAM lParam);
LRESULT OnFocus(AppState& state);
LRESULT OnActivate(AppState& state, WPARAM wParam, LPARAM lParam);
LRESULT OnDpiChanged(AppState& state, LPARAM lParam);
LRESULT OnPaint(AppState& state);
LRESULT OnControlColour(AppState& state, UINT message, WPARAM wParam);
LRESULT OnDrawItem(AppState& state, WPARAM wParam, LPARAM lParam);
LRESULT OnMouseDown(AppState& state, WPARAM wParam, LPARAM lParam);

// What the window's monitor has left beside the task bar; without an extent when the system does
// not say.
PixelArea WorkAreaOf(HWND window) noexcept;

// Moves the native controls into place. The page covers the window and there are none of them, so
// that what is left of it is the repainting.
void LayOut(HWND window);
// Has what shows of the window drawn again when it next comes to that.
void Repaint(HWND window);

}  // namespace shell
