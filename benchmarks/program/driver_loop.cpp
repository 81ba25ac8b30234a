// A minimal user of the lab's driver: returns each packet that FILTER matches with its addresses
// exchanged. Ports stay, so a server at the sender's own address receives it and answers the same
// way: every packet is received once and injected once, as in the client.
//
//   driver_loop FILTER
//
// Prints "ready". Runs until ended; an error of the driver ends it with exit code 1.
#include <algorithm>
#include <array>
#include <cstdio>
#include <exception>

#include "tests/driver_library.h"

namespace {

constexpr std::uint64_t kSendOnly = 8;
constexpr INT16 kPriority = -300;
constexpr UINT kMaxPacketBytes = 65535;
constexpr std::size_t kSourceAt = 12;
constexpr std::size_t kDestinationAt = 16;
constexpr std::size_t kAddressBytes = 4;

bool ReturnOne(const Library& library, HANDLE capture, HANDLE sender,
               std::array<std::uint8_t, kMaxPacketBytes>& packet) {
  UINT bytes = 0;
  Record captured = {};
  if (!library.recv(capture, packet.data(), kMaxPacketBytes, &bytes, &captured)) return false;
  std::swap_ranges(&packet[kSourceAt], &packet[kSourceAt + kAddressBytes], &packet[kDestinationAt]);
  Record answer = {};
  answer.interfaceIndex = captured.interfaceIndex;
  answer.subInterfaceIndex = captured.subInterfaceIndex;
  // A packet without checksums is dropped, as a cable would drop it.
  if (!library.calc(packet.data(), bytes, nullptr, 0)) return true;
  return library.send(sender, packet.data(), bytes, nullptr, &answer) != FALSE;
}

int Run(const char* filter) {
  static std::array<std::uint8_t, kMaxPacketBytes> packet;
  const Library library;
  const HANDLE capture = library.open(filter, 0, kPriority, 0);
  const HANDLE sender = library.open("false", 0, kPriority - 1, kSendOnly);
  bool works = capture != INVALID_HANDLE_VALUE && sender != INVALID_HANDLE_VALUE;
  if (works) std::puts("ready");
  std::fflush(stdout);
  while (works) works = ReturnOne(library, capture, sender, packet);
  std::fprintf(stderr, "error %lu\n", ::GetLastError());
  return 1;
}

}  // namespace

int main(int count, char** arguments) {
  if (count != 2) return 2;
  try {
    return Run(arguments[1]);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "%s\n", error.what());
    return 1;
  }
}
