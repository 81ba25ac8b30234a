#include "shell/client.h"

#include <gtest/gtest.h>

#include "settings/server_address.h"

namespace shell {
namespace {

TEST(InitialSettings, AreEmptyButForFourTexts) {
  const settings::Settings settings = InitialSettings();
  EXPECT_EQ(settings.serverUrl, settings::DefaultServerUrl());
  EXPECT_EQ(settings.sharedNetworksText, L"192.168.1.0/24");
  EXPECT_EQ(settings.targetNetwork, L"192.168.1.0/24");
  EXPECT_EQ(settings.latencyText, L"未测试");
  for (const std::wstring* text :
       {&settings.deviceNumber, &settings.deviceSecret, &settings.deviceName, &settings.profileName,
        &settings.networkInterfaceName, &settings.engineerId, &settings.rustDeskPath,
        &settings.rustDeskAccessPassword, &settings.rustDeskId, &settings.connectionId,
        &settings.assignedAddress, &settings.routesText, &settings.accessRoutesText,
        &settings.routeMappingsText, &settings.testIp, &settings.heartbeatMessage}) {
    EXPECT_EQ(*text, L"");
  }
  EXPECT_FALSE(settings.rustDeskServiceRunning || settings.heartbeatAccepted ||
               settings.autoStartEnabled || settings.discoveryModeEnabled);
  EXPECT_TRUE(settings.siteProfiles.empty());
}

}  // namespace
}  // namespace shell
