#include <benchmark/benchmark.h>
#include <malloc.h>

#include <cstdint>
#include <cstring>
#include <map>
#include <memory>

#include "tunnel/bytes.h"
#include "tunnel/packet_path.h"
#include "tunnel/silent_driver.h"

// Time for one packet through the packet path, by how many flows the tunnel has seen. The anchor
// is what no implementation can do without: one copy of the packet and its checksums.
namespace tunnel {
namespace {

constexpr std::size_t kPacketBytes = 1300;
constexpr std::uint32_t kTunnelAddress = 0x0A630007;

std::uint16_t Checksum(std::span<const std::byte> bytes, std::uint32_t sum) {
  for (std::size_t at = 0; at + 1 < bytes.size(); at += 2) sum += ReadU16Be(bytes, at);
  if (bytes.size() % 2 == 1) sum += std::uint32_t{ReadU8(bytes, bytes.size() - 1)} << 8;
  while (sum > 0xFFFF) sum = (sum & 0xFFFF) + (sum >> 16);
  return static_cast<std::uint16_t>(~sum);
}

// Of a UDP packet without IP options, which is all that is measured here.
int CalcChecksums(void* data, std::uint32_t lengthBytes, WinDivertAddress*, std::uint64_t) {
  const std::span packet(static_cast<std::byte*>(data), lengthBytes);
  WriteU16Be(packet, 10, 0);
  WriteU16Be(packet, 10, Checksum(packet.first(20), 0));
  WriteU16Be(packet, 26, 0);
  const std::uint32_t pseudoHeader = kProtocolUdp + lengthBytes - 20;
  WriteU16Be(packet, 26, Checksum(packet.subspan(12), pseudoHeader));
  return 1;
}

// UDP from 192.168.1.50 to 10.0.0.0/8; its address and port tell the flow.
Packet OutboundPacket(std::uint32_t flow) {
  Packet packet(kPacketBytes);
  WriteU8(packet, 0, 0x45);
  WriteU16Be(packet, 2, kPacketBytes);
  WriteU8(packet, 8, 128);
  WriteU8(packet, 9, kProtocolUdp);
  WriteU32Be(packet, 12, 0xC0A80132);
  WriteU32Be(packet, 16, 0x0A000001 + (flow % 1024) * 256);
  WriteU16Be(packet, 20, static_cast<std::uint16_t>(1024 + flow / 1024));
  WriteU16Be(packet, 22, 502);
  WriteU16Be(packet, 24, kPacketBytes - 20);
  return packet;
}

Packet InboundPacket(std::uint32_t flow) {
  Packet packet = OutboundPacket(flow);
  WriteU32Be(packet, 12, DestinationAddress(packet));
  WriteU32Be(packet, 16, kTunnelAddress);
  WriteU16Be(packet, 22, ReadU16Be(packet, 20));
  WriteU16Be(packet, 20, 502);
  return packet;
}

// A tunnel that has seen `flows` flows.
struct World {
  explicit World(std::uint32_t flows) {
    driver.Load(SilentDriver(&CalcChecksums));
    driver.OpenInject();
    queue.Start();
    path.Configure(kTunnelAddress, {{0x0A000000, 8, 0x0A000000, 8, false}}, false);
    const std::size_t before = ::mallinfo2().uordblks;
    for (std::uint32_t flow = 0; flow < flows; ++flow) {
      path.HandleOutbound(OutboundPacket(flow), {});
      queue.Clear();
    }
    bytesPerFlow = static_cast<double>(::mallinfo2().uordblks - before) / flows;
  }

  Driver driver;
  PacketQueue queue;
  PacketPath path{driver, queue};
  double bytesPerFlow = 0;
};

World& WorldWith(benchmark::State& state) {
  static std::map<std::int64_t, std::unique_ptr<World>> worlds;
  std::unique_ptr<World>& world = worlds[state.range(0)];
  if (!world) world = std::make_unique<World>(static_cast<std::uint32_t>(state.range(0)));
  return *world;
}

// Jumps about among the flows, so that the tables are met as cold as they are in the field.
std::uint32_t NextFlow(std::uint32_t& state, std::int64_t flows) {
  state = state * 1664525 + 1013904223;
  return static_cast<std::uint32_t>(std::uint64_t{state} * static_cast<std::uint64_t>(flows) >> 32);
}

void Outbound(benchmark::State& state) {
  World& world = WorldWith(state);
  const Packet base = OutboundPacket(0);
  std::uint32_t random = 1;
  for (auto _ : state) {
    const std::uint32_t flow = NextFlow(random, state.range(0));
    Packet packet = base;
    WriteU32Be(packet, 16, 0x0A000001 + (flow % 1024) * 256);
    WriteU16Be(packet, 20, static_cast<std::uint16_t>(1024 + flow / 1024));
    world.path.HandleOutbound(std::move(packet), {});
    benchmark::DoNotOptimize(world.queue.Take());
  }
  state.counters["bytes_per_flow"] = world.bytesPerFlow;
}

void Inbound(benchmark::State& state) {
  World& world = WorldWith(state);
  const Packet base = InboundPacket(0);
  std::uint32_t random = 1;
  for (auto _ : state) {
    const std::uint32_t flow = NextFlow(random, state.range(0));
    Packet packet = base;
    WriteU32Be(packet, 12, 0x0A000001 + (flow % 1024) * 256);
    WriteU16Be(packet, 22, static_cast<std::uint16_t>(1024 + flow / 1024));
    world.path.HandleInbound(packet);
    benchmark::DoNotOptimize(packet);
  }
}

void CopyAndChecksums(benchmark::State& state) {
  const Packet base = OutboundPacket(0);
  for (auto _ : state) {
    Packet packet = base;
    CalcChecksums(packet.data(), kPacketBytes, nullptr, 0);
    benchmark::DoNotOptimize(packet);
  }
}

void Outbound_Anchor(benchmark::State& state) {
  CopyAndChecksums(state);
}
void Inbound_Anchor(benchmark::State& state) {
  CopyAndChecksums(state);
}

#define FLOWS Arg(1)->Arg(1000)->Arg(100000)->Arg(1000000)
BENCHMARK(Outbound)->FLOWS;
BENCHMARK(Outbound_Anchor)->FLOWS;
BENCHMARK(Inbound)->FLOWS;
BENCHMARK(Inbound_Anchor)->FLOWS;

}  // namespace
}  // namespace tunnel
