#include "benchmarks/tunnel/checksums.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <random>
#include <span>
#include <vector>

#include "driver/checksums.h"
#include "tests/driver_packets.h"

namespace {

using packets::Bytes;

constexpr std::uint8_t kIcmp = 1;
constexpr std::uint8_t kTcp = 6;
constexpr std::uint8_t kUdp = 17;
constexpr std::uint8_t kOther = 47;

Bytes TransportOf(std::uint8_t protocol, const Bytes& payload) {
  constexpr unsigned kGarbage = 0xDEAD;
  if (protocol == kTcp) return packets::Tcp(502, 50000, payload, kGarbage);
  if (protocol == kUdp) return packets::Udp(5000, 6000, payload, kGarbage);
  return packets::Icmp(payload, kGarbage);
}

bool WriteFast(Bytes& packet) {
  return bench::WriteChecksums(std::as_writable_bytes(std::span(packet)));
}

TEST(BenchChecksums, AreThoseOfTheDriverForEveryLengthAndAnyBytes) {
  std::mt19937 random(20260722);
  for (const std::uint8_t protocol : {kIcmp, kTcp, kUdp, kOther}) {
    for (std::size_t length = 0; length < 300; ++length) {
      Bytes payload(length);
      for (auto& byte : payload) byte = static_cast<std::uint8_t>(random());
      const std::size_t options = length % 3 * 4;
      Bytes ours = packets::Ip(protocol, TransportOf(protocol, payload), packets::kSource,
                               packets::kDestination, options);
      Bytes theirs = ours;
      ASSERT_TRUE(WriteFast(ours));
      ASSERT_TRUE(driver::CalcChecksums(theirs, nullptr, 0));
      ASSERT_EQ(ours, theirs) << "protocol " << int{protocol} << ", payload of " << length;
    }
  }
}

TEST(BenchChecksums, CarriesAreNeverLost) {
  for (std::size_t length = 0; length < 100; ++length) {
    Bytes ours =
        packets::Ip(kTcp, TransportOf(kTcp, Bytes(length, 0xFF)), 0xFFFFFFFF, 0xFFFFFFFF, 0);
    Bytes theirs = ours;
    ASSERT_TRUE(WriteFast(ours));
    ASSERT_TRUE(driver::CalcChecksums(theirs, nullptr, 0));
    ASSERT_EQ(ours, theirs) << length;
  }
}

TEST(BenchChecksums, UdpSumOfZeroIsWrittenAsItsOtherForm) {
  Bytes ours;
  std::size_t zeroSums = 0;
  for (unsigned word = 0; word <= 0xFFFF; ++word) {
    const Bytes payload = {static_cast<std::uint8_t>(word >> 8U), static_cast<std::uint8_t>(word)};
    ours =
        packets::Ip(kUdp, TransportOf(kUdp, payload), packets::kSource, packets::kDestination, 0);
    ASSERT_TRUE(WriteFast(ours));
    const unsigned sum = ours[26] * 256U + ours[27];
    ASSERT_NE(sum, 0U);
    if (sum == 0xFFFF) ++zeroSums;
  }
  EXPECT_EQ(zeroSums, 1U);
}

TEST(BenchChecksums, FragmentsKeepWhatIsNotTheirs) {
  for (const unsigned fragment : {0x2000U, 0x0001U, 0x2001U}) {
    Bytes packet = packets::Ip(kUdp, TransportOf(kUdp, Bytes(9, 1)), packets::kSource,
                               packets::kDestination, 0);
    packets::SetWord(packet, 6, fragment);
    ASSERT_TRUE(WriteFast(packet));
    EXPECT_EQ(packet[26] * 256U + packet[27], 0xDEADU);
  }
}

TEST(BenchChecksums, WhatIsNoWholePacketIsRefused) {
  const Bytes whole =
      packets::Ip(kUdp, TransportOf(kUdp, Bytes(9, 1)), packets::kSource, packets::kDestination, 0);
  for (std::size_t length = 0; length < whole.size(); ++length) {
    Bytes cut(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(length));
    EXPECT_FALSE(WriteFast(cut)) << length;
  }
  Bytes six = whole;
  six[0] = 0x65;
  EXPECT_FALSE(WriteFast(six));
  Bytes shortHeader = whole;
  shortHeader[0] = 0x44;
  EXPECT_FALSE(WriteFast(shortHeader));
}

}  // namespace
