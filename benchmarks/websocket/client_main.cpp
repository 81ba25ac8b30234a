#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <stdexcept>
#include <string>
#include <vector>

#include "benchmarks/websocket/client.h"

// Times one library's WebSocket client against the server in websocket_bench.mjs.
//
//   websocket_client own|beast PORT send|receive MESSAGE_BYTES COUNT
//
// Prints the seconds from the first message sent until the server confirms that it has all of them,
// or from the first message received to the last.
namespace {

using Clock = std::chrono::steady_clock;

void Run(const std::vector<std::string>& words) {
  if (words.size() != 5) {
    throw std::runtime_error("usage: own|beast PORT send|receive MESSAGE_BYTES COUNT");
  }
  const auto port = static_cast<std::uint16_t>(std::stoul(words[1]));
  const std::size_t messageBytes = std::stoul(words[3]);
  const std::size_t count = std::stoul(words[4]);
  const auto client = words[0] == "own" ? bench::ConnectOwn(port) : bench::ConnectBeast(port);
  Clock::time_point start;
  if (words[2] == "send") {
    start = Clock::now();
    client->Send(messageBytes, count);
    client->Receive();
  } else {
    client->Send(1, 1);  // asks for them
    client->Receive();
    start = Clock::now();
    for (std::size_t i = 1; i < count; ++i) {
      if (client->Receive() != messageBytes) throw std::runtime_error("another message");
    }
  }
  std::printf("%.9f\n", std::chrono::duration<double>(Clock::now() - start).count());
}

}  // namespace

int main(int argc, char** argv) {
  try {
    Run(std::vector<std::string>(argv + 1, argv + argc));
    return 0;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "websocket_client: %s\n", error.what());
    return 1;
  }
}
