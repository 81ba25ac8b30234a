#include "tunnel/driver/fake_driver.h"

#include <gtest/gtest.h>

#include "tunnel/packets/bytes.h"
#include "tunnel/packets/test_packets.h"

namespace tunnel {
namespace {

// The fake driver's checksums against packets computed elsewhere.
TEST(FakeDriver, ComputesTheChecksumsOfKnownPackets) {
  FakeDriver driver;
  const auto api = driver.Api();
  for (const Packet& known :
       {PacketOf(kPing), PacketOf(kPingReply), PacketOf(kSyn), PacketOf(kSynAck), PacketOf(kUdp),
        PacketOf(kUdpReply), PacketOf(kScan)}) {
    EXPECT_TRUE(HasCorrectChecksums(known));
    Packet packet = known;
    const std::size_t checksum = ReadU8(packet, 9) == 1 ? 22 : ReadU8(packet, 9) == 6 ? 36 : 26;
    WriteU16Be(packet, 10, 0xBEEF);
    EXPECT_FALSE(HasCorrectChecksums(packet));
    WriteU16Be(packet, checksum, 0xBEEF);
    EXPECT_TRUE(
        api->calcChecksums(packet.data(), static_cast<std::uint32_t>(packet.size()), nullptr, 0));
    EXPECT_EQ(packet, known);
    WriteU16Be(packet, checksum, 0xBEEF);
    EXPECT_FALSE(HasCorrectChecksums(packet));
  }
}

TEST(FakeDriver, RefusesChecksumsOfAFirstFragment) {
  FakeDriver driver;
  const auto api = driver.Api();
  Packet packet = PacketOf(kUdp);
  WriteU16Be(packet, 6, 0x2000);
  EXPECT_FALSE(
      api->calcChecksums(packet.data(), static_cast<std::uint32_t>(packet.size()), nullptr, 0));
}

}  // namespace
}  // namespace tunnel
