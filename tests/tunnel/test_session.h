#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "platform/mutex.h"
#include "tunnel/driver/fake_driver.h"
#include "tunnel/relay/test_relay.h"
#include "tunnel/session.h"

namespace tunnel {

// A session's dependencies besides driver and relay. Records commands, UDP calls and pauses, and
// makes them fail or block on demand. By default a pause ends at once.
//
// Threads: any. Waits end within ten seconds.
class TestWorld {
 public:
  std::atomic<const char*> driverError{nullptr};  // what loading the driver throws
  std::atomic<const char*> udpError{nullptr};     // what starting the UDP path throws
  std::atomic<bool> failCommands{false};
  std::atomic<int> udpStartEndsAfter{0};  // a start of the UDP path waits for this many closes

  SessionDeps Deps(FakeDriver& driver);

  // This computer's networks; initially 192.168.1.0/24.
  void SetLocalNetworks(LocalNetworks local) EXCLUDES(lock_);

  // From now on each pause lasts until released or cut short.
  void HoldPauses() EXCLUDES(lock_);
  // Releases the current pause, or else the next one.
  void ReleasePause() EXCLUDES(lock_);
  [[nodiscard]] bool WaitForPauses(std::size_t count) EXCLUDES(lock_);
  [[nodiscard]] bool WaitForUdpStarts(std::size_t count) EXCLUDES(lock_);

  [[nodiscard]] std::vector<std::chrono::milliseconds> Pauses() const EXCLUDES(lock_);
  [[nodiscard]] std::vector<std::wstring> Commands() const EXCLUDES(lock_);
  // The events since the last call, with the driver's state at that time: "udp start with N
  // handles", "udp started" after one that blocked, "udp close with N handles", "udp join",
  // "command with N libraries".
  std::vector<std::string> Take() EXCLUDES(lock_);

  // The calls that the UDP path can make on the session.
  struct UdpCalls {
    std::function<void(std::span<std::byte>)> inbound;
    std::function<bool()> keepGoing;
    std::function<void(bool ready)> readyChanged;
  };
  [[nodiscard]] const UdpCalls& UdpHooks() const { return udpHooks_; }
  [[nodiscard]] std::vector<UdpRelayRequest> UdpStarts() const EXCLUDES(lock_);

  void StartUdp(const UdpRelayRequest& request, const std::string& handles) EXCLUDES(lock_);
  void CloseUdp(const std::string& handles) EXCLUDES(lock_);
  void Note(std::string event) EXCLUDES(lock_);

 private:
  void Pause(StopSignal& signal, std::chrono::milliseconds time) EXCLUDES(lock_);
  template <typename Condition>
  bool WaitUntil(Condition condition) REQUIRES(lock_);

  mutable platform::Mutex lock_;
  platform::Condition changed_;
  LocalNetworks local_ GUARDED_BY(lock_){{{0xC0A80100, 24}}, 0};
  bool holdsPauses_ GUARDED_BY(lock_) = false;
  int released_ GUARDED_BY(lock_) = 0;
  UdpCalls udpHooks_;  // set while the session is made
  std::vector<UdpRelayRequest> udpStarts_ GUARDED_BY(lock_);
  int udpCloses_ GUARDED_BY(lock_) = 0;
  std::vector<std::chrono::milliseconds> pauses_ GUARDED_BY(lock_);
  std::vector<std::wstring> commands_ GUARDED_BY(lock_);
  std::vector<std::string> events_ GUARDED_BY(lock_);
};

// A session on a fake driver and a loopback relay, with a valid request. This computer is in
// 192.168.1.0/24, so the site's network with that address is mapped to 172.31.0.0/24.
class SessionFixture : public testing::Test {
 protected:
  SessionFixture();
  void TearDown() override;
  void ExpectNothingLeft();

  TestRelay relay_;
  FakeDriver driver_;
  TestWorld world_;
  TunnelRequest request_;
  std::unique_ptr<Session> session_;
};

}  // namespace tunnel
