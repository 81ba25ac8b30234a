#include "tunnel/relay/relay_threads.h"

#include <gtest/gtest.h>

#include <new>
#include <thread>

#include "tunnel/relay/fake_relay_host.h"
#include "tunnel/relay/test_relay.h"

// Cases that a session cannot reach; the session's tests cover the rest of the worker.
namespace tunnel {
namespace {

using std::chrono::milliseconds;

class CountingUdpRelay : public UdpRelay {
 public:
  void StartUdpRelay(const UdpRelayRequest&) override { ++starts; }
  void Close() noexcept override {}
  void Join() noexcept override {}
  [[nodiscard]] bool IsReady() const noexcept override { return false; }
  bool SendUdpPacket(std::span<const std::byte>) override { return false; }

  int starts = 0;
};

class RelayWorkerTest : public testing::Test {
 protected:
  void SetUp() override { flags_.running = true; }
  // Runs the worker to its end on this thread.
  void RunWith(std::function<void(milliseconds)> pause) {
    FakeRelayHost host;
    host.keepGoing = [this]() { return flags_.KeepGoing(); };
    host.pause = std::move(pause);
    host.linkChanged = [this](bool connected) { changes_.push_back(connected); };
    RelayWorker(host, link_, udp_, relay_.RelayUrl(), {}).Run();
  }

  TestRelay relay_;
  TunnelFlags flags_;
  StopSignal signal_{flags_};
  RelayLink link_{signal_};
  CountingUdpRelay udp_;
  std::vector<milliseconds> pauses_;
  std::vector<bool> changes_;  // what linkChanged reported
};

TEST_F(RelayWorkerTest, DoesNothingOnceStopped) {
  flags_.stopping = true;
  RunWith([this](milliseconds time) { pauses_.push_back(time); });
  EXPECT_TRUE(pauses_.empty());
  EXPECT_TRUE(changes_.empty());
}

TEST_F(RelayWorkerTest, WithoutARelayConnectsAfterTheFirstWait) {
  std::thread ender([this]() {
    EXPECT_TRUE(relay_.WaitForConnections(1));
    while (!link_.IsConnected()) std::this_thread::yield();
    flags_.stopping = true;
    link_.Close();
  });
  RunWith([this](milliseconds time) { pauses_.push_back(time); });
  ender.join();
  EXPECT_EQ(pauses_, std::vector<milliseconds>{milliseconds(1000)});
  EXPECT_EQ(udp_.starts, 1);
  EXPECT_EQ(changes_, std::vector<bool>{true});  // it was never connected, so it was not lost
}

TEST_F(RelayWorkerTest, LackOfMemoryEndsItAndShowsInTheStatus) {
  link_.Connect(relay_.RelayUrl());
  relay_.CutConnection();
  RunWith([](milliseconds) { throw std::bad_alloc(); });
  EXPECT_NE(link_.LastError(), "");
  EXPECT_FALSE(link_.IsConnected());
  EXPECT_EQ(changes_, std::vector<bool>{false});
}

}  // namespace
}  // namespace tunnel
