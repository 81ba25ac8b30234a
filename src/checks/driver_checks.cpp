#include "checks/driver_checks.h"

#include <algorithm>
#include <cstdint>
#include <stdexcept>

#include "text/strings.h"
#include "text/utf8.h"
#include "tunnel/driver/capture.h"
#include "tunnel/driver/driver.h"
#include "tunnel/driver/windivert.h"
#include "tunnel/packets/packet.h"
#include "tunnel/packets/routes.h"

namespace checks {
namespace {

constexpr std::size_t kHeaderBytes = 20;
constexpr std::size_t kIpSumOffset = 10;
constexpr std::size_t kAddressesOffset = 12;  // source, then destination
// Documentation networks (RFC 5737): nothing answers there.
constexpr std::uint32_t kFrom = 0xC6336401;  // 198.51.100.1
constexpr std::uint32_t kTo = 0xCB007101;    // 203.0.113.1

// Adds the 16-bit words to `sum`, an odd last byte as the high one (RFC 1071), without complement.
std::uint32_t AddWords(std::span<const std::byte> bytes, std::uint32_t sum) {
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    const auto byte = std::to_integer<std::uint32_t>(bytes[i]);
    sum += i % 2 == 0 ? byte << 8 : byte;
  }
  return sum;
}

std::uint16_t Complement(std::uint32_t sum) {
  // The carries are added at the low end (RFC 1071).
  while (sum > 0xFFFF) sum = (sum >> 16) + (sum & 0xFFFF);
  return static_cast<std::uint16_t>(~sum);
}

std::uint16_t RightSum(const ChecksumProbe& probe) {
  const std::span<const std::byte> packet(probe.packet);
  std::uint32_t sum = AddWords(packet.subspan(kHeaderBytes), 0);
  // TCP and UDP sums cover addresses, protocol and length (RFC 9293, section 3.1; RFC 768); ICMP's
  // does not.
  if (probe.hasPseudoHeader) {
    sum = AddWords(packet.subspan(kAddressesOffset, 8), sum);
    sum += std::to_integer<std::uint32_t>(packet[9]);
    sum += static_cast<std::uint32_t>(packet.size() - kHeaderBytes);
  }
  return Complement(sum);
}

ChecksumProbe MakeProbe(const wchar_t* name, std::uint8_t protocol, std::size_t transportBytes,
                        std::size_t sumOffset) {
  ChecksumProbe probe{name, std::vector<std::byte>(kHeaderBytes + transportBytes),
                      kHeaderBytes + sumOffset, protocol != tunnel::kProtocolIcmp};
  const std::span<std::byte> packet(probe.packet);
  // Varied bytes, so that a function that skips or swaps some does not get the sum right.
  for (std::size_t i = kHeaderBytes; i < packet.size(); ++i) packet[i] = std::byte(i * 37 & 0xFF);
  // Version 4 and a header of five words.
  packet[0] = std::byte{0x45};
  tunnel::WriteU16Be(packet, 2, static_cast<std::uint16_t>(packet.size()));
  packet[8] = std::byte{64};
  packet[9] = std::byte{protocol};
  tunnel::WriteU32Be(packet, kAddressesOffset, kFrom);
  tunnel::WriteU32Be(packet, kAddressesOffset + 4, kTo);
  tunnel::WriteU16Be(packet, probe.sumOffset, 0);
  return probe;
}

std::wstring Compare(const wchar_t* what, std::uint16_t written, std::uint16_t right) {
  if (written == right) return {};
  return std::wstring(what) + L" 应为 " + std::to_wstring(right) + L"，得到 " +
         std::to_wstring(written) + L" ";
}

constexpr wchar_t kWhitelist[] =
    L"在杀毒软件中恢复并信任运行目录里的这个文件，重新启动客户端（启动时会自动放好），再做一次诊断"
    L"。";
constexpr wchar_t kNotTried[] = L"没有试：运行目录里没有本程序自带的驱动文件";
constexpr wchar_t kStartFirst[] =
    L"启动一次客户端（启动时会自动放好），再做一次诊断；目录里若是别的文件，先删除它们。";

// The documentation networks of RFC 5737 as /30s: real packets never match the filter.
std::vector<tunnel::RouteMapping> UnusedNetworks() {
  // A /24 holds 64 networks of this size, hence two of them.
  constexpr std::uint32_t kFirst = 0xC6336400;   // 198.51.100.0
  constexpr std::uint32_t kSecond = 0xCB007100;  // 203.0.113.0
  constexpr std::uint32_t kPrefix = 30;
  std::vector<tunnel::RouteMapping> mappings;
  for (std::uint32_t i = 0; i < kMaxRoutes; ++i) {
    const std::uint32_t network = (i % 2 == 0 ? kFirst : kSecond) + i / 2 * 4;
    mappings.push_back({network, kPrefix, network, kPrefix, false});
  }
  return mappings;
}

// The same steps as Session::Start().
void OpenAndClose(tunnel::Driver& driver, const DriverDeps& deps, Outcome& outcome) {
  driver.Load(deps.load());
  outcome.Line(L"WinDivert.dll 已加载");
  // With as many routes as a connection may have: a driver with a lower limit fails here.
  driver.OpenCapture(tunnel::BuildCaptureFilter(UnusedNetworks(), false));
  outcome.Line(L"截取句柄已打开（" + std::to_wstring(kMaxRoutes) + L" 个网段）");
  driver.OpenInject();
  outcome.Line(L"注入句柄已打开");
}

void Explain(const tunnel::DriverError& error, Outcome& outcome) {
  const std::wstring what = text::FromUtf8(error.what());
  // The filter of 124 networks would fill a page of the report.
  const std::wstring first = what.substr(0, what.find(L" for filter"));
  const std::wstring reason = error.Code() == 0 ? first.substr(0, first.find(L'\r'))
                                                : tunnel::DescribeDriverError(error.Code());
  // A connection repairs these by itself, so they do not keep the program from working.
  if (tunnel::IsDriverLeftover(error.Code())) {
    outcome.Note(L"驱动现在打不开：" + reason, L"连接时程序会自动停止旧的驱动服务并再试一次。");
  } else {
    outcome.Fault(L"驱动打不开：" + reason,
                  L"照上面的说明做；用户手册的“驱动的错误码”一节有更多说明。");
  }
}

// Not a comparison of beginnings: registered paths start with "\\??\\".
bool IsIn(const std::wstring& path, const std::wstring& folder) {
  return text::FoldCase(path).find(text::FoldCase(folder)) != std::wstring::npos;
}

void JudgeService(const ServiceFacts& service, bool isOurs, bool isClientRunning,
                  Outcome& outcome) {
  // In order of weight: each service gets one verdict at most.
  if (service.isDisabled) {
    outcome.Fault(
        L"驱动服务 " + service.name + L" 被停用（错误 1058）",
        L"关闭其它使用 WinDivert 的程序，或重新启动电脑。连接时程序会先试着停止并删除它。");
  } else if (service.isMarkedForDeletion && !service.isRunning) {
    outcome.Note(L"驱动服务 " + service.name + L" 正在删除",
                 L"连接时程序会自动处理；仍报错误 1072 时重新启动电脑。");
  } else if (!isOurs) {
    outcome.Note(L"另一程序的 WinDivert 驱动：" + service.name + L"，" + service.path,
                 L"连接有问题时关闭那个程序再试。");
  } else if (service.isRunning && !isClientRunning) {
    outcome.Note(L"客户端没有运行，驱动服务却还在", L"启动一次客户端再关闭，或重新启动电脑。");
  }
}

}  // namespace

