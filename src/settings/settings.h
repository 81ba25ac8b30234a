#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "settings/json.h"

// The record of all that the client remembers between runs, its text form, and how two versions of
// it are merged. Pure; any thread.
namespace settings {

// The target network that stands for every shared network.
inline constexpr std::wstring_view kAllNetworks = L"ALL";

// The access data of one site, under a name.
struct SiteProfile {
  std::wstring name;
  std::wstring serverUrl;
  std::wstring deviceNumber;
  std::wstring deviceSecret;
  std::wstring targetNetwork;
  std::vector<std::wstring> sharedNetworks;

  friend bool operator==(const SiteProfile&, const SiteProfile&) = default;
};

// A connection as the service granted it: all that is required to end it and to undo its effects,
// whatever the form contains by then.
struct GrantedConnection {
  std::wstring connectionId;
  std::wstring serverUrl;            // of the service that granted it
  std::wstring engineerId;           // of the engineer who requested it
  std::vector<std::wstring> routes;  // as granted, on the proxy list

  friend bool operator==(const GrantedConnection&, const GrantedConnection&) = default;
};

// The record, in the order of its file. SettingsStore owns the current one; jobs work on copies. A
// new record has the default service address, empty texts and false switches.
struct Settings {
  std::wstring serverUrl;
  std::wstring deviceNumber;
  std::wstring deviceSecret;
  std::wstring deviceName;
  std::wstring profileName;
  std::wstring networkInterfaceName;
  std::wstring sharedNetworksText;
  std::wstring targetNetwork;  // a network, or kAllNetworks
  std::wstring engineerId;     // "ENG-" and eight digits
  std::wstring rustDeskPath;
  std::wstring rustDeskAccessPassword;
  std::wstring rustDeskId;
  bool rustDeskServiceRunning = false;
  std::wstring connectionId;       // empty without a connection
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

  GrantedConnection granted;  // in its own file; read it through ConnectionInForce()

  Settings();
};

// The connection in `settings`. Without the grant that belongs to it (a file of an earlier version)
// its service, engineer and routes are taken from the other fields.
GrantedConnection ConnectionInForce(const Settings& settings);

// "ENG-" and a number drawn uniformly from 10000000 to 99999999. The first form seeds a generator
// from the system's random device; the second takes uniform 32-bit numbers from `random`.
std::wstring MakeEngineerId();
std::wstring MakeEngineerId(const std::function<std::uint32_t()>& random);

// Merges a record that the window and a job changed at the same time. `base` is the record when the
// job started, `window` the window's current one, `job` the job's copy. A field that only one of
// them changed takes that value. Of a field that both changed:
//
// - form, profiles and discovery mode are the window's: the engineer's last action counts;
// - connection, identity, remote desktop, latency and heartbeat are the job's;
// - number, name and networks of the device are the job's, unless the form has another access key
//   by now: then the job's values describe the device of the earlier key.
Settings MergeSettings(const Settings& base, const Settings& window, const Settings& job);

// ---- text forms

// The settings file's text (UTF-8 without mark on the disk): one member a line in the order above,
// the service address normalised.
std::wstring WriteSettingsText(const Settings& settings);

// Takes every member of the right kind from `text`. Other fields keep their values, except that an
// object without a profile list empties the list. Then fills an empty profileName from deviceName
// and an empty engineerId with a new one. Throws std::runtime_error ("Invalid JSON.", "Invalid JSON
// string.") before changing anything.
void ReadSettingsText(std::wstring_view text, Settings& settings);
void ReadSettingsDocument(const JsonValue& document, Settings& settings);

// The "siteProfiles" of a settings document, in their order; skips profiles without a name and
// members of other kinds.
std::vector<SiteProfile> ReadSiteProfiles(const JsonValue& document);

// The settings file's array of profiles, in one line.
std::wstring WriteSiteProfiles(const std::vector<SiteProfile>& profiles);

// The text of the connection's own file: one JSON object in one line.
std::wstring WriteGrantedConnection(const GrantedConnection& granted);

// Members of other kinds read as empty.
GrantedConnection ReadGrantedConnection(const JsonValue& document);

}  // namespace settings
