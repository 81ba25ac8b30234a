// The verdicts of the checks that judge facts.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "checks/client_checks.h"
#include "checks/computer_checks.h"
#include "checks/network_checks.h"

namespace checks {
namespace {

// "正常", or each problem's kind and text, one per line.
std::wstring ProblemText(const Outcome& outcome) {
  std::wstring said;
  for (const Problem& problem : outcome.problems) {
    said += (problem.verdict == Verdict::Fault ? L"异常 " : L"提示 ") + problem.text + L"\n";
  }
  return said.empty() ? L"正常" : said;
}

bool Has(const std::vector<std::wstring>& lines, std::wstring_view part) {
  for (const std::wstring& line : lines) {
    if (line.find(part) != std::wstring::npos) return true;
  }
  return false;
}

TEST(ProgramCheck, ComparesItsSignerWithThePin) {
  ProgramFacts facts{L"1.0", L"C:\\a.exe", 5, "ab", {}, 0, {}};
  EXPECT_EQ(ProblemText(JudgeProgram(facts)), L"正常");
  facts.signerPin = "key1";
  facts.signerKeySha256 = "key1";
  EXPECT_EQ(ProblemText(JudgeProgram(facts)), L"正常");
  facts.signerKeySha256.clear();
  facts.trustError = 0x800B0100;
  EXPECT_EQ(ProblemText(JudgeProgram(facts)),
            L"异常 本程序的文件没有由指定的密钥签名，或签名无效（0x800B0100）：文件可能被改动过\n");
}

TEST(ProgramCheck, FaultsAFileThatCannotBeRead) {
  EXPECT_EQ(ProblemText(JudgeProgram({})), L"异常 读不出程序自己的文件\n");
}

TEST(SystemCheck, FaultsOldWindowsAndArm64) {
  EXPECT_EQ(ProblemText(JudgeSystem({10, 0, 19045, false, 96})), L"正常");
  EXPECT_EQ(ProblemText(JudgeSystem({6, 1, 7601, false, 0})),
            L"异常 Windows 版本太旧：需要 Windows 10 或更新\n");
  EXPECT_EQ(ProblemText(JudgeSystem({10, 0, 22631, true, 96})),
            L"异常 ARM64 处理器的 Windows 没有可用的网络驱动，软件隧道无法启动\n");
  EXPECT_EQ(ProblemText(JudgeSystem({})), L"提示 系统没有说出它的版本\n");
  EXPECT_TRUE(Has(JudgeSystem({10, 0, 1, false, 144}).lines, L"150 %"));
}

TEST(RightsCheck, FaultsMissingRights) {
  EXPECT_EQ(ProblemText(JudgeRights({true, false})), L"正常");
  EXPECT_EQ(ProblemText(JudgeRights({false, false})), L"异常 没有管理员权限，驱动无法加载\n");
  EXPECT_EQ(ProblemText(JudgeRights({std::nullopt, false})), L"提示 系统没有说出本程序的权限\n");
  EXPECT_EQ(ProblemText(JudgeRights({true, true})),
            L"提示 本程序以另一账户的权限运行：设置和档案存在那个账户下，代理旁路为两个用户维护\n");
}

TEST(FolderCheck, FaultsUnwritableFoldersAndFullDisks) {
  constexpr std::uint64_t kMany = 1ull << 40;
  EXPECT_EQ(ProblemText(JudgeFolders({{L"日志文件夹", L"C:\\a\\Log", L"C:\\a", 0, kMany}})),
            L"正常");
  EXPECT_EQ(JudgeFolders({{L"日志文件夹", L"C:\\a", L"C:\\a", 5, kMany}}).WorstVerdict(),
            Verdict::Fault);
  EXPECT_EQ(ProblemText(JudgeFolders({{L"运行目录", L"C:\\a", L"C:\\a", 0, 19u << 20}})),
            L"异常 运行目录所在的磁盘几乎满了：只剩 19 MB\n");
  EXPECT_EQ(ProblemText(JudgeFolders({{L"运行目录", L"C:\\a", L"C:\\a", 0, 499u << 20}})),
            L"提示 运行目录所在的磁盘空间不多：剩 499 MB\n");
  EXPECT_EQ(ProblemText(JudgeFolders({{L"运行目录", L"C:\\a", L"C:\\a", 0, std::nullopt}})),
            L"正常");
}

TEST(RunningCheck, NotesAnotherClient) {
  EXPECT_EQ(ProblemText(JudgeRunning(false, false)), L"正常");
  EXPECT_EQ(ProblemText(JudgeRunning(true, true)), L"正常");
  EXPECT_EQ(ProblemText(JudgeRunning(true, false)),
            L"提示 客户端正在运行；一台电脑同时只能运行一个\n");
}

TEST(SettingsCheck, ReportsTheRemainsOfASuddenEnd) {
  SettingsFacts facts;
  facts.exists = true;
  facts.profiles = 3;
  EXPECT_EQ(ProblemText(JudgeSettings(facts, false)), L"正常");
  EXPECT_TRUE(Has(JudgeSettings(facts, false).lines, L"站点档案 3 个"));
  facts.complaint = L"警告：坏";
  facts.damagedFiles = {L"Client.settings.damaged-1.json"};
  facts.remembersConnection = true;
  facts.proxyNote = {{L"", {L"10.1.2.*", L"10.1.3.*"}}};
  EXPECT_EQ(ProblemText(JudgeSettings(facts, false)),
            L"异常 设置文件坏了：警告：坏\n"
            L"提示 以前有设置文件坏过，另存了 1 个\n"
            L"提示 上次的连接没有正常断开，下次连接前会先向服务报告它已结束\n"
            L"提示 上次运行在代理旁路名单里留下了 2 条\n");
}

// A running client has a connection and proxy entries.
TEST(SettingsCheck, AcceptsTheTracesOfARunningClient) {
  SettingsFacts facts;
  facts.remembersConnection = true;
  facts.proxyNote = {{L"", {L"10.1.2.*"}}};
  EXPECT_EQ(ProblemText(JudgeSettings(facts, true)), L"正常");
}

TEST(SettingsCheck, RecognisesDamagedFilesByTheirNames) {
  EXPECT_EQ(DamagedSettings({L"Client.settings.json", L"Client.settings.damaged-2.json", L"x"}),
            std::vector<std::wstring>{L"Client.settings.damaged-2.json"});
}

TEST(WebViewCheck, NamesTheRuntimeThatIsUsed) {
  using webview::RuntimeRoot;
  const webview::ListedRuntime old{RuntimeRoot::AllUsers, L"stable", L"C:\\R\\85.0.1.1", false};
  const webview::ListedRuntime own{RuntimeRoot::CurrentUser, L"beta", L"C:\\U\\121.0.2277.106",
                                   true};
  EXPECT_EQ(ProblemText(JudgeWebView({old, own})), L"正常");
  EXPECT_EQ(JudgeWebView({old, own}).lines[0],
            L"会用的：121.0.2277.106，为当前用户安装，beta，C:\\U\\121.0.2277.106");
  EXPECT_TRUE(Has(JudgeWebView({old, own}).lines, L"用不了（太旧或缺文件）：85.0.1.1"));
  EXPECT_EQ(ProblemText(JudgeWebView({old})), L"异常 没有可用的 WebView2 运行时，界面打不开\n");
}

TEST(PowerCheck, NotesSettingsThatEndAConnection) {
  PowerFacts facts;
  facts.sleepSeconds = {0, 600};
  facts.lidAction = {1, 1};
  EXPECT_EQ(ProblemText(JudgePower(facts)), L"正常") << "no battery, no lid";
  facts.hasBattery = true;
  EXPECT_EQ(ProblemText(JudgePower(facts)),
            L"提示 没人操作时电脑会睡眠（接电源 从不，用电池 10 "
            L"分钟后），远程连接随之中断，唤醒后自动恢复\n"
            L"提示 合上盖子会中断连接（接电源 睡眠，用电池 睡眠）\n");
  facts = {};
  facts.sleepSeconds.onMains = 1801;
  facts.hasModernStandby = true;
  EXPECT_EQ(ProblemText(JudgePower(facts)),
            L"提示 没人操作时电脑会睡眠（接电源 31 分钟后），远程连接随之中断，唤醒后自动恢复\n"
            L"提示 这台电脑用新式待机：屏幕关闭一段时间后网络可能断开\n");
  facts = {};
  facts.error = 120;
  EXPECT_EQ(ProblemText(JudgePower(facts)), L"提示 系统没有说出电源设置：错误 120\n");
}

tunnel::NetworkAdapter MakeAdapter(const wchar_t* name, std::uint32_t type, std::uint32_t address,
                                   std::uint32_t prefix) {
  return {name, L"driver", type, {{true, address, prefix}}};
}

class NetworkCheck : public testing::Test {
 protected:
  NetworkCheck() {
    facts_.adapters.adapters = {MakeAdapter(L"以太网", 6, 0xC0A8010A, 24)};
    facts_.routes = {{0, 0}, {0xC0A80100, 24}};
    facts_.siteNetworks = {L"10.10.0.0/24"};
  }
  NetworkFacts facts_;
};

TEST_F(NetworkCheck, AcceptsAnOrdinaryNetwork) {
  EXPECT_EQ(ProblemText(JudgeNetworks(facts_)), L"正常");
  EXPECT_TRUE(Has(JudgeNetworks(facts_).lines, L"以太网（driver）：192.168.1.10/24"));
}

TEST_F(NetworkCheck, FaultsAnAdapterAmongTheSubstitutesOnceAndNotItsRoute) {
  facts_.adapters.adapters.push_back(MakeAdapter(L"容器", 6, 0xAC1F2001, 20));
  facts_.routes.push_back({0xAC1F2000, 20});
  EXPECT_EQ(
      ProblemText(JudgeNetworks(facts_)),
      L"异常 网卡“容器”的网段 172.31.32.0/20 占用了 172.31.0.0/16，NAT 地址会不够用或与它冲突\n");
}

TEST_F(NetworkCheck, NotesARouteAmongTheSubstitutes) {
  facts_.routes.push_back({0xAC100000, 12});
  facts_.routes.push_back({0xAC100000, 12});
  EXPECT_EQ(ProblemText(JudgeNetworks(facts_)),
            L"提示 路由 172.16.0.0/12 与 172.31.0.0/16 重叠，连接期间其中被 NAT "
            L"用到的地址到不了原来的地方\n");
}

TEST_F(NetworkCheck, NotesSitesThatNeedSubstitutes) {
  facts_.siteNetworks = {L"192.168.0.0/16", L"10.10.0.0/24", L"192.168.0.0/16"};
  EXPECT_EQ(ProblemText(JudgeNetworks(facts_)),
            L"提示 档案中的网段 192.168.0.0/16 与本机网段 192.168.1.0/24 重叠\n");
}

TEST_F(NetworkCheck, FaultsNoNetworkAndNoList) {
  facts_.adapters.adapters[0].addresses[0].isAdapterUp = false;
  EXPECT_EQ(ProblemText(JudgeNetworks(facts_)), L"异常 没有一块连着网的网卡\n");
  facts_ = {};
  facts_.adapters.error = 8;
  facts_.routesError = 5;
  EXPECT_EQ(ProblemText(JudgeNetworks(facts_)),
            L"异常 系统没有列出网卡：错误 8\n提示 系统没有列出路由：错误 5\n");
}

TEST(ProxyCheck, NotesProxiesAndScripts) {
  ProxyFacts facts;
  facts.userBypass = L"10.1.2.*";
  EXPECT_EQ(ProblemText(JudgeProxies(facts)), L"正常");
  EXPECT_TRUE(Has(JudgeProxies(facts).lines, L"代理旁路名单：10.1.2.*"));
  facts.systemProxy = L"proxy:8080";
  facts.userProxy = L"proxy:3128";
  EXPECT_EQ(ProblemText(JudgeProxies(facts)),
            L"提示 设置了系统代理 proxy:8080：取网段、连接请求和更新都经过它，中继和 UDP 不经过\n"
            L"提示 设置了用户代理 proxy:3128：浏览器访问现场时靠旁路名单绕过它\n");
  facts = {};
  facts.script = L"http://wpad/x.pac";
  EXPECT_EQ(ProblemText(JudgeProxies(facts)),
            L"提示 用户代理由自动配置脚本决定，程序加的旁路名单对它不起作用\n");
  facts = {};
  facts.systemError = 5;
  facts.userError = 2;  // nothing is set
  EXPECT_EQ(ProblemText(JudgeProxies(facts)), L"提示 读不出系统（WinHTTP）代理：错误 5\n");
}

TEST(NeighbourCheck, RecognisesVpnsByTheirDriversAndAdapters) {
  ServiceList services;
  services.drivers = {{L"NPCAP", L"", true, false, false, L""},
                      {L"disk", L"", true, false, false, L""}};
  const Outcome drivers = JudgeNeighbours(services, {});
  EXPECT_EQ(drivers.lines, std::vector<std::wstring>{L"Npcap 抓包（NPCAP）：正在运行"});
  EXPECT_EQ(ProblemText(drivers), L"正常");
  tunnel::AdapterList adapters;
  adapters.adapters = {MakeAdapter(L"公司 VPN", 23, 0x0A000001, 32)};
  EXPECT_EQ(ProblemText(JudgeNeighbours({}, adapters)),
            L"提示 正在使用的 VPN 或虚拟网卡：公司 VPN\n");
  adapters.adapters[0].addresses.clear();
  EXPECT_EQ(ProblemText(JudgeNeighbours({}, adapters)), L"正常");
}

}  // namespace
}  // namespace checks