Outcome JudgeDriverFiles(const std::vector<DriverFile>& files) {
  Outcome outcome;
  for (const DriverFile& file : files) {
    if (!file.sizeBytes) {
      outcome.Fault(L"缺少驱动文件 " + file.path, kWhitelist);
      continue;
    }
    // Two sums that could not be computed are equal, too.
    const bool isOwn = !file.sha256.empty() && file.sha256 == file.carriedSha256;
    outcome.Line(file.path + L"，" + std::to_wstring(*file.sizeBytes) + L" 字节，" +
                 (isOwn ? L"与自带的相同" : L"与自带的不同"));
    outcome.Line(L"SHA-256：" + text::FromUtf8(file.sha256));
    if (isOwn) continue;
    outcome.Fault(L"驱动文件不是本程序自带的：" + file.path + L"（自带的 SHA-256：" +
                      text::FromUtf8(file.carriedSha256) + L"）",
                  L"如果不是你自己放的，关闭客户端，删除这个文件，再启动客户端。");
  }
  return outcome;
}

Outcome JudgeDriverServices(const ServiceList& list, const std::wstring& runtimeFolder,
                            bool isClientRunning) {
  Outcome outcome;
  if (list.error != 0) {
    outcome.Note(L"系统没有列出驱动服务：错误 " + std::to_wstring(list.error));
    return outcome;
  }
  for (const ServiceFacts& service : list.drivers) {
    // Other drivers are the subject of another check.
    if (!IsWinDivertService(service.name)) continue;
    std::wstring line = service.name + (service.isRunning ? L"：正在运行" : L"：已停止");
    if (service.isDisabled) line += L"，已停用";
    if (service.isMarkedForDeletion) line += L"，已标记删除";
    outcome.Line(line + L"，" + service.path);
    JudgeService(service, IsIn(service.path, runtimeFolder), isClientRunning, outcome);
  }
  if (outcome.lines.empty()) outcome.Line(L"没有驱动服务（没有连接时就该这样）");
  return outcome;
}

