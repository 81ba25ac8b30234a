#include "shell/hints.h"

namespace shell {
namespace {

constexpr wchar_t kAddress[] =
    L"设置里的中心服务地址写错了，不是网络的问题。关闭程序，在 "
    L"%APPDATA%\\Velmarine\\Client.settings.json 里改正 serverUrl（例如 "
    L"http://地址:31080），再打开程序。";
constexpr wchar_t kCertificate[] =
    L"中心服务的证书没有通过检查，密钥没有发出去。先核对电脑的日期和时间，再换个网络（认证网页、代"
    L"理会"
    L"替换证书）；还不行就问服务管理员。";
constexpr wchar_t kNoReason[] =
    L"回答里没有原因，多半不是中心服务在回答，而是代理、认证网页或正在维护的服务。换个网络，检查 "
    L"WinHTTP 代理（命令行 netsh winhttp show proxy），过一会儿再点一次。";
constexpr wchar_t kHandshake[] =
    L"中继的端口能连，但有设备切断了 WebSocket。换个网络（如手机热点）；还不行就请网络管理员放行。";
constexpr wchar_t kDeviceConfig[] =
    L"中心服务给出的连接不能用。请服务管理员检查这台设备的网段配置。";
constexpr wchar_t kServiceDown[] =
    L"中继正在维护，或中间的代理够不到它。过几分钟再连；一直这样就问服务管理员。";
constexpr wchar_t kDistrusted[] =
    L"下载的新程序不可信，没有换上，现在的版本照常使用。把这一行告诉服务管理员，不要自己找程序来替"
    L"换。";
constexpr wchar_t kNotReported[] =
    L"本机已经断开，只是中心服务没有记下这次断开；原因是它的原话。不用管。";

// The calls to the central service. Codes from 12000 are ERROR_WINHTTP_ values (winhttp.h).
constexpr Hint kRequests[] = {
    {L"address", HintAt::Failure, 0, L"WinHttpCrackUrl", kAddress},
    {L"http.timeout", HintAt::HttpCode, 12002, L"",
     L"中心服务没有在时限内回答：网络太慢，或防火墙丢掉了请求。换个网络（如手机热点）再试；一直这样"
     L"就"
     L"请网络管理员放行 TCP 31080。"},
    {L"http.name", HintAt::HttpCode, 12007, L"",
     L"查不到中心服务的域名。先看能不能打开别的网站：不能就检查网络和 "
     L"DNS，能就核对设置里的服务地址。"},
    {L"http.connect", HintAt::HttpCode, 12029, L"",
     L"连不上中心服务。先看能不能打开别的网站；能就请网络管理员放行 TCP 31080，并检查 WinHTTP "
     L"代理（命令行 netsh winhttp show proxy，和浏览器的代理无关）。"},
    {L"http.reset", HintAt::HttpCode, 12030, L"",
     L"连接被半路切断：防火墙、代理，或中心服务正在重启。再点一次；还是这样就换个网络（如手机热点）"
     L"。"},
    {L"http.garbled", HintAt::HttpCode, 12152, L"",
     L"在服务端口上回答的不是中心服务：地址或端口写错，或中间有设备改动了连接。核对设置里的服务地址"
     L"，"
     L"或换个网络。"},
    // Certificate faults with a cure of their own.
    {L"http.certificate.date", HintAt::HttpCode, 12037, L"",
     L"证书的日期不对，密钥没有发出去。先核对电脑的日期和时间；都对就是证书过期，问服务管理员。"},
    {L"http.certificate.name", HintAt::HttpCode, 12038, L"",
     L"证书不是发给这个地址的，密钥没有发出去。核对设置里的服务地址；不对劲就换个网络，或问服务管理"
     L"员。"},
    {L"http.certificate.client", HintAt::HttpCode, 12044, L"",
     L"对方要求这台电脑出示证书，本程序没有。多半是中间的代理：换个网络，或问服务管理员。"},
    // The others share one cure: authority, revocation, validity, intended use.
    {L"http.certificate", HintAt::HttpCode, 12045, L"", kCertificate},
    {L"http.certificate", HintAt::HttpCode, 12057, L"", kCertificate},
    {L"http.certificate", HintAt::HttpCode, 12157, L"", kCertificate},
    {L"http.certificate", HintAt::HttpCode, 12169, L"", kCertificate},
    {L"http.certificate", HintAt::HttpCode, 12170, L"", kCertificate},
    {L"http.certificate", HintAt::HttpCode, 12175, L"", kCertificate},
    {L"http.certificate", HintAt::HttpCode, 12179, L"", kCertificate},
    // Any other failed call.
    {L"http", HintAt::Failure, 0, L"WinHttp",
     L"连不上中心服务。先看能不能打开别的网站，再检查 TCP 31080 和 WinHTTP 代理（命令行 netsh "
     L"winhttp show proxy）；服务地址是 https 时，也核对电脑的日期和时间。"},
    {L"json", HintAt::Failure, 0, L"Invalid JSON",
     L"中心服务的回答残缺，多半是半路断开或被代理改动。再点一次；总是这样就换个网络，或告诉服务管理"
     L"员。"},
    {L"grant", HintAt::Failure, 0, L"Connection authorization response is missing", kDeviceConfig},
    // The five temporary refusals: the program asks again until they end.
    {L"refusal.unbound", HintAt::Refusal, 0, L"DEVICE_NOT_BOUND",
     L"这台设备还没有绑定，或密钥不是它的。核对密钥；密钥没错就请发密钥的人绑定设备，绑好以后程序自"
     L"己连上"
     L"。"},
    {L"refusal.traffic", HintAt::Refusal, 0, L"TRAFFIC_QUOTA_EXCEEDED",
     L"这台设备的流量用完了。请服务管理员加流量，加好以后程序自己连上。"},
    {L"refusal.concurrent", HintAt::Refusal, 0, L"CONCURRENT_LIMIT_EXCEEDED",
     L"同时连接的人数到了上限。请先连上的同事断开，或请服务管理员提高上限；有空位时程序自己连上。"},
    {L"refusal.offline", HintAt::Refusal, 0, L"DEVICE_OFFLINE",
     L"现场设备离线。请现场的人检查设备的电源和上网；它上线以后程序自己连上。"},
    {L"refusal.relay", HintAt::Refusal, 0, L"DEVICE_RELAY_OFFLINE",
     L"现场设备开着，但没有连到中继。请现场的人检查设备能不能上网，或重启设备；它连上以后程序自己连"
     L"上。"},
    // Without a reason, the reply is probably not the service's.
    {L"noReason", HintAt::NoReason, 0, L"Connection authorization failed: ", kNoReason},
    {L"noReason", HintAt::NoReason, 0, L"Resolve failed: ", kNoReason},
    {L"noReason", HintAt::NoReason, 0, L"远程桌面失败：", kNoReason},
    {L"noReason", HintAt::NoReason, 0, L"自动更新检查失败：", kNoReason},
    {L"notReported", HintAt::Start, 0, L"软件隧道已停止。\r\n会话断开上报失败：", kNotReported},
    {L"notReported", HintAt::Start, 0, L"软件隧道运行中。\r\n会话断开上报失败：", kNotReported},
    {L"wasNotRunning", HintAt::Start, 0, L"软件隧道运行中。",
     L"点“断开”之前就没有隧道在运行，现在也没有。不用管。"},
};

// The tunnel. The driver's texts name cause and cure themselves. Codes from 10000 are Winsock's.
constexpr Hint kTunnel[] = {
    {L"assigned", HintAt::Failure, 0, L"Invalid assigned tunnel address.", kDeviceConfig},
    {L"routes", HintAt::Failure, 0, L"No valid target routes were configured.",
     L"中心服务没有给出可用的网段。请服务管理员检查这台设备的共享网段。"},
    {L"nat", HintAt::Failure, 0, L"No available NAT mapping network was found in 172.31.0.0/16.",
     L"172.31 里没有空着的替代网段。断开用到 172.31 的网络（其他 "
     L"VPN、虚拟机）再连；还不行就请服务管理员减少或缩小共享网段。"},
    {L"wss", HintAt::Failure, 0, L"wss relay is not supported",
     L"设置里的服务地址是 https，中继只走 http。关闭程序，把 serverUrl 改成 http:// "
     L"开头的地址（端口一般是 31080），再打开程序。"},
    {L"winsock", HintAt::Failure, 0, L"WSAStartup failed, error ",
     L"Windows 的网络组件没有启动。重启电脑再连。"},
    {L"relay.name", HintAt::Failure, 0, L"getaddrinfo failed for ",
     L"查不到中继的域名。检查这台电脑的网络和 DNS；别的网站能打开就核对设置里的服务地址。"},
    {L"udp.socket", HintAt::Failure, 0, L"UDP socket failed.",
     L"Windows 没有给出 UDP 端口，多半被安全软件拦下。在安全软件里放行本程序，或重启电脑再连。"},
    {L"relay.refused", HintAt::Failure, 10061, L"Relay TCP connect failed to ",
     L"对方的端口没有打开：中继没有运行，或防火墙拒绝。过几分钟再连；一直这样就问服务管理员。"},
    {L"relay.timeout", HintAt::Failure, 10060, L"Relay TCP connect failed to ",
     L"中继没有应答：防火墙丢掉了连接，或网络断了。请网络管理员放行 TCP "
     L"31080，或换个网络（如手机热点）。"},
    {L"relay.unreachable", HintAt::Failure, 10051, L"Relay TCP connect failed to ",
     L"这台电脑现在没有通往中继的网络。检查网线、Wi-Fi 和 VPN。"},
    {L"relay.unreachable", HintAt::Failure, 10065, L"Relay TCP connect failed to ",
     L"这台电脑现在没有通往中继的网络。检查网线、Wi-Fi 和 VPN。"},
    {L"relay.forbidden", HintAt::Failure, 10013, L"Relay TCP connect failed to ",
     L"这台电脑上的防火墙或安全软件不让本程序上网。在里面放行 Velmarine.Client.exe。"},
    // Any other code.
    {L"relay", HintAt::Failure, 0, L"Relay TCP connect failed to ",
     L"连不上中继。检查网络，请网络管理员放行 TCP 31080，或换个网络（如手机热点）。"},
    {L"handshake", HintAt::Failure, 0, L"WebSocket handshake ", kHandshake},
    {L"upgrade.200", HintAt::Failure, 200, L"WebSocket HTTP upgrade failed, status ",
     L"回答的是网页，不是中继：认证网页、代理，或服务地址写错。先用浏览器登录这个网络，或换个网络；"
     L"还"
     L"不行就核对设置里的服务地址。"},
    {L"upgrade.400", HintAt::Failure, 400, L"WebSocket HTTP upgrade failed, status ",
     L"请求在半路被改动，多半是不支持 WebSocket 的代理。换个网络（如手机热点）。"},
    {L"upgrade.forbidden", HintAt::Failure, 401, L"WebSocket HTTP upgrade failed, status ",
     L"中继不再认这次授权。点“断开”再点“连接”，重新申请。"},
    {L"upgrade.forbidden", HintAt::Failure, 403, L"WebSocket HTTP upgrade failed, status ",
     L"中继不再认这次授权。点“断开”再点“连接”，重新申请。"},
    {L"upgrade.404", HintAt::Failure, 404, L"WebSocket HTTP upgrade failed, status ",
     L"中继上没有这次连接。点“断开”再点“连接”；还是这样就核对设置里的服务地址。"},
    {L"upgrade.407", HintAt::Failure, 407, L"WebSocket HTTP upgrade failed, status ",
     L"中间的代理要求登录，本程序不会登录。换个网络（如手机热点），或请网络管理员放行。"},
    {L"upgrade.down", HintAt::Failure, 502, L"WebSocket HTTP upgrade failed, status ",
     kServiceDown},
    {L"upgrade.down", HintAt::Failure, 503, L"WebSocket HTTP upgrade failed, status ",
     kServiceDown},
    {L"upgrade.down", HintAt::Failure, 504, L"WebSocket HTTP upgrade failed, status ",
     kServiceDown},
    // Any other status.
    {L"upgrade", HintAt::Failure, 0, L"WebSocket HTTP upgrade failed, status ",
     L"中继没有同意，或回答的不是中继。点“断开”再点“连接”；还不行就换个网络，或问服务管理员。"},
    {L"relay.closed", HintAt::Failure, 0, L"The relay connection was closed.", L""},
    {L"stopped", HintAt::Failure, 0, L"The tunnel was stopped while it started.", L""},
    {L"exports", HintAt::Failure, 0, L"WinDivert.dll is missing required exports.",
     L"运行目录里的 WinDivert.dll 不是本程序自带的。关闭程序，删掉 "
     L"%LOCALAPPDATA%\\Velmarine\\Runtime 里的这个文件，再打开程序。"},
    // After "exports", which starts with the same word and needs a hint.
    {L"driver", HintAt::Failure, 0, L"WinDivert", L""},
    {L"udp.blocked", HintAt::Start, 0, L"提示：UDP 通道不可用",
     L"多半是防火墙拦了 UDP 31080。能用，不用管；想更快就请网络管理员放行它。"},
    {L"overlap", HintAt::Start, 0, L"警告：本机新接入的网段 ", L""},
    {L"networks", HintAt::Start, 0, L"警告：无法读取本机网络列表（错误 ", L""},
    {L"discovery.paused", HintAt::Start, 0, L"警告：局域网发现未能暂停。", L""},
    {L"discovery.resumed", HintAt::Start, 0, L"警告：局域网发现未能恢复", L""},
    {L"fragment", HintAt::Start, 0, L"警告：遇到被分片的数据包", L""},
};

// The update, the desktop, the latency test, the settings, the page.
constexpr Hint kOthers[] = {
    {L"update.offer", HintAt::Whole, 0, L"自动更新信息无效。",
     L"中心服务登记的新版本不全，或不比现在的新。告诉服务管理员；不影响使用。"},
    {L"update.download", HintAt::Start, 0, L"强制更新下载失败：",
     L"网络断了、文件不在服务上，或磁盘满了。检查网络和磁盘，重新启动程序；不影响使用。"},
    {L"update.start", HintAt::Start, 0, L"强制更新启动替换进程失败：",
     L"多半被安全软件拦下，或程序的路径太长。在安全软件里放行，明天再启动程序；现在的版本照常使用"
     L"。"},
    {L"update.unreadable", HintAt::Untrusted, 0, L"无法读取下载的新程序（错误码 ",
     L"刚下载的文件被安全软件占用或隔离。在安全软件里放行，再重新启动程序；现在的版本照常使用。"},
    {L"update.untrusted", HintAt::Untrusted, 0, L"新程序", kDistrusted},
    {L"update.place", HintAt::Start, 0, L"强制更新无法安装 ", L""},
    {L"desktop.program", HintAt::Whole, 0, L"未找到 RustDesk 程序。",
     L"这台电脑上没有 RustDesk，也没能从中心服务下载。把 RustDesk "
     L"装在默认位置再点“桌面”，或请服务管理员检查下载地址。"},
    {L"desktop.front", HintAt::Start, 0, L"提示：RustDesk 窗口未能切换到前台", L""},
    {L"clipboard", HintAt::Whole, 0, L"接入密钥复制失败：剪贴板不可用。",
     L"剪贴板正被别的程序占着。关掉剪贴板管理之类的软件，再点一次。"},
    {L"latency.handle", HintAt::Whole, 0, L"通讯延迟测试失败：无法创建 ICMP 句柄。",
     L"Windows 不让发 ping。重启电脑再试。"},
    {L"latency.address", HintAt::Whole, 0, L"通讯延迟测试失败：测试 IP 无效。",
     L"只能填 IPv4 地址，例如 192.168.77.10，不能填主机名。"},
    {L"latency.refused", HintAt::Start, 0, L"通讯延迟测试失败：",
     L"这个地址没有走隧道。先连接，再看它是不是在“NAT访问IP”卡片列出的网段里。"},
    {L"latency.silence", HintAt::Start, 0, L"通讯延迟测试超时：",
     L"1 秒内没有回答：没有连接、设备断电、地址不对，或设备不回 ping（很多 PLC "
     L"都不回）。先测现场的网关，或直接用编程软件试。"},
    // System codes: access denied, sharing violation, and two for a full disk.
    {L"unsaved.denied", HintAt::Unsaved, 5, L"",
     L"文件只读，或安全软件不让写。去掉文件的“只读”，在安全软件里放行；再做任何一步操作，改动就会补"
     L"存。"},
    {L"unsaved.shared", HintAt::Unsaved, 32, L"",
     L"文件正被别的程序占用。关掉打开着它的编辑器、备份或同步软件；再做任何一步操作，改动就会补存"
     L"。"},
    {L"unsaved.full", HintAt::Unsaved, 112, L"",
     L"磁盘满了。腾出空间；再做任何一步操作，改动就会补存。"},
    {L"unsaved.full", HintAt::Unsaved, 39, L"",
     L"磁盘满了。腾出空间；再做任何一步操作，改动就会补存。"},
    {L"unsaved", HintAt::Start, 0, L"警告：设置未能保存：",
     L"改动还在内存里，连接不受影响。按冒号后的原因处理；再做任何一步操作，改动就会补存。"},
    {L"settings.damaged", HintAt::Start, 0, L"警告：设置文件", L""},
    {L"page", HintAt::Start, 0, L"界面加载失败。",
     L"WebView2 没有打开界面，隧道不受影响。关闭程序再打开；再出现就修复 WebView2 运行时。"},
    // The reason is the next line, and the hint follows that one.
    {L"page.control", HintAt::Start, 0, L"WebView2 控制器创建失败。", L""},
    {L"page.made", HintAt::Start, 0, L"错误 0x",
     L"界面没有打开。关闭程序再打开；再出现就重启电脑，或修复 WebView2 运行时。"},
    {L"page.given.up", HintAt::Start, 0, L"界面恢复失败：",
     L"连接还在，关窗口时才断开。活干完以后关闭程序再打开；再出现就重启电脑，或修复 WebView2 "
     L"运行时。"},
    {L"page.environment", HintAt::Start, 0, L"WebView2 环境创建失败", L""},
    {L"arm64", HintAt::Start, 0, L"警告：本机是 ARM64 处理器的 Windows", L""},
    {L"unknown", HintAt::Whole, 0, L"Unknown error.",
     L"程序没有料到的情况。再点一次；再出现就重新打开程序，并把日志发给服务管理员。"},
};

}  // namespace

std::span<const std::span<const Hint>> HintCatalogue() {
  static constexpr std::span<const Hint> kParts[] = {kRequests, kTunnel, kOthers};
  return kParts;
}

}  // namespace shell
