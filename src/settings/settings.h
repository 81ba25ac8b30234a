#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "settings/granted_connection.h"
#include "settings/site_profiles.h"

namespace settings {

// All that the client remembers between runs, in the order of its file. SettingsStore owns the one
// that counts; jobs work on a copy. A fresh record has the default service address, empty texts and
// false switches.
struct Settings {
  std::wstring serverUrl;  // the default address in a fresh record
  std::wstring deviceNumber;
  std::wstring deviceSecret;
  std::wstring deviceName;
  std::wstring profileName;
  std::wstring networkInterfaceName;
  std::wstring sharedNetworksText;
  std::wstring targetNetwork;  // "ALL" = every shared network
  std::wstring engineerId;     // "ENG-" and eight digits
  std::wstring rustDeskPath;
  std::wstring rustDeskAccessPassword;
  std::wstring rustDeskId;
  bool rustDeskServiceRunning = false;
  std::wstring connectionId;       // empty = no connection held
  std::wstring assignedAddress;    // the tunnel address, dotted, perhaps with "/prefix"
  std::wstring routesText;         // granted networks, one a line (CRLF)
  std::wstring accessRoutesText;   // the networks as this computer reaches them, one a line
  std::wstring routeMappingsText;  // the mappings as shown to the engineer, one a line
  std::wstring testIp;
  std::wstring latencyText;
  bool heartbeatAccepted = false;
  std::wstring heartbeatMessage;  // the service's last refusal code
  bool autoStartEnabled = false;
  bool discoveryModeEnabled = false;
  std::vector<SiteProfile> siteProfiles;

  GrantedConnection granted;  // in a file of its own; use ConnectionInForce()

  Settings();
};

// The file's text, exactly as it is written (UTF-16 here, UTF-8 without mark in the file): one
// member a line in the order above, the service address in its normalised form.
std::wstring WriteSettingsText(const Settings& settings);

// Takes every member of `text` that has the right kind into `settings`; the rest keeps its value,
// but for the profile list, which an object without one empties. Then fills an empty profileName
// from deviceName and an empty engineerId with a new one. Throws std::runtime_error ("Invalid
// JSON.", "Invalid JSON string.") before anything changed.
void ReadSettingsText(std::wstring_view text, Settings& settings);

// The same for a text that has been read.
void ReadSettingsDocument(const JsonValue& document, Settings& settings);

}  // namespace settings
