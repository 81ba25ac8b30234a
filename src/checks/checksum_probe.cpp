#include "checks/checksum_probe.h"

#include <cstdint>
#include <stdexcept>

#include "text/utf8.h"
#include "tunnel/packets/packet.h"

namespace checks {
namespace {

constexpr std::size_t kHeaderBytes = 20;
constexpr std::size_t kAddressesOffset = 12;  // source, then destination
constexpr std::size_t kIpSumOffset = 10;
constexpr std::uint32_t kFrom = 0xC6336401;  // 198.51.100.1
constexpr std::uint32_t kTo = 0xCB007101;    // 203.0.113.1

// The sum of the 16-bit words, the last odd byte being the high one, before its complement.
std::uint32_t AddWords(std::span<const std::byte> bytes, std::uint32_t sum) {
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    const auto byte = std::to_integer<std::uint32_t>(bytes[i]);
    sum += i % 2 == 0 ? byte << 8 : byte;
  }
  return sum;
}

std::uint16_t Complement(std::uint32_t sum) {
  while (sum > 0xFFFF) sum = (sum >> 16) + (sum & 0xFFFF);
  return static_cast<std::uint16_t>(~sum);
}

std::uint16_t RightSum(const ChecksumProbe& probe) {
  const std::span<const std::byte> packet(probe.packet);
  std::uint32_t sum = AddWords(packet.subspan(kHeaderBytes), 0);
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
  for (std::size_t i = kHeaderBytes; i < packet.size(); ++i) packet[i] = std::byte(i * 37 & 0xFF);
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

}  // namespace

std::vector<ChecksumProbe> MakeChecksumProbes() {
  ChecksumProbe icmp = MakeProbe(L"ICMP", tunnel::kProtocolIcmp, 40, 2);
  icmp.packet[kHeaderBytes] = std::byte{8};      // echo request
  icmp.packet[kHeaderBytes + 1] = std::byte{0};  // its only code
  ChecksumProbe tcp = MakeProbe(L"TCP", tunnel::kProtocolTcp, 61, 16);
  tcp.packet[kHeaderBytes + 12] = std::byte{0x50};  // five words of header
  ChecksumProbe udp = MakeProbe(L"UDP", tunnel::kProtocolUdp, 48, 6);
  tunnel::WriteU16Be(udp.packet, kHeaderBytes + 4, 48);
  return {icmp, tcp, udp};
}

std::wstring WhatIsWrong(const ChecksumProbe& probe,
                         const std::function<void(std::span<std::byte> packet)>& recalculate) {
  const std::size_t sizeBytes = probe.packet.size();
  std::vector<std::byte> bytes = probe.packet;
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
