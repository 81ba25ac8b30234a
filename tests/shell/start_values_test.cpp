#include <gtest/gtest.h>

#include "settings/server_address.h"
#include "shell/initial_settings.h"
#include "shell/tab_strip.h"

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

struct TabRow {
  int x;
  int y;
  std::optional<int> wanted;
};

TEST(FindTabAt, KnowsTheTwoTabs) {
  const TabRow rows[] = {
      {360, 64, 0},  {430, 106, 0}, {400, 85, 0},  {448, 64, 1},  {520, 106, 1}, {500, 85, 1},
      {359, 85, {}}, {431, 85, {}}, {447, 85, {}}, {521, 85, {}}, {400, 63, {}}, {500, 107, {}},
  };
  for (const TabRow& row : rows) {
    EXPECT_EQ(FindTabAt(row.x, row.y), row.wanted) << row.x << "," << row.y;
  }
}

}  // namespace
}  // namespace shell
