#include <benchmark/benchmark.h>
#include <malloc.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <map>
#include <memory>
#include <utility>
#include <vector>

#include "tunnel/driver/packet_path.h"
#include "tunnel/driver/silent_driver.h"
#include "tunnel/packets/bytes.h"

// Times one packet through the packet path, by the number of flows in the tunnel. The anchor is the
// unavoidable minimum: one copy of the packet and its checksums.
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

// For UDP packets without IP options, the only ones measured here.
int CalcChecksums(void* data, std::uint32_t lengthBytes, WinDivertAddress*, std::uint64_t) {
  const std::span packet(static_cast<std::byte*>(data), lengthBytes);
  WriteU16Be(packet, 10, 0);
  WriteU16Be(packet, 10, Checksum(packet.first(20), 0));
  WriteU16Be(packet, 26, 0);
  const std::uint32_t pseudoHeader = kProtocolUdp + lengthBytes - 20;
  WriteU16Be(packet, 26, Checksum(packet.subspan(12), pseudoHeader));
  return 1;
}

// UDP from 192.168.1.50 to 10.0.0.0/8; address and port depend on the flow.
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
  WriteU32Be(packet, 12, ReadU32Be(packet, 16));
  WriteU32Be(packet, 16, kTunnelAddress);
  WriteU16Be(packet, 22, ReadU16Be(packet, 20));
  WriteU16Be(packet, 20, 502);
  return packet;
}

// 10.0.0.0/8 as one route or in as many equal parts as there are routes, a power of two.
std::vector<RouteMapping> Routes(std::uint32_t count) {
  std::vector<RouteMapping> routes;
  std::uint32_t prefix = 8;
  while (1U << (prefix - 8) < count) ++prefix;
  for (std::uint32_t index = 0; index < count; ++index) {
    const std::uint32_t network = 0x0A000000 + (index << (32 - prefix));
    routes.push_back({network, prefix, network, prefix, false});
  }
  return routes;
}

// A tunnel with `flows` known flows.
struct World {
  World(std::uint32_t flows, std::uint32_t routes) {
    driver.Load(SilentDriver(&CalcChecksums));
    driver.OpenInject();
    queue.Start();
    path.Configure(kTunnelAddress, Routes(routes), false);
    const std::size_t before = ::mallinfo2().uordblks;
    for (std::uint32_t flow = 0; flow < flows; ++flow) {
      Packet packet = OutboundPacket(flow);
      path.HandleOutbound(packet, {});
      queue.Clear();
    }
    bytesPerFlow = static_cast<double>(::mallinfo2().uordblks - before) / flows;
  }

  Driver driver;
  PacketQueue queue;
  PacketPath path{driver, queue};
  double bytesPerFlow = 0;
};

World& WorldWith(std::int64_t flows, std::int64_t routes) {
  static std::map<std::pair<std::int64_t, std::int64_t>, std::unique_ptr<World>> worlds;
  std::unique_ptr<World>& world = worlds[{flows, routes}];
  if (!world) {
    world = std::make_unique<World>(static_cast<std::uint32_t>(flows),
                                    static_cast<std::uint32_t>(routes));
  }
  return *world;
}

// The flows' addresses: 10.0.0.0 to 10.4.0.0 with one route, all of 10.0.0.0/8 with more.
std::uint32_t SiteAddress(std::uint32_t flow) {
  return 0x0A000001 + (flow % 1024) * 256;
}

// Jumps between flows, so the tables are as cold in the cache as in the field.
std::uint32_t NextFlow(std::uint32_t& state, std::int64_t flows) {
  state = state * 1664525 + 1013904223;
  return static_cast<std::uint32_t>(std::uint64_t{state} * static_cast<std::uint64_t>(flows) >> 32);
}

// Sends one packet from the capture thread's buffer through the path and out of the queue.
void SendOne(World& world, const Packet& base, Packet& buffer, std::vector<Packet>& batch,
             std::uint32_t flow) {
  std::ranges::copy(std::span(base).first(28), buffer.begin());  // as if from the driver
  WriteU32Be(buffer, 16, SiteAddress(flow));
  WriteU16Be(buffer, 20, static_cast<std::uint16_t>(1024 + flow / 1024));
  world.path.HandleOutbound(buffer, {});
  benchmark::DoNotOptimize(world.queue.Take(batch));
}

void Outbound(benchmark::State& state) {
  World& world = WorldWith(state.range(0), 1);
  const Packet base = OutboundPacket(0);
  Packet buffer = base;
  std::vector<Packet> batch;
  std::uint32_t random = 1;
  for (auto _ : state) {
    SendOne(world, base, buffer, batch, NextFlow(random, state.range(0)));
  }
  state.counters["bytes_per_flow"] = world.bytesPerFlow;
}

void OutboundByRoutes(benchmark::State& state) {
  World& world = WorldWith(1000, state.range(0));
  const Packet base = OutboundPacket(0);
  Packet buffer = base;
  std::vector<Packet> batch;
  std::uint32_t random = 1;
  for (auto _ : state) SendOne(world, base, buffer, batch, NextFlow(random, 1000));
}

void Inbound(benchmark::State& state) {
  World& world = WorldWith(state.range(0), 1);
  const Packet base = InboundPacket(0);
  Packet buffer(kPacketBytes);
  std::uint32_t random = 1;
  for (auto _ : state) {
    const std::uint32_t flow = NextFlow(random, state.range(0));
    std::ranges::copy(base, buffer.begin());
    WriteU32Be(buffer, 12, SiteAddress(flow));
    WriteU16Be(buffer, 22, static_cast<std::uint16_t>(1024 + flow / 1024));
    world.path.HandleInbound(buffer);
    benchmark::DoNotOptimize(buffer.data());
  }
}

void CopyAndChecksums(benchmark::State& state) {
  const Packet base = OutboundPacket(0);
  Packet buffer(kPacketBytes);
  for (auto _ : state) {
    std::ranges::copy(base, buffer.begin());
    CalcChecksums(buffer.data(), kPacketBytes, nullptr, 0);
    benchmark::DoNotOptimize(buffer.data());
  }
}

void Outbound_Anchor(benchmark::State& state) {
  CopyAndChecksums(state);
}
void Inbound_Anchor(benchmark::State& state) {
  CopyAndChecksums(state);
}

void OutboundByRoutes_Anchor(benchmark::State& state) {
  CopyAndChecksums(state);
}

#define FLOWS Arg(1)->Arg(1000)->Arg(100000)->Arg(1000000)
BENCHMARK(Outbound)->FLOWS;
BENCHMARK(Outbound_Anchor)->FLOWS;
BENCHMARK(Inbound)->FLOWS;
BENCHMARK(Inbound_Anchor)->FLOWS;
#define ROUTES Arg(1)->Arg(16)->Arg(256)
BENCHMARK(OutboundByRoutes)->ROUTES;
BENCHMARK(OutboundByRoutes_Anchor)->ROUTES;

}  // namespace
}  // namespace tunnel
