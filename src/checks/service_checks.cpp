#include "checks/service_checks.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdlib>
#include <stdexcept>
#include <vector>

#include "platform/socket.h"
#include "platform/system_error.h"
#include "service/api_messages.h"
#include "settings/json.h"
#include "text/strings.h"
#include "text/utf8.h"
#include "tunnel/relay/relay_url.h"
#include "tunnel/relay/udp_datagram.h"

namespace checks {
namespace {

// Short enough to report the reason before kCheckLimit ends the check.
constexpr std::chrono::seconds kConnectLimit{4};
constexpr std::chrono::milliseconds kHelloWait{1500};
constexpr int kHellos = 2;
// As connection and engineer; the relay knows neither.
constexpr std::wstring_view kUnknownId = L"VELMARINE-CHECK";
// Five minutes: far less than breaks https certificates, far more than a reply takes.
constexpr std::int64_t kMaxSecondsOff = 300;
constexpr wchar_t kTcpCure[] =
    L"核对服务地址；让公司防火墙和安全软件放行到这个地址和端口的 TCP；问服务管理员服务是否在运行。";
constexpr wchar_t kReplyCure[] =
    L"核对服务地址；酒店、机场等网络先在浏览器里登录；检查系统代理；问服务管理员。";

using Clock = std::chrono::steady_clock;

std::wstring MillisecondsSince(Clock::time_point start) {
  return std::to_wstring(
      std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count());
}

// Tries the addresses in turn, like a connection, until one accepts.
void ConnectToOne(const std::vector<platform::SocketAddress>& addresses, Outcome& outcome) {
  std::wstring reason;
  for (const platform::SocketAddress& address : addresses) {
    int error = 0;
    const auto socket =
        platform::Socket::Create(platform::SocketKind::Tcp, address.Family(), error);
    const Clock::time_point start = Clock::now();
    // A socket per address: one that failed to connect cannot try again on every system.
    if (socket) error = socket->Connect(address, kConnectLimit);
    if (error == 0) {
      outcome.Line(L"TCP 连接成功，用时 " + MillisecondsSince(start) + L" ms");
      return;
    }
    reason = platform::IsSocketTimeout(error)
                 ? L"4 秒内没有回应"
                 : L"错误 " + std::to_wstring(error) + L"，" +
                       platform::ErrorReason(static_cast<std::uint32_t>(error));
  }
  outcome.Fault(L"TCP 连不上中心服务：" + reason, kTcpCure);
}

enum class HelloEnd { Silence, Acknowledged, Foreign, Refused };

HelloEnd SayHello(tunnel::DatagramSocket& socket) {
  const std::vector<std::byte> hello = tunnel::BuildHello(kUnknownId, kUnknownId);
  HelloEnd end = HelloEnd::Silence;
  for (int i = 0; i < kHellos && end == HelloEnd::Silence; ++i) {
    // The error of a rejected hello arrives with a later call on the socket.
    if (socket.Send(hello).error != 0) return HelloEnd::Refused;
    socket.SetReceiveTimeout(kHelloWait);
    std::array<std::byte, tunnel::kMaxUdpDatagramBytes> buffer{};
    const platform::SocketResult result = socket.Receive(buffer);
    if (result.error != 0) {
      end = platform::IsSocketTimeout(result.error) ? HelloEnd::Silence : HelloEnd::Refused;
    } else {
      const auto answer = std::span<const std::byte>(buffer).first(result.bytes);
      end = tunnel::ParseAcknowledgement(answer) ? HelloEnd::Acknowledged : HelloEnd::Foreign;
    }
  }
  return end;
}

bool HasSuccess(const std::wstring& body) {
  const settings::JsonValue document = settings::ReadJsonDocument(body);
  const settings::JsonValue* const member = settings::FindJsonMember(document, L"success");
  return member != nullptr && member->AsBoolean() != nullptr;
}

// Every reply of the service has this member; a web page or another server's reply does not.
bool IsServiceReply(const std::wstring& body) {
  try {
    // Some servers write a byte-order mark, which the reader does not skip.
    return HasSuccess(body.starts_with(L'\xFEFF') ? body.substr(1) : body);
  } catch (const std::runtime_error&) {
    return false;
  }
}

std::optional<int> Number(std::wstring_view digits) {
  int number = 0;
  for (const wchar_t unit : digits) {
    if (unit < L'0' || unit > L'9') return std::nullopt;
    // At most four digits, so it cannot overflow.
    number = number * 10 + (unit - L'0');
  }
  return number;
}

}  // namespace

Outcome CheckServiceTcp(const std::wstring& serverUrl) {
  Outcome outcome;
  const tunnel::ServiceEndpoint service = tunnel::ParseServiceEndpoint(serverUrl);
  outcome.Line(L"服务地址：" + service.host + L" 端口 " + std::to_wstring(service.port));
  platform::SocketLibrary library;
  if (const int error = library.Start(); error != 0) {
    outcome.Fault(L"系统的网络组件没有启动：错误 " + std::to_wstring(error), L"重新启动电脑。");
    return outcome;
  }
  const Clock::time_point start = Clock::now();
  const auto addresses =
      platform::LookUpHost(text::ToUtf8(service.host), service.port, platform::SocketKind::Tcp);
  if (addresses.empty()) {
    outcome.Fault(L"查不到主机名 " + service.host, L"核对服务地址和本机的 DNS 设置。");
    return outcome;
  }
  outcome.Line(L"查到 " + std::to_wstring(addresses.size()) + L" 个地址，用时 " +
               MillisecondsSince(start) + L" ms");
  ConnectToOne(addresses, outcome);
  return outcome;
}

Outcome CheckServiceUdp(const std::wstring& serverUrl,
                        const tunnel::DatagramSocketOpener& openSocket) {
  Outcome outcome;
  outcome.Line(
      L"发的是一个不存在的连接的询问：有回答说明 UDP 两个方向都通；没有回答可能是路上拦住了，"
      L"也可能是这个服务不理会没有连接的询问；被拒绝说明那个端口上没有 UDP 中继。");
  const tunnel::DatagramSocketPointer socket =
      openSocket(serverUrl, kHelloWait, [] { return false; });
  // Only notes: without UDP everything takes the WebSocket.
  switch (SayHello(*socket)) {
    case HelloEnd::Acknowledged:
      outcome.Line(L"收到中继的确认：UDP 通");
      break;
    case HelloEnd::Foreign:
      outcome.Note(L"收到了回答，但不是中继的确认", L"问服务管理员这个端口的 UDP 上是什么。");
      break;
    case HelloEnd::Refused:
      outcome.Note(
          L"UDP 被拒绝：那个端口上没有 UDP 中继，或系统不让发送",
          L"连接不受影响，小数据包改经 WebSocket；要用 UDP 就让管理员打开同一端口的 UDP。");
      break;
    case HelloEnd::Silence:
      outcome.Note(
          L"UDP 没有回答",
          L"连接不受影响，小数据包改经 WebSocket；要用 UDP 就让防火墙放行同一端口的 UDP。");
      break;
  }
  socket->Close();
  return outcome;
}

Outcome JudgeReply(const HttpAnswer& answer) {
  Outcome outcome;
  if (!answer.failure.empty()) {
    outcome.Fault(L"中心服务没有回答 HTTP 请求：" + text::Trim(answer.failure), kReplyCure);
    return outcome;
  }
  outcome.Line(L"HTTP 状态 " + std::to_wstring(answer.status));
  if (!IsServiceReply(answer.body)) {
    // The sign-in page of a hotel or airport network is the usual cause.
    const bool isPage = text::Trim(answer.body).starts_with(L'<');
    outcome.Fault(isPage ? L"回答的是一个网页，不是中心服务" : L"回答的不是中心服务的格式",
                  kReplyCure);
    return outcome;
  }
  const service::ApiEnvelope envelope = service::ParseApiEnvelope(answer.body);
  outcome.Line(L"回答的是中心服务");
  // A refusal proves that the service is reachable, which is the question here.
  if (!envelope.success) outcome.Note(L"中心服务拒绝了版本询问：" + envelope.message);
  return outcome;
}

Outcome JudgeClock(const HttpAnswer& answer, std::int64_t nowSeconds, const std::wstring& zone) {
  Outcome outcome;
  outcome.Line(zone);
  if (!answer.failure.empty()) {
    // Only a note: another check reports that the service does not answer.
    outcome.Note(L"服务没有回答，时钟没有对过：" + text::Trim(answer.failure));
    return outcome;
  }
  outcome.Line(L"HTTP 状态 " + std::to_wstring(answer.status) + L"，服务的时间：" +
               (answer.date.empty() ? L"没有说" : answer.date));
  const std::optional<std::int64_t> theirs = ParseHttpDate(answer.date);
  if (!theirs) {
    outcome.Note(L"服务没有说出可读的时间，时钟没有对过");
    return outcome;
  }
  const std::int64_t off = nowSeconds - *theirs;
  outcome.Line(L"本机与服务相差 " + std::to_wstring(off) + L" 秒");
  if (std::abs(off) > kMaxSecondsOff) {
    outcome.Fault(L"本机时钟比服务" + std::wstring(off > 0 ? L"快 " : L"慢 ") +
                      std::to_wstring(std::abs(off)) + L" 秒",
                  L"在系统的“日期和时间”里打开自动设置时间并立即同步；日志的时间、https "
                  L"证书和更新签名都靠它。");
  }
  return outcome;
}

std::optional<std::int64_t> ParseHttpDate(std::wstring_view text) {
  constexpr std::wstring_view kMonths = L"JanFebMarAprMayJunJulAugSepOctNovDec";
  // "Sun, 06 Nov 1994 08:49:37 GMT"
  // is the form that servers must send (RFC 9110, section 5.6.7). The day's name is not checked.
  if (text.size() != 29 || text.substr(25) != L" GMT") return std::nullopt;
  const std::size_t month = kMonths.find(text.substr(8, 3));
  const auto day = Number(text.substr(5, 2));
  const auto year = Number(text.substr(12, 4));
  const auto hour = Number(text.substr(17, 2));
  const auto minute = Number(text.substr(20, 2));
  const auto second = Number(text.substr(23, 2));
  // A match between two months, such as "anF", is not a month.
  if (month == std::wstring_view::npos || month % 3 != 0 || !day || !year || !hour || !minute ||
      !second) {
    return std::nullopt;
  }
  using namespace std::chrono;
  const year_month_day date{std::chrono::year(*year),
                            std::chrono::month(static_cast<unsigned>(month / 3 + 1)),
                            std::chrono::day(static_cast<unsigned>(*day))};
  if (!date.ok() || *hour > 23 || *minute > 59 || *second > 60) return std::nullopt;
  // A leap second (60) counts as the first of the next minute.
  const std::int64_t days = sys_days(date).time_since_epoch().count();
  return ((days * 24 + *hour) * 60 + *minute) * 60 + *second;
}

}  // namespace checks