Outcome CheckDriverOpens(const DriverDeps& deps) {
  Outcome outcome;
  // A foreign library would run with an administrator's rights.
  if (!deps.heldFiles) {
    outcome.Note(kNotTried, kStartFirst);
    return outcome;
  }
  try {
    tunnel::Driver driver;
    OpenAndClose(driver, deps, outcome);
    // Before the line that reports it, and before the service may be removed.
    driver.Unload();
    outcome.Line(L"两个句柄都已关闭");
  } catch (const tunnel::DriverError& error) {
    Explain(error, outcome);
  }
  // Asked only now: a client that started meanwhile uses the service and removes it itself.
  if (!deps.wasServiceThere && !deps.isClientRunning()) tunnel::RemoveDriverService(deps.runHidden);
  return outcome;
}

Outcome CheckDriverSums(const DriverDeps& deps) {
  Outcome outcome;
  if (!deps.heldFiles) {
    outcome.Note(kNotTried, kStartFirst);
    return outcome;
  }
  tunnel::Driver driver;
  try {
    driver.Load(deps.load());
  } catch (const tunnel::DriverError& error) {
    Explain(error, outcome);
    return outcome;
  }
  for (const ChecksumProbe& probe : MakeChecksumProbes()) {
    const std::wstring wrong = FindWrongSums(
        probe, [&driver](std::span<std::byte> packet) { driver.RecalculateChecksums(packet); });
    outcome.Line(probe.name + (wrong.empty() ? L"：正确" : L"：" + wrong));
    if (!wrong.empty()) {
      outcome.Fault(probe.name + L" 的校验和不对：" + wrong,
                    L"驱动的库可能已损坏或被替换：关闭客户端，删除运行目录里的 "
                    L"WinDivert.dll，再启动客户端。");
    }
  }
  return outcome;
}

std::vector<ChecksumProbe> MakeChecksumProbes() {
  ChecksumProbe icmp = MakeProbe(L"ICMP", tunnel::kProtocolIcmp, 40, 2);
  icmp.packet[kHeaderBytes] = std::byte{8};      // echo request
  icmp.packet[kHeaderBytes + 1] = std::byte{0};  // its only code
  // An odd length: its last byte is padded with a zero for the sum.
  ChecksumProbe tcp = MakeProbe(L"TCP", tunnel::kProtocolTcp, 61, 16);
  tcp.packet[kHeaderBytes + 12] = std::byte{0x50};  // five words of header
  ChecksumProbe udp = MakeProbe(L"UDP", tunnel::kProtocolUdp, 48, 6);
  tunnel::WriteU16Be(udp.packet, kHeaderBytes + 4, 48);
  return {icmp, tcp, udp};
}

std::wstring FindWrongSums(const ChecksumProbe& probe,
                           const std::function<void(std::span<std::byte> packet)>& recalculate) {
  const std::size_t sizeBytes = probe.packet.size();
  std::vector<std::byte> bytes = probe.packet;
  // The driver's function may read past the packet's end.
  bytes.resize(sizeBytes + tunnel::kReadableBehindPacket);
  const std::span<std::byte> packet = std::span(bytes).first(sizeBytes);
  try {
    recalculate(packet);
  } catch (const std::runtime_error& error) {
    return text::FromUtf8(error.what());
  }
  const std::span<const std::byte> header = std::span(probe.packet).first(kHeaderBytes);
  return Compare(L"IP 头", tunnel::ReadU16Be(packet, kIpSumOffset),
                 Complement(AddWords(header, 0))) +
         Compare(L"数据", tunnel::ReadU16Be(packet, probe.sumOffset), RightSum(probe));
}

}  // namespace checks
