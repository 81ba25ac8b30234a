// A relay client for frames_by_ws.test.mjs: connects, sends frames of the given sizes, compares
// each echo, then closes.
//
//   relay_client RELAY_URL SIZE...
//
// Exit code 0 if every echo matched; otherwise 1, with the reason on stderr.

#include <algorithm>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <string>

#include "tunnel/relay/test_frames.h"
#include "tunnel/relay/websocket_relay.h"

namespace {

bool Echo(tunnel::WebSocketRelay& relay, std::size_t size) {
  const tunnel::Bytes payload = tunnel::Pattern(size);
  std::span<std::byte> echoed;
  if (!relay.SendFrame(tunnel::kOpcodeBinary, payload)) {
    std::cerr << "frame of " << size << " bytes was not sent\n";
    return false;
  }
  if (!relay.ReadMessage(echoed) || !std::ranges::equal(echoed, payload)) {
    std::cerr << "frame of " << size << " bytes did not come back\n";
    return false;
  }
  return true;
}

int Run(int count, char** arguments) {
  if (count < 2) {
    std::cerr << "usage: relay_client RELAY_URL SIZE...\n";
    return 1;
  }
  tunnel::WebSocketRelay relay;
  const std::string url = arguments[1];
  relay.Connect(std::wstring(url.begin(), url.end()));
  for (int i = 2; i < count; ++i) {
    if (!Echo(relay, std::strtoul(arguments[i], nullptr, 10))) return 1;
  }
  relay.SendFrame(tunnel::kOpcodeClose, {});
  return 0;
}

}  // namespace

int main(int count, char** arguments) {
  try {
    return Run(count, arguments);
  } catch (const std::exception& error) {
    std::cerr << error.what() << "\n";
    return 1;
  }
}
