// How fast frames are written and read, in bytes of payload. The anchor beside each is one copy of
// the same payload, the least that any framing has to do.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <vector>

#include "tunnel/websocket_frame.h"

namespace {

using Bytes = std::vector<std::byte>;

Bytes Payload(const benchmark::State& state) {
  return Bytes(static_cast<std::size_t>(state.range(0)), std::byte{0x5A});
}

void CountBytes(benchmark::State& state) {
  state.SetBytesProcessed(state.iterations() * state.range(0));
}

void CopyPayload(benchmark::State& state) {
  const Bytes payload = Payload(state);
  for (auto _ : state) {
    Bytes copy(payload);
    benchmark::DoNotOptimize(copy.data());
  }
  CountBytes(state);
}

void WriteFrame(benchmark::State& state) {
  const Bytes payload = Payload(state);
  std::uint32_t key = 0;
  for (auto _ : state) {
    const Bytes frame = tunnel::EncodeFrame(tunnel::kOpcodeBinary, payload, ++key);
    benchmark::DoNotOptimize(frame.data());
  }
  CountBytes(state);
}

// `frame` in slices as the socket gives them.
void ReadFrames(benchmark::State& state, const Bytes& frame) {
  constexpr std::size_t kSliceBytes = 65536;
  tunnel::FrameReader reader;
  for (auto _ : state) {
    for (std::size_t at = 0; at < frame.size(); at += kSliceBytes) {
      const auto slice = std::span(frame).subspan(at, std::min(kSliceBytes, frame.size() - at));
      benchmark::DoNotOptimize(reader.Feed(slice).event);
    }
    benchmark::DoNotOptimize(reader.Payload().data());
  }
  CountBytes(state);
}

void ReadPlainFrame(benchmark::State& state) {
  // A key of 0 leaves the payload as it is; without the mask bit the four bytes go.
  Bytes frame = tunnel::EncodeFrame(tunnel::kOpcodeBinary, Payload(state), 0);
  frame[1] &= std::byte{0x7F};
  frame.erase(frame.end() - state.range(0) - 4, frame.end() - state.range(0));
  ReadFrames(state, frame);
}

void ReadMaskedFrame(benchmark::State& state) {
  ReadFrames(state, tunnel::EncodeFrame(tunnel::kOpcodeBinary, Payload(state), 0x01020304));
}

void WriteFrame_Anchor(benchmark::State& state) {
  CopyPayload(state);
}
void ReadPlainFrame_Anchor(benchmark::State& state) {
  CopyPayload(state);
}
void ReadMaskedFrame_Anchor(benchmark::State& state) {
  CopyPayload(state);
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
