#include "diag/latency_test.h"

#include <optional>
#include <utility>

#include "text/ipv4_text.h"
#include "text/strings.h"

namespace diag {
namespace {

// For latencyText and for the log.
struct LatencyTexts {
  std::wstring kept;
  std::wstring logged;
};

LatencyTexts Describe(const Echo& echo, const std::wstring& address) {
  switch (echo.outcome) {
    case EchoOutcome::NoHandle:
      return {L"失败", L"通讯延迟测试失败：无法创建 ICMP 句柄。"};
    case EchoOutcome::Silence:
      return {L"超时", L"通讯延迟测试超时：" + address};
    case EchoOutcome::Refused:
      return {L"失败", L"通讯延迟测试失败：" + address};
    case EchoOutcome::Answered:
      break;
  }
  const std::wstring time = std::to_wstring(echo.roundTripMs) + L" ms";
  return {time, L"通讯延迟 " + time + L"：" + address};
}

LatencyTexts Measure(const std::wstring& address, const EchoSender& sendEcho) {
  if (address.empty()) return {L"未填写测试 IP", L"通讯延迟：未填写测试 IP。"};
  const std::optional<std::uint32_t> parsed = text::ParseIpv4(address);
  if (!parsed) return {L"IP 无效", L"通讯延迟测试失败：测试 IP 无效。"};
  return Describe(sendEcho(*parsed), address);
}

}  // namespace

std::wstring RunLatencyTest(settings::Settings& settings, const EchoSender& sendEcho) {
  LatencyTexts texts = Measure(text::Trim(settings.testIp), sendEcho);
  settings.latencyText = std::move(texts.kept);
  return texts.logged;
}

}  // namespace diag
