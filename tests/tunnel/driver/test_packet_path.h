#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

#include "tunnel/driver/fake_driver.h"
#include "tunnel/driver/packet_path.h"
#include "tunnel/packets/bytes.h"
#include "tunnel/packets/queue_reader.h"
#include "tunnel/packets/test_packets.h"

// Shared by the tests of the packet path. This computer is 192.168.1.50, its tunnel address
// 10.99.0.7; 10.0.0.0/24 keeps its addresses, 192.168.1.0/24 is mapped to 172.31.0.0/24.
namespace tunnel {

inline constexpr std::uint32_t kComputer = 0xC0A80132;       // 192.168.1.50
inline constexpr std::uint32_t kTunnelAddress = 0x0A630007;  // 10.99.0.7
inline constexpr RouteMapping kDirect{0x0A000000, 24, 0x0A000000, 24, false};
inline constexpr RouteMapping kNat{0xC0A80100, 24, 0xAC1F0000, 24, true};

// The text of the exception thrown by `action`.
template <typename Action>
std::string ErrorOf(Action action) {
  try {
    action();
  } catch (const std::runtime_error& error) {
    return error.what();
  }
  return "no error";
}

inline Packet WithDestination(Packet packet, std::uint32_t destination) {
  SetDestinationAddress(packet, destination);
  return packet;
}

// The site's answer to a packet: addresses and ports swapped, checksums unchanged.
inline Packet AnswerTo(Packet packet) {
  const std::uint32_t source = SourceAddress(packet);
  SetSourceAddress(packet, DestinationAddress(packet));
  SetDestinationAddress(packet, source);
  const auto view = ValidatePacket(packet);
  if (view && !view->Is(kProtocolIcmp)) {
    const std::size_t at = view->Layout().transportOffset;
    const std::uint32_t ports = ReadU32Be(packet, at);
    WriteU32Be(packet, at, ports << 16 | ports >> 16);
  }
  return packet;
}

using Packets = std::vector<Packet>;

// A packet path between a fake driver and a queue without a sender.
class PacketPathTest : public ::testing::Test {
 protected:
  PacketPathTest() {
    address_.timestamp = 99;
    address_.flags = 0x00E20000;
    address_.interfaceIndex = 12;
    address_.subInterfaceIndex = 3;
    driver_.Load(fake_.Api());
    driver_.OpenCapture(L"true");
    driver_.OpenInject();
    queue_.Start();
    path_.Configure(kTunnelAddress, {kDirect, kNat}, false);
  }
  ~PacketPathTest() override {
    driver_.Unload();
    EXPECT_EQ(fake_.Misuses(), std::vector<std::string>{});
  }

  // Captures `packet` and returns the packets queued for the relay.
  Packets Outbound(Packet packet) {
    path_.HandleOutbound(packet, address_);
    return reader_.Rest();
  }

  // Delivers `packet` from the relay and returns the injected packets.
  Packets Inbound(Packet packet) {
    const std::size_t before = fake_.SentPackets().size();
    path_.HandleInbound(packet);
    Packets packets;
    const auto sent = fake_.SentPackets();
    for (std::size_t index = before; index < sent.size(); ++index) {
      packets.push_back(sent[index].packet);
    }
    return packets;
  }

  FakeDriver fake_;
  Driver driver_;
  PacketQueue queue_;
  QueueReader reader_{queue_};
  PacketPath path_{driver_, queue_};
  WinDivertAddress address_;
};

}  // namespace tunnel
