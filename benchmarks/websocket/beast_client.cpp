#include <boost/asio/connect.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/websocket.hpp>
#include <vector>

#include "benchmarks/websocket/client.h"

namespace bench {
namespace {

namespace asio = boost::asio;
namespace beast = boost::beast;

class BeastClient final : public Client {
 public:
  explicit BeastClient(std::uint16_t port) {
    stream_.next_layer().connect({asio::ip::address_v4::loopback(), port});
    stream_.next_layer().set_option(asio::ip::tcp::no_delay(true));
    stream_.next_layer().set_option(asio::socket_base::send_buffer_size(4194304));
    stream_.next_layer().set_option(asio::socket_base::receive_buffer_size(4194304));
    stream_.secure_prng(false);
    stream_.auto_fragment(false);
    stream_.write_buffer_bytes(65536);
    stream_.binary(true);
    stream_.handshake("127.0.0.1", "/");
  }

  void Send(std::size_t messageBytes, std::size_t count) override {
    const std::vector<std::byte> message(messageBytes, std::byte{0x5A});
    const asio::const_buffer buffer(message.data(), message.size());
    for (; count > 0; --count) stream_.write(buffer);
  }

  std::size_t Receive() override {
    buffer_.clear();
    return stream_.read(buffer_);
  }

 private:
  asio::io_context context_;
  beast::websocket::stream<asio::ip::tcp::socket> stream_{context_};
  beast::flat_buffer buffer_;
};

}  // namespace

std::unique_ptr<Client> ConnectBeast(std::uint16_t port) {
  return std::make_unique<BeastClient>(port);
}

}  // namespace bench
