#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

#include "settings/server_address.h"
#include "settings/settings.h"

namespace settings {
namespace {

Settings Read(const std::wstring& text) {
  Settings settings;
  ReadSettingsText(text, settings);
  return settings;
}

constexpr const wchar_t* kStrings[] = {L"serverUrl",
                                       L"deviceNumber",
                                       L"deviceSecret",
                                       L"deviceName",
                                       L"profileName",
                                       L"networkInterfaceName",
                                       L"sharedNetworksText",
                                       L"targetNetwork",
                                       L"engineerId",
                                       L"rustDeskPath",
                                       L"rustDeskAccessPassword",
                                       L"rustDeskId",
                                       L"connectionId",
                                       L"assignedAddress",
                                       L"routesText",
                                       L"accessRoutesText",
                                       L"routeMappingsText",
                                       L"testIp",
                                       L"latencyText",
                                       L"heartbeatMessage"};
constexpr const wchar_t* kSwitches[] = {L"rustDeskServiceRunning", L"heartbeatAccepted",
                                        L"autoStartEnabled", L"discoveryModeEnabled"};

TEST(SettingsText, WritesTheFileLineByLine) {
  Settings settings;
  settings.serverUrl = L"10.0.0.5:31080/";
  settings.deviceSecret = L"a\"b\\c\td\r\ne\x0001\x5DE5";
  settings.targetNetwork = L"ALL";
  settings.engineerId = L"ENG-12345678";
  settings.rustDeskServiceRunning = true;
  settings.discoveryModeEnabled = true;
  settings.siteProfiles.push_back({L"P", L"u", L"n", L"s", L"", {L"x"}});
  EXPECT_EQ(WriteSettingsText(settings),
            L"{\n"
            L"  \"serverUrl\": \"http://10.0.0.5:31080\",\n"
            L"  \"deviceNumber\": \"\",\n"
            L"  \"deviceSecret\": \"a\\\"b\\\\c\\td\\r\\ne\x0001\x5DE5\",\n"
            L"  \"deviceName\": \"\",\n"
            L"  \"profileName\": \"\",\n"
            L"  \"networkInterfaceName\": \"\",\n"
            L"  \"sharedNetworksText\": \"\",\n"
            L"  \"targetNetwork\": \"ALL\",\n"
            L"  \"engineerId\": \"ENG-12345678\",\n"
            L"  \"rustDeskPath\": \"\",\n"
            L"  \"rustDeskAccessPassword\": \"\",\n"
            L"  \"rustDeskId\": \"\",\n"
            L"  \"rustDeskServiceRunning\": true,\n"
            L"  \"connectionId\": \"\",\n"
            L"  \"assignedAddress\": \"\",\n"
            L"  \"routesText\": \"\",\n"
            L"  \"accessRoutesText\": \"\",\n"
            L"  \"routeMappingsText\": \"\",\n"
            L"  \"testIp\": \"\",\n"
            L"  \"latencyText\": \"\",\n"
            L"  \"heartbeatAccepted\": false,\n"
            L"  \"heartbeatMessage\": \"\",\n"
            L"  \"autoStartEnabled\": false,\n"
            L"  \"discoveryModeEnabled\": true,\n"
            L"  \"siteProfiles\": [{\"name\":\"P\",\"serverUrl\":\"u\",\"deviceNumber\":\"n\","
            L"\"deviceSecret\":\"s\",\"targetNetwork\":\"ALL\",\"sharedNetworks\":[\"x\"]}]\n"
            L"}\n");
}

TEST(SettingsText, StartsFromDefaults) {
  const Settings fresh;
  EXPECT_EQ(fresh.serverUrl, DefaultServerUrl());
  EXPECT_EQ(fresh.engineerId, L"");
  EXPECT_FALSE(fresh.rustDeskServiceRunning || fresh.heartbeatAccepted || fresh.autoStartEnabled ||
               fresh.discoveryModeEnabled);
  EXPECT_TRUE(fresh.siteProfiles.empty());
}

// Each key is read into exactly the field that is written under it.
TEST(SettingsText, ReadsEachKeyAlone) {
  for (const wchar_t* key : kStrings) {
    const std::wstring line = L"  \"" + std::wstring(key) + L"\": \"http://text\",\n";
    const Settings settings = Read(L"{\"" + std::wstring(key) + L"\":\"http://text\"}");
    EXPECT_NE(WriteSettingsText(settings).find(line), std::wstring::npos) << key;
  }
  for (const wchar_t* key : kSwitches) {
    const std::wstring line = L"  \"" + std::wstring(key) + L"\": true,\n";
    const Settings settings = Read(L"{\"" + std::wstring(key) + L"\":true}");
    EXPECT_NE(WriteSettingsText(settings).find(line), std::wstring::npos) << key;
  }
}

TEST(SettingsText, IgnoresEachValueOfTheWrongType) {
  for (const wchar_t* key : kStrings) {
    for (const wchar_t* value : {L"1", L"true", L"null", L"[]", L"{}"}) {
      Settings settings = Read(L"{\"deviceName\":\"n\",\"engineerId\":\"E\"}");
      const std::wstring before = WriteSettingsText(settings);
      ReadSettingsText(L"{\"" + std::wstring(key) + L"\":" + value + L"}", settings);
      EXPECT_EQ(WriteSettingsText(settings), before) << key << L" " << value;
    }
  }
  for (const wchar_t* key : kSwitches) {
    for (const wchar_t* value : {L"1", L"\"true\"", L"null", L"[]", L"{}"}) {
      const Settings settings = Read(L"{\"" + std::wstring(key) + L"\":" + value + L"}");
      EXPECT_EQ(WriteSettingsText(settings).find(L": true"), std::wstring::npos) << key;
    }
  }
}

TEST(SettingsText, NormalisesTheServiceAddress) {
  EXPECT_EQ(Read(L"{\"serverUrl\":\"10.0.0.5:31080/\"}").serverUrl, L"http://10.0.0.5:31080");
  EXPECT_EQ(Read(L"{\"serverUrl\":\"https:\\\\\\\\host\\\\\"}").serverUrl, L"https://host");
  EXPECT_EQ(Read(L"{\"serverUrl\":\"\"}").serverUrl, DefaultServerUrl());
  EXPECT_EQ(Read(L"{}").serverUrl, DefaultServerUrl());
}

TEST(SettingsText, NamesTheProfileAfterTheDeviceWhenItHasNoName) {
  EXPECT_EQ(Read(L"{\"deviceName\":\"Pump station 3\"}").profileName, L"Pump station 3");
  EXPECT_EQ(Read(L"{\"deviceName\":\"d\",\"profileName\":\"p\"}").profileName, L"p");
}

TEST(SettingsText, MakesAnIdentityOnlyWhenTheFileHasNone) {
  EXPECT_EQ(Read(L"{\"engineerId\":\"ENG-1\"}").engineerId, L"ENG-1");
  EXPECT_EQ(Read(L"{\"engineerId\":\"\"}").engineerId.size(), 12u);
  EXPECT_EQ(Read(L"{}").engineerId.size(), 12u);
}

TEST(SettingsText, ReplacesTheWholeProfileList) {
  Settings settings;
  settings.siteProfiles.push_back({L"old", L"", L"", L"", L"", {}});
  ReadSettingsText(L"{\"siteProfiles\":[{\"name\":\"new\"}]}", settings);
  ASSERT_EQ(settings.siteProfiles.size(), 1u);
  EXPECT_EQ(settings.siteProfiles[0].name, L"new");
  ReadSettingsText(L"{}", settings);
  EXPECT_TRUE(settings.siteProfiles.empty());
}

TEST(SettingsText, IgnoresDocumentsOtherThanObjects) {
  for (const wchar_t* text : {L"[]", L"5", L"null", L"\"serverUrl\"", L"true", L"garbage", L" "}) {
    Settings settings;
    settings.deviceName = L"d";
    settings.siteProfiles.push_back({L"kept", L"", L"", L"", L"", {}});
    ReadSettingsText(text, settings);
    EXPECT_EQ(settings.deviceName, L"d") << text;
    EXPECT_EQ(settings.profileName, L"d") << text;
    EXPECT_EQ(settings.engineerId.size(), 12u) << text;
    EXPECT_EQ(settings.siteProfiles.size(), 1u) << text;
  }
}

TEST(SettingsText, ReadsAnyLayoutAndIgnoresUnknownKeysAndTrailingText) {
  const Settings settings = Read(
      L" \r\n{\"unknown\":{\"deviceName\":\"no\"},\"testIp\" :\t\"10.1.1.1\",\"deviceName\":\"d\"} "
      L"x");
  EXPECT_EQ(settings.testIp, L"10.1.1.1");
  EXPECT_EQ(settings.deviceName, L"d");
}

TEST(SettingsText, ChangesNothingForInvalidJson) {
  for (const wchar_t* text : {L"{\"deviceName\":\"new\"", L"{\"deviceName\":\"new\",}", L"{\"a"}) {
    Settings settings;
    settings.deviceName = L"old";
    EXPECT_THROW(ReadSettingsText(text, settings), std::runtime_error) << text;
    EXPECT_EQ(settings.deviceName, L"old");
    EXPECT_EQ(settings.engineerId, L"");
  }
}

}  // namespace
}  // namespace settings
