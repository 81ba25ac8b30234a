#include "page/status_presentation.h"

#include <gtest/gtest.h>

#include "settings/settings.h"

namespace page {
namespace {

using settings::Settings;

struct ClassRow {
  const char* name;
  const wchar_t* text;
  StatusClass wanted;
};

TEST(ClassifyStatus, ChoosesTheColourByTheText) {
  const ClassRow rows[] = {
      {"English error", L"Error: WinDivertSend failed.", StatusClass::Error},
      {"error in lower case", L"error: nothing", StatusClass::Plain},
      {"error in lower case with a word", L"error 成功", StatusClass::Ok},
      {"error not at the beginning", L"An Error", StatusClass::Plain},
      {"Error before any word", L"Error 成功 重试", StatusClass::Error},
      {"failure", L"界面加载失败。", StatusClass::Error},
      {"mistake", L"密码错误", StatusClass::Error},
      {"exception", L"自动更新检查异常：x", StatusClass::Error},
      {"not accepted", L"中心服务未接受心跳", StatusClass::Error},
      {"warning", L"警告", StatusClass::Warning},
      {"ignored", L"已忽略一个网段", StatusClass::Warning},
      {"retry", L"授权未恢复，将每 5 秒自动重试连接。", StatusClass::Warning},
      {"waiting", L"等待密钥", StatusClass::Warning},
      {"waiting beats success", L"等待成功", StatusClass::Warning},
      {"success", L"连接授权成功：c1", StatusClass::Ok},
      {"connected", L"已连接", StatusClass::Ok},
      {"ready", L"就绪。", StatusClass::Ok},
      {"online", L"在线", StatusClass::Ok},
      {"in force", L"已生效", StatusClass::Ok},
      {"fetched", L"已获取现场端 D1 的共享网段。", StatusClass::Ok},
      {"saved", L"档案已保存。", StatusClass::Ok},
      {"copied", L"接入密钥已复制。", StatusClass::Ok},
      {"refreshed", L"已刷新", StatusClass::Ok},
      {"retry and failure", L"重试失败", StatusClass::Error},
      {"success and failure", L"连接授权成功，上报失败", StatusClass::Error},
      {"no word", L"客户端启动中", StatusClass::Plain},
      {"empty", L"", StatusClass::Plain},
  };
  for (const ClassRow& row : rows) {
    EXPECT_EQ(ClassifyStatus(row.text), row.wanted) << row.name;
  }
}

TEST(ClassName, IsTheClassThatThePageStyles) {
  EXPECT_EQ(ClassName(StatusClass::Plain), L"");
  EXPECT_EQ(ClassName(StatusClass::Ok), L"ok");
  EXPECT_EQ(ClassName(StatusClass::Warning), L"wn");
  EXPECT_EQ(ClassName(StatusClass::Error), L"er");
  EXPECT_EQ(ClassName(StatusClass::Off), L"off");
}

void ExpectCard(const Card& card, const wchar_t* key, const wchar_t* value, StatusClass wanted) {
  EXPECT_EQ(card.key, key);
  EXPECT_EQ(card.value, value);
  EXPECT_EQ(card.statusClass, wanted) << "value " << testing::PrintToString(card.value);
}

TEST(StatusCards, AreGreyWithoutADeviceOrConnection) {
  const std::vector<Card> cards = StatusCards(Settings());
  ASSERT_EQ(cards.size(), 5u);
  ExpectCard(cards[0], L"设备", L"等待密钥", StatusClass::Off);
  ExpectCard(cards[1], L"组网 IP", L"未连接", StatusClass::Off);
  ExpectCard(cards[2], L"运行库", L"软件隧道已就绪", StatusClass::Plain);
  ExpectCard(cards[3], L"NAT访问IP", L"未连接", StatusClass::Off);
  ExpectCard(cards[4], L"PLC发现模式", L"已关闭", StatusClass::Off);
}

TEST(StatusCards, ShowTheConnection) {
  Settings settings;
  settings.deviceNumber = L"D-1";
  settings.assignedAddress = L"10.8.0.2";
  settings.routesText = L"192.168.1.0/24";
  settings.discoveryModeEnabled = true;
  const std::vector<Card> cards = StatusCards(settings);
  ASSERT_EQ(cards.size(), 5u);
  ExpectCard(cards[0], L"设备", L"D-1", StatusClass::Plain);
  ExpectCard(cards[1], L"组网 IP", L"10.8.0.2", StatusClass::Ok);
  ExpectCard(cards[2], L"运行库", L"软件隧道已就绪", StatusClass::Plain);
  ExpectCard(cards[3], L"NAT访问IP", L"192.168.1.0/24", StatusClass::Plain);
  ExpectCard(cards[4], L"PLC发现模式", L"PLC发现模式已开启", StatusClass::Ok);
}

TEST(AccessText, TakesTheBestKnownForm) {
  Settings settings;
  EXPECT_EQ(AccessText(settings), L"");
  settings.routesText = L"routes";
  EXPECT_EQ(AccessText(settings), L"routes");
  settings.accessRoutesText = L"access";
  EXPECT_EQ(AccessText(settings), L"access");
  settings.routeMappingsText = L"mappings";
  EXPECT_EQ(AccessText(settings), L"mappings");
}

struct SideRow {
  const char* name;
  TunnelStatus tunnel;
  const wchar_t* routes;
  bool online;
  const wchar_t* state;
  const wchar_t* detail;
};

TEST(DescribeTunnel, IsOnlineOnlyWithARunningTunnelAndItsLink) {
  const SideRow rows[] = {
      {"linked", {true, true}, L"10.1.0.0/16", true, L"在线", L"访问网段 10.1.0.0/16"},
      {"linked, no routes", {true, true}, L"", true, L"在线", L"访问网段 ALL"},
      {"link down", {true, false}, L"10.1.0.0/16", false, L"未连接", L"软件隧道正在自动重连"},
      {"stopped", {false, false}, L"10.1.0.0/16", false, L"未连接", L"粘贴现场端密钥即可连接"},
      {"stopping", {false, true}, L"", false, L"未连接", L"粘贴现场端密钥即可连接"},
  };
  for (const SideRow& row : rows) {
    Settings settings;
    settings.targetNetwork = L"ALL";
    settings.routesText = row.routes;
    const SidePanel side = DescribeTunnel(settings, row.tunnel);
    EXPECT_EQ(side.online, row.online) << row.name;
    EXPECT_EQ(side.state, row.state) << row.name;
    EXPECT_EQ(side.detail, row.detail) << row.name;
  }
}

struct TargetRow {
  const char* name;
  const wchar_t* routes;
  const wchar_t* target;
  std::vector<std::wstring> wanted;
};

TEST(TargetList, HoldsTheKnownNetworksAfterTheAutomaticChoice) {
  const TargetRow rows[] = {
      {"nothing known", L"", L"", {L"自动"}},
      {"all", L"", L"ALL", {L"自动"}},
      {"the target alone", L"", L"192.168.1.0/24", {L"自动", L"192.168.1.0/24"}},
      {"routes instead of the target", L"10.0.0.0/8", L"1.2.3.0/24", {L"自动", L"10.0.0.0/8"}},
      {"every separator",
       L"a,b;c\rd\ne f\tg\x3000h",
       L"",
       {L"自动", L"a", L"b", L"c", L"d", L"e", L"f", L"g", L"h"}},
      {"empty entries", L",;\r\n a \r\n\r\n,b,", L"", {L"自动", L"a", L"b"}},
      {"ALL among routes", L"a ALL b", L"", {L"自动", L"a", L"b"}},
      {"all in lower case is a name", L"all", L"", {L"自动", L"all"}},
      {"routes that hold nothing", L" \r\n", L"1.2.3.0/24", {L"自动"}},
  };
  for (const TargetRow& row : rows) {
    Settings settings;
    settings.routesText = row.routes;
    settings.targetNetwork = row.target;
    EXPECT_EQ(TargetList(settings), row.wanted) << row.name;
  }
}

TEST(ShownTarget, IsAutomaticForEveryNetwork) {
  EXPECT_EQ(ShownTarget(L""), L"自动");
  EXPECT_EQ(ShownTarget(L"ALL"), L"自动");
  EXPECT_EQ(ShownTarget(L"192.168.1.0/24"), L"192.168.1.0/24");
}

}  // namespace
}  // namespace page
