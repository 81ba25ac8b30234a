#include <algorithm>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

#include "benchmarks/websocket/client.h"
#include "tunnel/packets/packet_queue.h"
#include "tunnel/relay/websocket_relay.h"

namespace bench {
namespace {

class OwnClient final : public Client {
 public:
  explicit OwnClient(std::uint16_t port) {
    relay_.Connect(L"ws://127.0.0.1:" + std::to_wstring(port) + L"/");
  }

  void Send(std::size_t messageBytes, std::size_t count) override {
    const std::vector<std::byte> message(messageBytes, std::byte{0x5A});
    const std::size_t perMessage = messageBytes + tunnel::PacketQueue::kFrameHeaderBytes;
    const std::size_t together =
        std::max<std::size_t>(1, tunnel::PacketQueue::kBatchBytes / perMessage);
    const std::vector<std::span<const std::byte>> batch(together, message);
    while (count > 0) {
      const std::size_t now = std::min(count, together);
      if (!relay_.SendFrames(tunnel::kOpcodeBinary, std::span(batch).first(now))) {
        throw std::runtime_error("own: the connection has ended");
      }
      count -= now;
    }
  }

  std::size_t Receive() override {
    std::span<std::byte> message;
    if (!relay_.ReadMessage(message)) throw std::runtime_error("own: the connection has ended");
    return message.size();
  }

 private:
  tunnel::WebSocketRelay relay_;
};

}  // namespace

std::unique_ptr<Client> ConnectOwn(std::uint16_t port) {
  return std::make_unique<OwnClient>(port);
}

}  // namespace bench
