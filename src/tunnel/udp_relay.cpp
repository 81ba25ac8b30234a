#include "tunnel/udp_relay.h"

namespace tunnel {
namespace {

class IdleUdpRelay : public UdpRelay {
 public:
  void Start(const UdpRelayRequest&) override {}
  void Close() noexcept override {}
  void Join() noexcept override {}
  [[nodiscard]] bool IsReady() const noexcept override { return false; }
  bool Send(std::span<const std::byte>) override { return false; }
};

}  // namespace

std::unique_ptr<UdpRelay> MakeIdleUdpRelay(const UdpRelayHooks&) {
  return std::make_unique<IdleUdpRelay>();
}

}  // namespace tunnel
