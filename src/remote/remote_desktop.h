#pragma once

#include <functional>
#include <memory>
#include <span>
#include <stop_token>
#include <string>

#include "remote/password_keeper.h"
#include "remote/password_paste.h"
#include "remote/rustdesk_server.h"
#include "service/http_transport.h"
#include "settings/settings.h"

namespace remote {

// RustDesk as opening a desktop sees it. `server` may be null.
struct RustDeskPorts {
  std::function<std::wstring(settings::Settings& settings, const RustDeskServer* server)> find;
  std::function<void(const RustDeskServer& server)> configure;
  std::function<void(const std::wstring& exePath, std::span<const std::wstring> arguments)> launch;
};

// What opening a desktop acts through: the program's own operations, or fakes in tests.
struct RemoteDesktopPorts {
  service::JsonRequester sendJsonRequest;
  RustDeskPorts rustDesk;
  std::function<bool(const std::wstring& text)> copyToClipboard;
  // Returns at once; throws std::system_error when no thread can be made.
  std::function<void(const std::wstring& password, const std::wstring& rustDeskId,
                     const std::wstring& startedPath)>
      startPasswordPaste;
  std::stop_token closing;  // requested when the program ends: nothing is started from then on
  // The line that is returned quotes a failure of the request, and not the service's own words.
  std::function<void()> requestFailed = [] {};
};

// The one keeper of the program's sessions, over the system's clipboard. To be ended, by whoever
// ends the program, before it goes. Windows only.
std::shared_ptr<PasswordKeeper> MakePasswordKeeper();

// The program's own, for one desktop: its session begins here, which ends the pasting of every
// earlier one. Requests and downloads end when `closing` is requested. `notice` takes a line for
// the engineer's log from the pasting thread, at any time until the process ends. Windows only.
RemoteDesktopPorts RealRemoteDesktopPorts(const std::shared_ptr<PasswordKeeper>& keeper,
                                          const std::stop_token& closing, PasteNotice notice);

// Asks the service for a desktop session of the settings' device, finds and configures RustDesk,
// starts it with the session's ID, and sees to it that the password is on the clipboard and in
// RustDesk's window. Returns the line for the log, which never holds the password; a refusal or
// failure of the service is such a line too. The settings get an engineerId when they had none, and
// rustDeskPath once RustDesk was started, whether or not it came up. Throws
// std::system_error when a thread cannot be made that it needs. Blocks, for minutes when RustDesk
// is downloaded; any thread. Once the program is closing it copies and starts nothing, and the line
// is for nobody.
std::wstring StartRemoteDesktop(settings::Settings& settings, const RemoteDesktopPorts& ports);

}  // namespace remote
