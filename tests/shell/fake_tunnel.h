#pragma once

#include <atomic>
#include <functional>

#include "tunnel/tunnel.h"

namespace shell {

// A tunnel that only records its calls.
class FakeTunnel final : public tunnel::Tunnel {
 public:
  tunnel::TunnelStarted Start(const tunnel::TunnelRequest&) override {
    running = true;
    relayConnected = true;
    return {};
  }
  std::wstring Stop() override {
    ++stops;
    if (onStop) onStop();
    running = false;
    relayConnected = false;
    if (stopThrows) throw 7;
    return stopText;
  }
  void StopForGood() override {
    stoppedForGood = true;
    Stop();
  }
  void LookAtNetwork() override { ++looks; }
  void Observe(tunnel::TunnelObserver given) override { observer = std::move(given); }
  bool IsRunning() const noexcept override { return running; }
  bool IsRelayConnected() const noexcept override { return relayConnected; }

  std::atomic<bool> running{false};
  std::atomic<bool> relayConnected{false};
  std::atomic<int> stops{0};
  std::atomic<bool> stoppedForGood{false};
  std::atomic<int> looks{0};
  bool stopThrows = false;
  std::function<void()> onStop;
  tunnel::TunnelObserver observer;
  std::wstring stopText = L"软件隧道已停止。";
};

}  // namespace shell
