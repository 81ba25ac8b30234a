#pragma once

#include <functional>
#include <string>

#include "tunnel/relay/udp_relay.h"

namespace tunnel {

// A host that forwards each call to a function of the test. By default it continues and ignores all
// packets and reports.
class FakeRelayHost : public RelayHost {
 public:
  std::function<void(std::span<std::byte>)> inbound = [](std::span<std::byte>) {};
  std::function<bool()> keepGoing = []() { return true; };
  std::function<void(bool ready)> readyChanged = [](bool) {};
  std::function<void(bool connected)> linkChanged = [](bool) {};
  std::function<void(std::chrono::milliseconds)> pause = [](std::chrono::milliseconds) {};

  [[nodiscard]] bool KeepGoing() const noexcept override { return keepGoing(); }
  void HandleInbound(std::span<std::byte> packet) noexcept override { inbound(packet); }
  void Pause(std::chrono::milliseconds time) override { pause(time); }
  void OnLinkChanged(bool connected) override { linkChanged(connected); }
  void OnReconnectFailed(const std::string&) override {}
  void OnUdpChanged(bool ready) override { readyChanged(ready); }
};

}  // namespace tunnel
