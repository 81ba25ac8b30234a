#include "checks/network_checks.h"

#include <algorithm>
#include <set>

#include "text/ipv4_text.h"
#include "text/strings.h"
#include "tunnel/packets/routes.h"

namespace checks {
namespace {

// Where the tunnel takes the substitutes for overlapping routes.
constexpr tunnel::Ipv4Network kSubstitutes{0xAC1F0000, 16};
// IANA's ifType values.
constexpr std::uint32_t kTypePpp = 23;
constexpr std::uint32_t kTypeLoopback = 24;
constexpr std::uint32_t kTypeVirtual = 53;
constexpr std::uint32_t kTypeTunnel = 131;

struct KnownDriver {
  const wchar_t* service;
  const wchar_t* product;
};
// Names of kernel services, published by their makers.
constexpr KnownDriver kKnownDrivers[] = {
    {L"npcap", L"Npcap 抓包"},        {L"npf", L"WinPcap 抓包"},
    {L"tap0901", L"OpenVPN TAP"},     {L"ovpn-dco", L"OpenVPN DCO"},
    {L"wintun", L"Wintun 隧道"},      {L"wireguard", L"WireGuard"},
    {L"acsock", L"Cisco AnyConnect"}, {L"vboxnetlwf", L"VirtualBox 网络"},
    {L"vmnetbridge", L"VMware 网桥"}, {L"vmsmp", L"Hyper-V 虚拟交换机"},
};

bool IsUp(const tunnel::NetworkAdapter& adapter) {
  // The state is stored with each address; an adapter without one counts as down.
  return std::ranges::any_of(adapter.addresses, &tunnel::AdapterAddress::isAdapterUp);
}

const wchar_t* KindOf(std::uint32_t type) {
  switch (type) {
    case kTypePpp:
      return L"PPP 拨号或 VPN";
    case kTypeVirtual:
      return L"虚拟网卡";
    case kTypeTunnel:
      return L"隧道网卡";
    default:
      return nullptr;
  }
}

void DescribeAdapter(const tunnel::NetworkAdapter& adapter, Outcome& outcome) {
  std::wstring line = adapter.name + L"（" + adapter.description + L"）：";
  std::vector<std::wstring> addresses;
  for (const tunnel::AdapterAddress& one : adapter.addresses) {
    addresses.push_back(text::FormatIpv4(one.address) + L"/" + std::to_wstring(one.onLinkPrefix));
  }
  line += addresses.empty() ? L"没有 IPv4 地址" : text::Join(addresses, L"，");
  if (!addresses.empty() && !IsUp(adapter)) line += L"，未连接";
  outcome.Line(line);
}

void JudgeAdapterNetworks(const tunnel::NetworkAdapter& adapter, Outcome& outcome) {
  // Only adapters that are up: the others occupy no addresses.
  for (const tunnel::Ipv4Network& network : tunnel::SelectLocalNetworks(adapter.addresses)) {
    if (!tunnel::Overlaps(network, kSubstitutes)) continue;
    outcome.Fault(L"网卡“" + adapter.name + L"”的网段 " + tunnel::FormatNetwork(network) +
                      L" 占用了 172.31.0.0/16，NAT 地址会不够用或与它冲突",
                  L"改用另一个本机网段，或断开这块网卡。");
  }
}

// Skips routes of adapters, which are reported with their adapter, and routes wider than a /8, such
// as the default route.
void JudgeRoutes(const NetworkFacts& facts, Outcome& outcome) {
  constexpr std::uint32_t kWidestPrefix = 8;
  std::set<std::wstring> reported;
  for (const tunnel::Ipv4Network& route : facts.routes) {
    if (route.prefix < kWidestPrefix || !tunnel::Overlaps(route, kSubstitutes)) continue;
    const bool isAdapters = std::ranges::any_of(facts.adapters.adapters, [&](const auto& adapter) {
      return std::ranges::any_of(
          tunnel::SelectLocalNetworks(adapter.addresses),
          [&](const auto& network) { return tunnel::Overlaps(network, route); });
    });
    const std::wstring name = tunnel::FormatNetwork(route);
    if (isAdapters || !reported.insert(name).second) continue;
    outcome.Note(
        L"路由 " + name + L" 与 172.31.0.0/16 重叠，连接期间其中被 NAT 用到的地址到不了原来的地方",
        L"如果需要访问那里（多半是公司 VPN），连接现场时先断开 VPN。");
  }
}

// Overlaps are expected (many sites use 192.168.1.0/24) and solved by substitutes; hence only
// notes.
void JudgeSites(const NetworkFacts& facts, Outcome& outcome) {
  std::vector<tunnel::AdapterAddress> addresses;
  for (const tunnel::NetworkAdapter& adapter : facts.adapters.adapters) {
    addresses.insert(addresses.end(), adapter.addresses.begin(), adapter.addresses.end());
  }
  const std::vector<tunnel::Ipv4Network> local = tunnel::SelectLocalNetworks(addresses);
  std::set<std::wstring> reported;
  for (const tunnel::Ipv4Network& site : tunnel::ParseRoutes(facts.siteNetworks)) {
    for (const tunnel::Ipv4Network& own : local) {
      const std::wstring line = L"档案中的网段 " + tunnel::FormatNetwork(site) + L" 与本机网段 " +
                                tunnel::FormatNetwork(own) + L" 重叠";
      if (!tunnel::Overlaps(site, own) || !reported.insert(line).second) continue;
      outcome.Note(line, L"连接后用界面上显示的 NAT 地址（172.31.x.x）访问现场设备。");
    }
  }
}

}  // namespace

Outcome JudgeNetworks(const NetworkFacts& facts) {
  Outcome outcome;
  if (facts.adapters.error != 0) {
    outcome.Fault(L"系统没有列出网卡：错误 " + std::to_wstring(facts.adapters.error),
                  L"重新启动电脑；现场网段与本机网段相同时现在会访问不到。");
  }
  if (facts.routesError != 0) {
    outcome.Note(L"系统没有列出路由：错误 " + std::to_wstring(facts.routesError));
  }
  bool hasNetwork = false;
  for (const tunnel::NetworkAdapter& adapter : facts.adapters.adapters) {
    // 127.0.0.0/8 overlaps no site and says nothing about the network.
    if (adapter.type == kTypeLoopback) continue;
    DescribeAdapter(adapter, outcome);
    JudgeAdapterNetworks(adapter, outcome);
    hasNetwork = hasNetwork || !tunnel::SelectLocalNetworks(adapter.addresses).empty();
  }
  if (!hasNetwork && facts.adapters.error == 0) {
    outcome.Fault(L"没有一块连着网的网卡", L"接上网线或连接 Wi-Fi。");
  }
  JudgeRoutes(facts, outcome);
  JudgeSites(facts, outcome);
  return outcome;
}

Outcome JudgeProxies(const ProxyFacts& facts) {
  Outcome outcome;
  if (facts.systemError != 0) {
    outcome.Note(L"读不出系统（WinHTTP）代理：错误 " + std::to_wstring(facts.systemError));
  }
  outcome.Line(L"系统（WinHTTP）代理：" +
               (facts.systemProxy.empty() ? L"没有" : facts.systemProxy));
  if (!facts.systemBypass.empty()) outcome.Line(L"系统代理不用于：" + facts.systemBypass);
  if (!facts.systemProxy.empty()) {
    outcome.Note(L"设置了系统代理 " + facts.systemProxy +
                     L"：取网段、连接请求和更新都经过它，中继和 UDP 不经过",
                 L"连不上中心服务时，用管理员命令行运行 netsh winhttp reset proxy，或让代理放行。");
  }
  // ERROR_FILE_NOT_FOUND (2): the user has no proxy settings.
  if (facts.userError != 0 && facts.userError != 2) {
    outcome.Note(L"读不出用户代理：错误 " + std::to_wstring(facts.userError));
  }
  outcome.Line(L"用户代理：" + (facts.userProxy.empty() ? L"没有" : facts.userProxy) +
               (facts.isAutoDetected ? L"；自动检测已开" : L""));
  if (!facts.script.empty()) outcome.Line(L"自动配置脚本（PAC）：" + facts.script);
  outcome.Line(L"代理旁路名单：" + (facts.userBypass.empty() ? L"空" : facts.userBypass));
  // With a script the bypass list has no effect, so the proxy itself needs no note.
  if (!facts.script.empty()) {
    outcome.Note(L"用户代理由自动配置脚本决定，程序加的旁路名单对它不起作用",
                 L"浏览器打不开现场设备的网页时，在系统的代理设置里关闭自动配置脚本再试。");
  } else if (!facts.userProxy.empty()) {
    outcome.Note(L"设置了用户代理 " + facts.userProxy + L"：浏览器访问现场时靠旁路名单绕过它");
  }
  return outcome;
}

Outcome JudgeNeighbours(const ServiceList& services, const tunnel::AdapterList& adapters) {
  Outcome outcome;
  for (const ServiceFacts& service : services.drivers) {
    const auto* const known = std::ranges::find_if(kKnownDrivers, [&](const KnownDriver& one) {
      return text::EqualsIgnoreCase(one.service, service.name);
    });
    if (known == std::end(kKnownDrivers)) continue;
    outcome.Line(std::wstring(known->product) + L"（" + service.name +
                 (service.isRunning ? L"）：正在运行" : L"）：已停止"));
  }
  for (const tunnel::NetworkAdapter& adapter : adapters.adapters) {
    const wchar_t* const kind = KindOf(adapter.type);
    if (kind == nullptr) continue;
    outcome.Line(std::wstring(kind) + L"：" + adapter.name + L"（" + adapter.description +
                 (IsUp(adapter) ? L"），已连接" : L"），未连接"));
    if (IsUp(adapter)) {
      outcome.Note(L"正在使用的 VPN 或虚拟网卡：" + adapter.name,
                   L"访问不到现场时先断开它再试：它可能把同样的网段引到别处。");
    }
  }
  if (outcome.lines.empty()) outcome.Line(L"没有发现 VPN、抓包或虚拟网络软件");
  return outcome;
}

bool IsWinDivertService(const std::wstring& name) {
  constexpr std::wstring_view kName = L"windivert";
  // Version 1 has its number in the name, repackaged builds have other suffixes.
  return text::FoldCase(name).starts_with(kName);
}

}  // namespace checks
