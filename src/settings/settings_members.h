#pragma once

#include <string>
#include <variant>

#include "settings/settings.h"

// The members of the settings file one by one: how they are called there, where they live in the
// record, and whose word counts when window and job have both changed one. For the sources of this
// folder.
namespace settings {

enum class Winner {
  Window,  // the form and what belongs to it: what the engineer did last
  Job,     // what a job learns: connection, identity, remote desktop, latency, heartbeat
  Site,    // describes the device of the access key: the job's word as long as the form still
           // holds the key that the job began with
};

struct SettingsMember {
  const wchar_t* key;
  std::variant<std::wstring Settings::*, bool Settings::*> field;
  Winner winner;
};

// In the file's order; siteProfiles follows them.
inline constexpr SettingsMember kSettingsMembers[] = {
    {L"serverUrl", &Settings::serverUrl, Winner::Window},
    {L"deviceNumber", &Settings::deviceNumber, Winner::Site},
    {L"deviceSecret", &Settings::deviceSecret, Winner::Window},
    {L"deviceName", &Settings::deviceName, Winner::Site},
    {L"profileName", &Settings::profileName, Winner::Window},
    {L"networkInterfaceName", &Settings::networkInterfaceName, Winner::Window},
    {L"sharedNetworksText", &Settings::sharedNetworksText, Winner::Job},
    {L"targetNetwork", &Settings::targetNetwork, Winner::Window},
    {L"engineerId", &Settings::engineerId, Winner::Job},
    {L"rustDeskPath", &Settings::rustDeskPath, Winner::Job},
    {L"rustDeskAccessPassword", &Settings::rustDeskAccessPassword, Winner::Job},
    {L"rustDeskId", &Settings::rustDeskId, Winner::Job},
    {L"rustDeskServiceRunning", &Settings::rustDeskServiceRunning, Winner::Job},
    {L"connectionId", &Settings::connectionId, Winner::Job},
    {L"assignedAddress", &Settings::assignedAddress, Winner::Job},
    {L"routesText", &Settings::routesText, Winner::Site},
    {L"accessRoutesText", &Settings::accessRoutesText, Winner::Job},
    {L"routeMappingsText", &Settings::routeMappingsText, Winner::Job},
    {L"testIp", &Settings::testIp, Winner::Window},
    {L"latencyText", &Settings::latencyText, Winner::Job},
    {L"heartbeatAccepted", &Settings::heartbeatAccepted, Winner::Job},
    {L"heartbeatMessage", &Settings::heartbeatMessage, Winner::Job},
    {L"autoStartEnabled", &Settings::autoStartEnabled, Winner::Window},
    {L"discoveryModeEnabled", &Settings::discoveryModeEnabled, Winner::Window},
};

}  // namespace settings
