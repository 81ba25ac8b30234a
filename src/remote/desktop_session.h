#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "remote/rustdesk_server.h"
#include "settings/json.h"
#include "settings/settings.h"

// What a remote desktop session asks of the service, what the service grants, and what the engineer
// is told. Pure; any thread.
namespace remote {

// Where the session of the settings' device is asked for, below the normalised service address.
std::wstring DesktopSessionUrl(const settings::Settings& settings);

// The request's JSON: deviceNumber, deviceSecret and engineerId, without blanks.
std::wstring DesktopSessionBody(const settings::Settings& settings);

// What the service grants. A text that it does not say, or not as a string, is empty; `server` is
// there only when it says an object.
struct DesktopSession {
  std::wstring rustDeskId;      // of the site's computer
  std::wstring accessPassword;  // for this once; reaches neither log nor result
  std::optional<RustDeskServer> server;
};
DesktopSession ReadDesktopSession(const settings::JsonValue& data);

// What became of the password on its way to the clipboard.
enum class PasswordCopy { None, Done, Failed };  // None: the service gave no password

// The line for the engineer once RustDesk has been started.
std::wstring DesktopOpenedText(std::wstring_view rustDeskId, PasswordCopy copy);

}  // namespace remote
