#include "tunnel/test_session.h"

#include <stdexcept>

#include "tunnel/patience.h"

namespace tunnel {
namespace {

// A UDP path that only records its calls.
class RecordingUdpRelay : public UdpRelay {
 public:
  RecordingUdpRelay(TestWorld& world, FakeDriver& driver) : world_(world), driver_(driver) {}
  void StartUdpRelay(const UdpRelayRequest& request) override {
    world_.StartUdp(request, Handles());
  }
  void Close() noexcept override { world_.CloseUdp(Handles()); }
  void Join() noexcept override { world_.Note("udp join"); }
  [[nodiscard]] bool IsReady() const noexcept override { return false; }
  bool SendUdpPacket(std::span<const std::byte>) override { return false; }

 private:
  std::string Handles() const {
    return " with " + std::to_string(driver_.OpenHandles()) + " handles";
  }

  TestWorld& world_;
  FakeDriver& driver_;
};

}  // namespace

SessionDeps TestWorld::Deps(FakeDriver& driver) {
  SessionDeps deps;
  deps.loadDriver = [this, &driver]() {
    if (const char* const error = driverError) throw std::runtime_error(error);
    return driver.Api();
  };
  deps.collectLocalNetworks = [this]() {
    const platform::MutexLock held(lock_);
    return local_;
  };
  deps.makeUdpRelay = [this, &driver](RelayHost& host) {
    udpHooks_.inbound = [&host](std::span<std::byte> packet) { host.HandleInbound(packet); };
    udpHooks_.keepGoing = [&host]() { return host.KeepGoing(); };
    udpHooks_.readyChanged = [&host](bool ready) { host.OnUdpChanged(ready); };
    return std::make_unique<RecordingUdpRelay>(*this, driver);
  };
  deps.runHidden = [this, &driver](const std::wstring& command, std::chrono::milliseconds wait) {
    EXPECT_EQ(wait, std::chrono::milliseconds(5000));
    Note("command with " + std::to_string(driver.LoadedLibraries()) + " libraries");
    const platform::MutexLock held(lock_);
    commands_.push_back(command);
    if (failCommands) throw std::runtime_error("no such command");
    return true;
  };
  deps.pause = [this](StopSignal& signal, std::chrono::milliseconds time) { Pause(signal, time); };
  return deps;
}

void TestWorld::Pause(StopSignal& signal, std::chrono::milliseconds time) {
  {
    const platform::MutexLock held(lock_);
    pauses_.push_back(time);
  }
  changed_.NotifyAll();
  for (;;) {
    {
      const platform::MutexLock held(lock_);
      if (!holdsPauses_) return;
      if (released_ > 0) {
        --released_;
        return;
      }
    }
    if (signal.WaitFor(std::chrono::milliseconds(1))) return;
  }
}

void TestWorld::SetLocalNetworks(LocalNetworks local) {
  const platform::MutexLock held(lock_);
  local_ = std::move(local);
}

void TestWorld::HoldPauses() {
  const platform::MutexLock held(lock_);
  holdsPauses_ = true;
}

void TestWorld::ReleasePause() {
  const platform::MutexLock held(lock_);
  ++released_;
}

template <typename Condition>
bool TestWorld::WaitUntil(Condition condition) {
  const auto deadline = std::chrono::steady_clock::now() + kPatience;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    changed_.WaitFor(lock_, std::chrono::milliseconds(100));
  }
  return true;
}

bool TestWorld::WaitForPauses(std::size_t count) {
  const platform::MutexLock held(lock_);
  return WaitUntil([&]() REQUIRES(lock_) { return pauses_.size() >= count; });
}

bool TestWorld::WaitForUdpStarts(std::size_t count) {
  const platform::MutexLock held(lock_);
  return WaitUntil([&]() REQUIRES(lock_) { return udpStarts_.size() >= count; });
}

std::vector<std::chrono::milliseconds> TestWorld::Pauses() const {
  const platform::MutexLock held(lock_);
  return pauses_;
}

std::vector<std::wstring> TestWorld::Commands() const {
  const platform::MutexLock held(lock_);
  return commands_;
}

std::vector<std::string> TestWorld::Take() {
  const platform::MutexLock held(lock_);
  return std::exchange(events_, {});
}

std::vector<UdpRelayRequest> TestWorld::UdpStarts() const {
  const platform::MutexLock held(lock_);
  return udpStarts_;
}

void TestWorld::StartUdp(const UdpRelayRequest& request, const std::string& handles) {
  if (const char* const error = udpError) throw std::runtime_error(error);
  const platform::MutexLock held(lock_);
  udpStarts_.push_back(request);
  events_.push_back("udp start" + handles);
  changed_.NotifyAll();
  if (udpStartEndsAfter == 0) return;
  const int enough = udpCloses_ + udpStartEndsAfter;
  EXPECT_TRUE(WaitUntil([&]() REQUIRES(lock_) { return udpCloses_ >= enough; }));
  events_.emplace_back("udp started");
}

void TestWorld::CloseUdp(const std::string& handles) {
  const platform::MutexLock held(lock_);
  ++udpCloses_;
  events_.push_back("udp close" + handles);
  changed_.NotifyAll();
}

void TestWorld::Note(std::string event) {
  const platform::MutexLock held(lock_);
  events_.push_back(std::move(event));
}

SessionFixture::SessionFixture() {
  request_.serverUrl = relay_.ServerUrl();
  request_.connectionId = L"c1";
  request_.engineerId = L"ENG-1";
  request_.assignedAddress = L"10.99.0.7/16";
  request_.routes = {L"192.168.1.0/24", L"10.0.0.0/8"};
  session_ = std::make_unique<Session>(world_.Deps(driver_));
}

void SessionFixture::TearDown() {
  session_.reset();
  EXPECT_EQ(driver_.OpenHandles(), 0U);
  EXPECT_EQ(driver_.LoadedLibraries(), 0);
  EXPECT_EQ(driver_.Misuses(), std::vector<std::string>{});
}

void SessionFixture::ExpectNothingLeft() {
  EXPECT_FALSE(session_->IsRunning());
  EXPECT_EQ(driver_.OpenHandles(), 0U);
  EXPECT_EQ(driver_.LoadedLibraries(), 0);
  EXPECT_EQ(driver_.Misuses(), std::vector<std::string>{});
}

}  // namespace tunnel
