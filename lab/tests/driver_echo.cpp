#include <cstdio>
#include <cstdlib>
#include <exception>
#include <utility>
#include <vector>

#include "tests/driver_library.h"

// Captures packets that match FILTER, reverses each and injects it as the answer:
//
//   lab_driver_echo FILTER COUNT [pass]
//
// ICMP echo requests become replies; TCP and UDP ports are swapped. With "pass", packets are sent
// on unchanged. Ends after COUNT packets.
namespace {

constexpr std::uint64_t kSendOnly = 8;
constexpr std::size_t kSourceAt = 12;
constexpr std::size_t kDestinationAt = 16;

void SwapBytes(std::vector<std::uint8_t>& packet, std::size_t a, std::size_t b, std::size_t bytes) {
  for (std::size_t i = 0; i < bytes; ++i) std::swap(packet[a + i], packet[b + i]);
}

void TurnRound(std::vector<std::uint8_t>& packet) {
  const std::size_t transportAt = (packet[0] % 16U) * std::size_t{4};
  SwapBytes(packet, kSourceAt, kDestinationAt, 4);
  if (packet[9] == 1) {
    packet[transportAt] = 0;
  } else {
    SwapBytes(packet, transportAt, transportAt + 2, 2);
  }
}

bool HandleOne(const Library& library, HANDLE capture, HANDLE sender, bool pass) {
  std::vector<std::uint8_t> packet(65535);
  UINT bytes = 0;
  Record captured = {};
  if (!library.recv(capture, packet.data(), 65535, &bytes, &captured)) return false;
  if (pass) return library.send(sender, packet.data(), bytes, nullptr, &captured) != FALSE;
  TurnRound(packet);
  Record answer = {};
  answer.interfaceIndex = captured.interfaceIndex;
  answer.subInterfaceIndex = captured.subInterfaceIndex;
  // A first fragment has no computable checksum and gets no answer.
  if (!library.calc(packet.data(), bytes, nullptr, 0)) return true;
  return library.send(sender, packet.data(), bytes, nullptr, &answer) != FALSE;
}

int Run(const char* filter, long count, bool pass) {
  const Library library;
  const HANDLE capture = library.open(filter, 0, -300, 0);
  const HANDLE sender = library.open("false", 0, -301, kSendOnly);
  bool works = capture != INVALID_HANDLE_VALUE && sender != INVALID_HANDLE_VALUE;
  if (works) std::puts("ready");
  std::fflush(stdout);
  for (long i = 0; works && i < count; ++i) works = HandleOne(library, capture, sender, pass);
  if (!works) std::fprintf(stderr, "error %lu\n", ::GetLastError());
  library.close(capture);
  library.close(sender);
  return works ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) return 2;
  try {
    return Run(argv[1], std::strtol(argv[2], nullptr, 10), argc > 3);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "%s\n", error.what());
    return 1;
  }
}
