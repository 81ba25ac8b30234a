#include "page/messages.h"

#include <gtest/gtest.h>

#include "settings/json.h"
#include "settings/settings.h"

namespace page {
namespace {

using settings::Settings;

Settings ConnectedSettings() {
  Settings settings;
  settings.deviceNumber = L"D\"1";
  settings.assignedAddress = L"10.8.0.2";
  settings.routesText = L"192.168.1.0/24\r\n10.2.0.0/16";
  settings.targetNetwork = L"ALL";
  return settings;
}

TEST(BuildStateMessage, OfAFreshProgramIsExactlyThisText) {
  EXPECT_EQ(
      BuildStateMessage(Settings(), {}, L"就绪。"),
      L"{\"t\":\"state\",\"role\":\"client\",\"side\":{\"logo\":\"Velmarine.Client\","
      L"\"sub\":\"工程师远程调试\",\"on\":false,\"err\":false,\"state\":\"未连接\","
      L"\"detail\":\"粘贴现场端密钥即可连接\",\"foot\":\"\",\"cards\":["
      L"{\"k\":\"设备\",\"v\":\"等待密钥\",\"cls\":\"off\"},"
      L"{\"k\":\"组网 IP\",\"v\":\"未连接\",\"cls\":\"off\"},"
      L"{\"k\":\"运行库\",\"v\":\"软件隧道已就绪\",\"cls\":\"\"},"
      L"{\"k\":\"NAT访问IP\",\"v\":\"未连接\",\"cls\":\"off\"},"
      L"{\"k\":\"PLC发现模式\",\"v\":\"已关闭\",\"cls\":\"off\"}]},\"statusline\":\"就绪。\"}");
}

TEST(BuildStateMessage, OfAConnectionIsExactlyThisText) {
  EXPECT_EQ(
      BuildStateMessage(ConnectedSettings(), {true, true}, L"a\tb\\"),
      L"{\"t\":\"state\",\"role\":\"client\",\"side\":{\"logo\":\"Velmarine.Client\","
      L"\"sub\":\"工程师远程调试\",\"on\":true,\"err\":false,\"state\":\"在线\","
      L"\"detail\":\"访问网段 192.168.1.0/24\\r\\n10.2.0.0/16\",\"foot\":\"\",\"cards\":["
      L"{\"k\":\"设备\",\"v\":\"D\\\"1\",\"cls\":\"\"},"
      L"{\"k\":\"组网 IP\",\"v\":\"10.8.0.2\",\"cls\":\"ok\"},"
      L"{\"k\":\"运行库\",\"v\":\"软件隧道已就绪\",\"cls\":\"\"},"
      L"{\"k\":\"NAT访问IP\",\"v\":\"192.168.1.0/24\\r\\n10.2.0.0/16\",\"cls\":\"\"},"
      L"{\"k\":\"PLC发现模式\",\"v\":\"已关闭\",\"cls\":\"off\"}]},\"statusline\":\"a\\tb\\\\\"}");
}

TEST(BuildStateMessage, ReportsAReconnectingTunnel) {
  const std::wstring message = BuildStateMessage(ConnectedSettings(), {true, false}, L"");
  EXPECT_NE(message.find(L"\"on\":false,\"err\":false,\"state\":\"未连接\","
                         L"\"detail\":\"软件隧道正在自动重连\""),
            std::wstring::npos);
}

TEST(BuildApplyMessage, OfAFreshProgramIsExactlyThisText) {
  Settings settings;
  settings.targetNetwork = L"192.168.1.0/24";
  EXPECT_EQ(BuildApplyMessage(settings),
            L"{\"t\":\"apply\",\"role\":\"client\",\"fields\":{\"secret\":\"\",\"testip\":\"\","
            L"\"profileName\":\"\",\"targets\":[\"自动\",\"192.168.1.0/24\"],"
            L"\"target\":\"192.168.1.0/24\",\"discovery\":false,\"profiles\":[],"
            L"\"profileSel\":\"\"}}");
}

TEST(BuildApplyMessage, CarriesEveryFieldAndTheProfilesInTheirOrder) {
  Settings settings = ConnectedSettings();
  settings.deviceSecret = L"se\"cret";
  settings.testIp = L"192.168.1.5";
  settings.profileName = L"泵站";
  settings.discoveryModeEnabled = true;
  settings.siteProfiles.resize(2);
  settings.siteProfiles[0].name = L"泵站";
  settings.siteProfiles[1].name = L"A\\B";
  EXPECT_EQ(BuildApplyMessage(settings),
            L"{\"t\":\"apply\",\"role\":\"client\",\"fields\":{\"secret\":\"se\\\"cret\","
            L"\"testip\":\"192.168.1.5\",\"profileName\":\"泵站\","
            L"\"targets\":[\"自动\",\"192.168.1.0/24\",\"10.2.0.0/16\"],\"target\":\"自动\","
            L"\"discovery\":true,\"profiles\":[\"泵站\",\"A\\\\B\"],\"profileSel\":\"泵站\"}}");
}

struct LogRow {
  const char* name;
  TimeOfDay time;
  std::wstring text;
  std::wstring wanted;
};

TEST(BuildLogMessage, CarriesTimeTextAndColour) {
  const LogRow rows[] = {
      {"plain",
       {9, 41, 2},
       L"客户端启动中",
       L"{\"t\":\"log\",\"ts\":\"09:41:02\",\"msg\":\"客户端启动中\",\"cls\":\"\"}"},
      {"error",
       {23, 59, 59},
       L"Error: x",
       L"{\"t\":\"log\",\"ts\":\"23:59:59\",\"msg\":\"Error: x\",\"cls\":\"er\"}"},
      {"warning",
       {0, 0, 0},
       L"警告",
       L"{\"t\":\"log\",\"ts\":\"00:00:00\",\"msg\":\"警告\",\"cls\":\"wn\"}"},
      {"success",
       {12, 5, 30},
       L"成功",
       L"{\"t\":\"log\",\"ts\":\"12:05:30\",\"msg\":\"成功\",\"cls\":\"ok\"}"},
      {"the five escapes",
       {1, 2, 3},
       L"\t\n\r\"\\",
       L"{\"t\":\"log\",\"ts\":\"01:02:03\",\"msg\":\"\\t\\n\\r\\\"\\\\\",\"cls\":\"\"}"},
      {"a control character as it is",
       {1, 2, 3},
       L"a\x01z",
       L"{\"t\":\"log\",\"ts\":\"01:02:03\",\"msg\":\"a\x01z\",\"cls\":\"\"}"},
      {"a surrogate pair",
       {1, 2, 3},
       L"\xD83D\xDE00",
       L"{\"t\":\"log\",\"ts\":\"01:02:03\",\"msg\":\"\xD83D\xDE00\",\"cls\":\"\"}"},
  };
  for (const LogRow& row : rows) {
    EXPECT_EQ(BuildLogMessage(row.time, row.text), row.wanted) << row.name;
  }
}

struct ReplacedRow {
  const char* name;
  std::wstring json;
  std::wstring wanted;
};

TEST(BuildLogsMessage, HoldsEveryLineInOrderWithItsTimeAndClass) {
  EXPECT_EQ(BuildLogsMessage({{{9, 5, 59}, L"已连接"}, {{23, 0, 1}, L"甲\r\n\"乙\""}}),
            L"{\"t\":\"logs\",\"lines\":[[\"09:05:59\",\"已连接\",\"ok\"],"
            L"[\"23:00:01\",\"甲\\r\\n\\\"乙\\\"\",\"\"]]}");
  EXPECT_EQ(BuildLogsMessage({}), L"{\"t\":\"logs\",\"lines\":[]}");
}

TEST(BuildFormMessage, HoldsOnlyTheChangedFields) {
  const auto build = [](const wchar_t* json) {
    return BuildFormMessage(settings::ReadJsonDocument(json));
  };
  EXPECT_EQ(
      build(L"{\"discovery\":true,\"profileName\":\"站\",\"secret\":\" k\\\"\",\"testip\":\"\","
            L"\"target\":\"自动\"}"),
      L"{\"t\":\"form\",\"fields\":{\"secret\":\" k\\\"\",\"target\":\"自动\",\"testip\":\"\","
      L"\"profileName\":\"站\",\"discovery\":true}}");
  EXPECT_EQ(build(L"{\"secret\":5,\"discovery\":\"yes\",\"other\":\"x\",\"testip\":\"1.2.3.4\"}"),
            L"{\"t\":\"form\",\"fields\":{\"testip\":\"1.2.3.4\"}}");
  EXPECT_EQ(BuildFormMessage({}), L"{\"t\":\"form\",\"fields\":{}}");
}

TEST(WithoutControlCharacters, ReplacesOnlyWhatThePageRefuses) {
  const ReplacedRow rows[] = {
      {"nothing", L"", L""},
      {"what JSON may hold", L"{\"a\":\"\\t\\n \x7f\x85\xFFFF中\"}",
       L"{\"a\":\"\\t\\n \x7f\x85\xFFFF中\"}"},
      {"the first and the last control character", L"\"\x01z\x1f\"", L"\"\xFFFDz\xFFFD\""},
      {"U+0000, and what stands behind it", std::wstring(L"\"a\0b\"", 5),
       L"\"a\xFFFD"
       L"b\""},
      {"a raw tab and line feed", L"\t\n", L"\xFFFD\xFFFD"},
      {"a surrogate pair", L"\xD83D\xDE00", L"\xD83D\xDE00"},
      {"the first half of a pair",
       L"a\xD83D"
       L"b",
       L"a\xFFFD"
       L"b"},
      {"the second half", L"\xDE00", L"\xFFFD"},
      {"halves in the wrong order", L"\xDE00\xD83D", L"\xFFFD\xFFFD"},
      {"half a pair before a whole one", L"\xD83D\xD83D\xDE00", L"\xFFFD\xD83D\xDE00"},
  };
  for (const ReplacedRow& row : rows) {
    EXPECT_EQ(WithoutControlCharacters(row.json), row.wanted) << row.name;
  }
}

TEST(WithoutControlCharacters, KeepsTheLengthOfEverySingleUnit) {
  for (wchar_t unit = 0; unit < 0xFFFF; ++unit) {
    const bool refused = unit < 0x20 || (unit >= 0xD800 && unit <= 0xDFFF);
    ASSERT_EQ(WithoutControlCharacters(std::wstring(1, unit)),
              std::wstring(1, refused ? L'\xFFFD' : unit))
        << int{unit};
  }
}

TEST(Messages, CanBeReadByOurOwnReader) {
  const std::wstring messages[] = {BuildStateMessage(ConnectedSettings(), {true, true}, L"x\"\\"),
                                   BuildApplyMessage(ConnectedSettings()),
                                   BuildLogMessage({1, 2, 3}, L"\"\\\r\n\t")};
  for (const std::wstring& message : messages) {
    std::size_t position = 0;
    const settings::JsonValue value = settings::ReadJsonValue(message, position);
    EXPECT_NE(value.AsObject(), nullptr);
    EXPECT_EQ(position, message.size());
  }
}

}  // namespace
}  // namespace page
