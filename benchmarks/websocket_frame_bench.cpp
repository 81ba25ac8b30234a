// Times writing and reading as many frames as one send or receive of the relay's socket carries
// (64 KiB). The anchor copies the same payloads between the same places.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstring>
#include <vector>

#include "tunnel/relay/websocket_protocol.h"

namespace {

using Bytes = std::vector<std::byte>;

constexpr std::size_t kSliceBytes = 65536;
constexpr std::size_t kPlainHeaderBytes = 10;  // room for the longest

std::size_t PayloadBytes(const benchmark::State& state) {
  return static_cast<std::size_t>(state.range(0));
}

std::size_t FrameCount(std::size_t payloadBytes) {
  return std::max<std::size_t>(1, kSliceBytes / tunnel::FrameBytes(payloadBytes));
}

void CountBytes(benchmark::State& state) {
  const std::size_t bytes = PayloadBytes(state);
  state.SetBytesProcessed(state.iterations() *
                          static_cast<std::int64_t>(FrameCount(bytes) * bytes));
}

void WriteFrame(benchmark::State& state) {
  const Bytes payload(PayloadBytes(state), std::byte{0x5A});
  Bytes out(FrameCount(payload.size()) * tunnel::FrameBytes(payload.size()));
  std::uint32_t key = 0;
  for (auto _ : state) {
    std::span<std::byte> room(out);
    while (!room.empty()) {
      const auto frame = tunnel::WriteFrame(room, tunnel::kOpcodeBinary, payload, ++key);
      room = room.subspan(frame.size());
      benchmark::ClobberMemory();
    }
  }
  CountBytes(state);
}

void WriteFrame_Anchor(benchmark::State& state) {
  const Bytes payload(PayloadBytes(state), std::byte{0x5A});
  const std::size_t frameBytes = tunnel::FrameBytes(payload.size());
  Bytes out(FrameCount(payload.size()) * frameBytes);
  for (auto _ : state) {
    for (std::size_t at = frameBytes - payload.size(); at < out.size(); at += frameBytes) {
      std::memcpy(&out[at], payload.data(), payload.size());
      benchmark::ClobberMemory();
    }
  }
  CountBytes(state);
}

// The frames of one receive. A server's frames have no mask bit and no key.
Bytes Frames(std::size_t payloadBytes, bool isMasked) {
  const Bytes payload(payloadBytes, std::byte{0x5A});
  Bytes frame(tunnel::FrameBytes(payloadBytes));
  tunnel::WriteFrame(frame, tunnel::kOpcodeBinary, payload, isMasked ? 0x01020304 : 0);
  if (!isMasked) {
    frame[1] &= std::byte{0x7F};
    const auto keyAt = frame.end() - static_cast<std::ptrdiff_t>(payloadBytes) - 4;
    frame.erase(keyAt, keyAt + 4);
  }
  Bytes stream;
  for (std::size_t i = 0; i < FrameCount(payloadBytes); ++i) {
    stream.insert(stream.end(), frame.begin(), frame.end());
  }
  return stream;
}

void ReadFrames(benchmark::State& state, bool isMasked) {
  // Unmasking in place changes the payloads for the next round, which takes the same time.
  Bytes stream = Frames(PayloadBytes(state), isMasked);
  tunnel::FrameReader reader;
  for (auto _ : state) {
    std::span<std::byte> rest(stream);
    while (!rest.empty()) {
      rest = rest.subspan(reader.Feed(rest).takenBytes);
      benchmark::DoNotOptimize(reader.Payload().data());
      benchmark::ClobberMemory();
    }
  }
  CountBytes(state);
}

void CopyPayloads(benchmark::State& state, bool isMasked) {
  const std::size_t payloadBytes = PayloadBytes(state);
  const Bytes stream = Frames(payloadBytes, isMasked);
  const std::size_t frameBytes = stream.size() / FrameCount(payloadBytes);
  Bytes out(payloadBytes + kPlainHeaderBytes);
  for (auto _ : state) {
    for (std::size_t at = frameBytes - payloadBytes; at < stream.size(); at += frameBytes) {
      std::memcpy(out.data(), &stream[at], payloadBytes);
      benchmark::DoNotOptimize(out.data());
      benchmark::ClobberMemory();
    }
  }
  CountBytes(state);
}

void ReadPlainFrame(benchmark::State& state) {
  ReadFrames(state, false);
}
void ReadMaskedFrame(benchmark::State& state) {
  ReadFrames(state, true);
}
void ReadPlainFrame_Anchor(benchmark::State& state) {
  CopyPayloads(state, false);
}
void ReadMaskedFrame_Anchor(benchmark::State& state) {
  CopyPayloads(state, true);
}

// A Modbus answer, a full packet of the tunnel, the slice of a socket.
#define SIZES Arg(64)->Arg(1330)->Arg(65536)
BENCHMARK(WriteFrame)->SIZES;
BENCHMARK(WriteFrame_Anchor)->SIZES;
BENCHMARK(ReadPlainFrame)->SIZES;
BENCHMARK(ReadPlainFrame_Anchor)->SIZES;
BENCHMARK(ReadMaskedFrame)->SIZES;
BENCHMARK(ReadMaskedFrame_Anchor)->SIZES;

}  // namespace
