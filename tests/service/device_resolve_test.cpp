#include "service/service_jobs.h"

#include <gtest/gtest.h>

#include "service/fake_world.h"

namespace service {
namespace {

class DeviceResolve : public testing::Test {
 protected:
  DeviceResolve() {
    settings_.serverUrl = L"http://192.0.2.10:31080";
    settings_.deviceSecret = L"key";
    settings_.deviceNumber = L"old number";
    settings_.deviceName = L"old name";
    settings_.profileName = L"old profile";
    settings_.targetNetwork = L"10.9.0.0/16";
    settings_.routesText = L"10.9.0.0/16";
    settings_.sharedNetworksText = L"10.9.0.0/16";
  }

  bool Resolve() { return ResolveDevice(settings_, world_.Requester(), text_); }
  // With the service returning `data` for the device.
  bool ResolveTo(const std::wstring& data) {
    world_.Answer(L"{\"success\":true,\"data\":" + data + L"}");
    return Resolve();
  }

  settings::Settings settings_;
  FakeWorld world_;
  std::wstring text_ = L"(unset)";
};

TEST_F(DeviceResolve, AsksWithTheSecretAlone) {
  ResolveTo(L"{}");
  ASSERT_EQ(world_.requests.size(), 1u);
  EXPECT_EQ(world_.requests[0].method, L"POST");
  EXPECT_EQ(world_.requests[0].url, L"http://192.0.2.10:31080/api/devices/resolve");
  EXPECT_EQ(world_.requests[0].body, L"{\"deviceSecret\":\"key\"}");
}

TEST_F(DeviceResolve, AsksAtTheNormalisedAddress) {
  settings_.serverUrl = L" 10.1.2.3:8080/ ";
  ResolveTo(L"{}");
  EXPECT_EQ(world_.requests.at(0).url, L"http://10.1.2.3:8080/api/devices/resolve");
}

TEST_F(DeviceResolve, EscapesTheSecret) {
  const struct {
    const wchar_t* secret;
    const wchar_t* written;
  } rows[] = {
      {L"", L""},
      {L"a\"b", L"a\\\"b"},
      {L"a\\b", L"a\\\\b"},
      {L"\",\"x\":\"", L"\\\",\\\"x\\\":\\\""},
      {L"\t\r\n", L"\\t\\r\\n"},
      {L"\x0001/密钥\xD83D\xDE00", L"\x0001/密钥\xD83D\xDE00"},
  };
  for (const auto& row : rows) {
    settings_.deviceSecret = row.secret;
    ResolveTo(L"{}");
    const std::wstring& body = world_.requests.back().body;
    EXPECT_EQ(body, L"{\"deviceSecret\":\"" + std::wstring(row.written) + L"\"}");
    EXPECT_EQ(settings::JsonStringOrEmpty(settings::ReadJsonDocument(body), L"deviceSecret"),
              row.secret);
  }
}

TEST_F(DeviceResolve, StoresTheAnswer) {
  EXPECT_TRUE(
      ResolveTo(L"{\"deviceNumber\":\"D-100\",\"deviceName\":\"Pump 3\","
                L"\"sharedNetworks\":[\"192.168.10.0/24\",\"10.1.0.0/16\"]}"));
  EXPECT_EQ(text_, L"已获取现场端 D-100 的共享网段。");
  EXPECT_EQ(settings_.deviceNumber, L"D-100");
  EXPECT_EQ(settings_.deviceName, L"Pump 3");
  EXPECT_EQ(settings_.targetNetwork, L"192.168.10.0/24");
  EXPECT_EQ(settings_.routesText, L"192.168.10.0/24\r\n10.1.0.0/16");
  EXPECT_EQ(settings_.profileName, L"old profile");
  EXPECT_EQ(settings_.sharedNetworksText, L"10.9.0.0/16");
}

TEST_F(DeviceResolve, KeepsTargetAndRoutesWithoutANetwork) {
  for (const wchar_t* networks : {L"[]", L"[7,null,{},[\"10.1.0.0/16\"]]", L"\"10.1.0.0/16\"",
                                  L"{\"0\":\"10.1.0.0/16\"}", L"null"}) {
    EXPECT_TRUE(ResolveTo(L"{\"sharedNetworks\":" + std::wstring(networks) + L"}"));
    EXPECT_EQ(settings_.targetNetwork, L"10.9.0.0/16") << networks;
    EXPECT_EQ(settings_.routesText, L"10.9.0.0/16") << networks;
  }
  EXPECT_TRUE(ResolveTo(L"{}"));
  EXPECT_EQ(settings_.targetNetwork, L"10.9.0.0/16");
}

TEST_F(DeviceResolve, SkipsNetworksThatAreNotStrings) {
  ResolveTo(L"{\"sharedNetworks\":[7,\"10.1.0.0/16\",null,\"10.2.0.0/16\",[\"x\"]]}");
  EXPECT_EQ(settings_.targetNetwork, L"10.1.0.0/16");
  EXPECT_EQ(settings_.routesText, L"10.1.0.0/16\r\n10.2.0.0/16");
}

TEST_F(DeviceResolve, KeepsNumberAndNameMissingFromTheAnswer) {
  for (const wchar_t* data : {L"{}", L"{\"deviceNumber\":7,\"deviceName\":null}", L"null", L"[]",
                              L"\"deviceNumber\"", L"{\"DeviceNumber\":\"x\"}"}) {
    EXPECT_TRUE(ResolveTo(data)) << data;
    EXPECT_EQ(settings_.deviceNumber, L"old number") << data;
    EXPECT_EQ(settings_.deviceName, L"old name") << data;
    EXPECT_EQ(text_, L"已获取现场端 old number 的共享网段。") << data;
  }
}

TEST_F(DeviceResolve, StoresAnEmptyNumberAndAnEmptyName) {
  EXPECT_TRUE(ResolveTo(L"{\"deviceNumber\":\"\",\"deviceName\":\"\"}"));
  EXPECT_EQ(settings_.deviceNumber, L"");
  EXPECT_EQ(settings_.deviceName, L"");
  EXPECT_EQ(text_, L"已获取现场端  的共享网段。");
}

struct NameRow {
  const char* name;
  const wchar_t* profile;
  const wchar_t* device;
  const wchar_t* data;
  const wchar_t* becomes;
};

TEST_F(DeviceResolve, NamesAnUnnamedProfile) {
  const NameRow rows[] = {
      {"the answer's name", L"", L"old", L"{\"deviceName\":\"Pump\",\"deviceNumber\":\"D\"}",
       L"Pump"},
      {"the settings' name", L"", L"old", L"{\"deviceNumber\":\"D\"}", L"old"},
      {"the answer's number", L"", L"", L"{\"deviceNumber\":\"D\"}", L"D"},
      {"an empty name in the answer", L"", L"old", L"{\"deviceName\":\"\",\"deviceNumber\":\"D\"}",
       L"D"},
      {"the settings' number", L"", L"", L"{}", L"old number"},
      {"a name that is there", L"mine", L"", L"{\"deviceName\":\"Pump\"}", L"mine"},
  };
  for (const NameRow& row : rows) {
    settings_.deviceNumber = L"old number";
    settings_.profileName = row.profile;
    settings_.deviceName = row.device;
    ResolveTo(row.data);
    EXPECT_EQ(settings_.profileName, row.becomes) << row.name;
  }
}

TEST_F(DeviceResolve, ChangesNothingWhenItIsRefused) {
  const struct {
    const wchar_t* reply;
    const wchar_t* text;
  } rows[] = {
      {L"{\"success\":false,\"code\":\"NOT_FOUND\",\"message\":\"未知设备\",\"data\":"
       L"{\"deviceNumber\":\"D\",\"deviceName\":\"N\",\"sharedNetworks\":[\"10.1.0.0/16\"]}}",
       L"Resolve failed: 未知设备"},
      {L"{\"success\":false}", L"Resolve failed: "},
      {L"{\"success\":\"true\",\"message\":\"no\"}", L"Resolve failed: no"},
      {L"{}", L"Resolve failed: "},
  };
  const std::wstring before = WriteSettingsText(settings_);
  for (const auto& row : rows) {
    world_.Answer(row.reply, 404);
    EXPECT_FALSE(Resolve()) << row.reply;
    EXPECT_EQ(text_, row.text);
    EXPECT_EQ(WriteSettingsText(settings_), before) << row.reply;
  }
}

TEST_F(DeviceResolve, ReadsTheAnswerOfAnyHttpStatus) {
  world_.Answer(L"{\"success\":true,\"data\":{\"deviceNumber\":\"D\"}}", 500);
  EXPECT_TRUE(Resolve());
  EXPECT_EQ(settings_.deviceNumber, L"D");
}

TEST_F(DeviceResolve, PropagatesFailuresAndChangesNothing) {
  const std::wstring before = WriteSettingsText(settings_);
  const auto failure = [this]() -> std::string {
    try {
      Resolve();
    } catch (const std::runtime_error& error) {
      return error.what();
    }
    return "(none)";
  };
  world_.FailRequest("WinHttpSendRequest failed.");
  EXPECT_EQ(failure(), "WinHttpSendRequest failed.");
  world_.Answer(L"{\"success\":true,");
  EXPECT_EQ(failure(), "Invalid JSON.");
  world_.Answer(L"{\"success\":true,\"data\":{\"deviceNumber\":\"D");
  EXPECT_EQ(failure(), "Invalid JSON string.");
  EXPECT_EQ(WriteSettingsText(settings_), before);
  EXPECT_EQ(text_, L"(unset)");
}

}  // namespace
}  // namespace service
