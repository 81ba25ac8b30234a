#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "settings/json.h"
#include "settings/settings.h"

// The request for a remote desktop session, the service's grant, and the line for the engineer.
// Pure; any thread.
namespace remote {

// The URL for a session of the settings' device, below the normalised service address.
std::wstring DesktopSessionUrl(const settings::Settings& settings);

// The request's JSON: deviceNumber, deviceSecret and engineerId, without blanks.
std::wstring DesktopSessionBody(const settings::Settings& settings);

// The service's own RustDesk servers. A missing text is empty.
struct RustDeskServer {
  std::wstring rendezvousServer;
  std::wstring relayServer;
  std::wstring apiServer;
  std::wstring key;
  std::wstring windowsDownloadUrl;  // of the program; absolute, or a path of the service
};

// Reads the members of `description` that are strings; all others count as empty.
RustDeskServer ReadRustDeskServer(const settings::JsonValue& description);

// A granted session. A text that is missing or not a string is empty; `server` is set only for a
// JSON object.
struct DesktopSession {
  std::wstring rustDeskId;      // of the site's computer
  std::wstring accessPassword;  // for this session only; reaches neither log nor result
  std::optional<RustDeskServer> server;
};
DesktopSession ReadDesktopSession(const settings::JsonValue& data);

// Whether the password reached the clipboard. None: the service gave no password.
enum class PasswordCopy { None, Done, Failed };

// The line for the engineer after RustDesk has been started.
std::wstring DesktopOpenedText(std::wstring_view rustDeskId, PasswordCopy copy);

}  // namespace remote
