// A running tunnel must not allocate memory for packets of known flows. This is a separate program,
// because it replaces the allocator.

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <new>
#include <thread>

#include "platform/mutex.h"
#include "tunnel/driver/silent_driver.h"
#include "tunnel/packets/bytes.h"
#include "tunnel/packets/test_packets.h"
#include "tunnel/relay/test_relay.h"
#include "tunnel/relay/udp_datagram.h"
#include "tunnel/relay/udp_relay.h"
#include "tunnel/session.h"

namespace {

// Counts only the threads that carry packets; the test's relay may allocate.
std::atomic<std::size_t> allocations{0};
thread_local bool isCounted = false;

}  // namespace

void* operator new(std::size_t size) {
  if (isCounted) ++allocations;
  if (void* const memory = std::malloc(size)) return memory;
  throw std::bad_alloc();
}
void operator delete(void* memory) noexcept {
  std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
  std::free(memory);
}

namespace tunnel {
namespace {

constexpr std::uint32_t kComputer = 0xC0A80132;
constexpr std::size_t kFlows = 50;

// A driver that captures a stream of packets, limited by `allowed`, and counts the injected
// answers. A global, because the driver's functions have no context argument.
struct LoopDriver {
  platform::Mutex lock;
  platform::Condition changed;
  std::size_t packetBytes GUARDED_BY(lock) = 0;
  std::size_t allowed GUARDED_BY(lock) = 0;
  std::size_t captured GUARDED_BY(lock) = 0;
  std::size_t injected GUARDED_BY(lock) = 0;
  std::size_t heldUntil GUARDED_BY(lock) = 0;  // packets to capture before the first is sent
  bool isClosed GUARDED_BY(lock) = false;
};
LoopDriver loop;

int Capture(WinDivertHandle, void* data, std::uint32_t, std::uint32_t* length, WinDivertAddress*) {
  isCounted = true;
  const platform::MutexLock held(loop.lock);
  while (!loop.isClosed && loop.captured >= loop.allowed) loop.changed.Wait(loop.lock);
  if (loop.isClosed) return 0;
  const std::span packet(static_cast<std::byte*>(data), loop.packetBytes);
  std::ranges::fill(packet, std::byte{0});
  WriteU8(packet, 0, 0x45);
  WriteU16Be(packet, 2, static_cast<std::uint16_t>(packet.size()));
  WriteU8(packet, 9, kProtocolUdp);
  SetSourceAddress(packet, kComputer);
  SetDestinationAddress(packet, 0x0A000005);
  WriteU16Be(packet, 20, static_cast<std::uint16_t>(1000 + loop.captured % kFlows));
  WriteU16Be(packet, 22, 502);
  *length = static_cast<std::uint32_t>(packet.size());
  ++loop.captured;
  loop.changed.NotifyAll();
  return 1;
}

int Inject(WinDivertHandle, const void* data, std::uint32_t length, std::uint32_t*,
           const WinDivertAddress*) {
  isCounted = true;
  const std::span packet(static_cast<const std::byte*>(data), length);
  EXPECT_EQ(DestinationAddress(packet), kComputer);
  const platform::MutexLock held(loop.lock);
  ++loop.injected;
  loop.changed.NotifyAll();
  return 1;
}

int CloseHandle(WinDivertHandle) {
  const platform::MutexLock held(loop.lock);
  loop.isClosed = true;
  loop.changed.NotifyAll();
  return 1;
}

std::unique_ptr<WinDivertApi> LoopDriverApi() {
  std::unique_ptr<WinDivertApi> api = SilentDriver();
  api->recv = Capture;
  api->send = Inject;
  api->close = CloseHandle;
  return api;
}

// Runs on the thread that sends a packet.
void BeforeSend() {
  isCounted = true;
  const platform::MutexLock held(loop.lock);
  while (!loop.isClosed && loop.captured < loop.heldUntil) loop.changed.Wait(loop.lock);
}

// Turns a packet into the site's answer.
void TurnIntoAnswer(std::span<std::byte> packet) {
  const std::uint32_t source = SourceAddress(packet);
  SetSourceAddress(packet, DestinationAddress(packet));
  SetDestinationAddress(packet, source);
  const std::uint16_t port = ReadU16Be(packet, 20);
  WriteU16Be(packet, 20, ReadU16Be(packet, 22));
  WriteU16Be(packet, 22, port);
}

void AnswerFrames(TestPeer& peer) {
  if (peer.ReadRequest().empty() || !peer.AcceptUpgrade()) return;
  while (std::optional<TestPeer::Frame> frame = peer.ReadFrame()) {
    TurnIntoAnswer(frame->payload);
    peer.Send(ServerFrame(0x82, frame->payload));
  }
}

// The UDP path's other end, on the same port number as the WebSocket relay.
class DatagramAnswers {
 public:
  explicit DatagramAnswers(std::uint16_t port) {
    int error = library_.Start();
    socket_ = platform::Socket::Create(platform::SocketKind::UdpIpv4,
                                       platform::SocketAddress::Loopback(port).Family(), error);
    EXPECT_EQ(socket_->Bind(platform::SocketAddress::Loopback(port)), 0);
    thread_ = std::thread([this] { Run(); });
  }
  ~DatagramAnswers() {
    socket_->Close();
    thread_.join();
  }
  DatagramAnswers(const DatagramAnswers&) = delete;
  DatagramAnswers& operator=(const DatagramAnswers&) = delete;

 private:
  void Run() {
    Bytes buffer(2000);
    platform::SocketAddress from;
    for (;;) {
      const platform::SocketResult got = socket_->ReceiveFrom(buffer, from);
      if (platform::IsSocketClosed(got.error)) return;
      std::span<std::byte> datagram = std::span(buffer).first(got.bytes);
      if (got.bytes > 4 && ReadU8(datagram, 4) == kRelayModeHello) {
        WriteU8(buffer, 4, 3);
        WriteU8(buffer, 5, kRelayModeHello);
        WriteU64Be(buffer, 6, 77);
        datagram = std::span(buffer).first(14);
      } else if (got.bytes > kUdpHeaderBytes) {
        TurnIntoAnswer(datagram.subspan(kUdpHeaderBytes));
      }
      socket_->SendTo(datagram, from);
    }
  }

  platform::SocketLibrary library_;
  std::shared_ptr<platform::Socket> socket_;
  std::thread thread_;
};

// The real datagram socket; marks the threads that use it.
class CountedDatagramSocket final : public DatagramSocket {
 public:
  explicit CountedDatagramSocket(const std::wstring& url) : socket_(url, std::chrono::seconds(1)) {}
  void SetReceiveTimeout(std::chrono::milliseconds timeout) noexcept override {
    socket_.SetReceiveTimeout(timeout);
  }
  platform::SocketResult Send(std::span<const std::byte> datagram) noexcept override {
    if (datagram.size() > kUdpHeaderBytes + 20) BeforeSend();  // not the starting thread's hello
    return socket_.Send(datagram);
  }
  platform::SocketResult Receive(std::span<std::byte> buffer) noexcept override {
    return socket_.Receive(buffer);
  }
  void Close() noexcept override { socket_.Close(); }

 private:
  RelayDatagramSocket socket_;
};

class CountedNetwork final : public UdpNetwork {
 public:
  DatagramSocketPointer OpenSocket(const std::wstring& url, std::chrono::milliseconds,
                                   const std::function<bool()>&) override {
    return std::make_shared<CountedDatagramSocket>(url);
  }
  [[nodiscard]] std::chrono::milliseconds Now() const override { return RealUdpNetwork().Now(); }
  void Wait(platform::Condition& condition, platform::Mutex& mutex,
            std::chrono::milliseconds time) override REQUIRES(mutex) {
    RealUdpNetwork().Wait(condition, mutex, time);
  }
};

SessionDeps Deps() {
  SessionDeps deps;
  deps.loadDriver = LoopDriverApi;
  deps.collectLocalNetworks = [] { return LocalNetworks{}; };
  deps.makeUdpRelay = [](RelayHost& host) {
    static CountedNetwork network;
    return std::make_unique<SocketUdpRelay>(host, network);
  };
  deps.runHidden = [](const std::wstring&, std::chrono::milliseconds) { return true; };
  deps.tickMs = []() -> std::uint32_t {
    BeforeSend();
    return 0;
  };
  deps.pause = [](StopSignal& signal, std::chrono::milliseconds time) { signal.WaitFor(time); };
  return deps;
}

// Sends `count` packets, at most `window` of them in flight. The first `window` are queued
// together, so that memory use peaks at the start.
void Exchange(std::size_t packetBytes, std::size_t count, std::size_t window) {
  const platform::MutexLock held(loop.lock);
  loop.packetBytes = packetBytes;
  loop.heldUntil = loop.captured + window;
  const std::size_t end = loop.captured + count;
  while (loop.injected < end) {
    loop.allowed = std::min(end, loop.injected + window);
    loop.changed.NotifyAll();
    ASSERT_TRUE(loop.changed.WaitFor(loop.lock, std::chrono::seconds(10))) << loop.injected;
  }
}

class PacketAllocations : public testing::Test {
 protected:
  PacketAllocations() {
    const platform::MutexLock held(loop.lock);
    loop.captured = loop.injected = loop.allowed = loop.heldUntil = 0;
    loop.isClosed = false;
  }

  // Packets of that size must cost nothing after a warm-up.
  void ExpectNone(std::size_t packetBytes) {
    TestRelay relay(AnswerFrames);
    DatagramAnswers datagrams(relay.Port());
    Session session(Deps());
    TunnelObserver observer;
    observer.linkChanged = [](bool) {};
    observer.udpChanged = [](bool ready) { EXPECT_TRUE(ready); };
    observer.reconnectFailed = [](const std::string& reason) { ADD_FAILURE() << reason; };
    observer.notice = [](const std::wstring&) {};
    session.Observe(std::move(observer));
    TunnelRequest request;
    request.serverUrl = relay.ServerUrl();
    request.connectionId = L"C1";
    request.engineerId = L"ENG-1";
    request.assignedAddress = L"10.99.0.7/32";
    request.routes = {L"10.0.0.0/24"};
    session.Start(request);
    Exchange(packetBytes, 2000, 50);
    const std::size_t before = allocations;
    EXPECT_GT(before, 0U);  // counting works: the first packets allocate tables and buffers
    Exchange(packetBytes, 3000, 25);
    EXPECT_EQ(allocations - before, 0U);
    session.Stop();
  }
};

TEST_F(PacketAllocations, ASmallPacketByUdpCostsNone) {
  ExpectNone(60);
}

TEST_F(PacketAllocations, AFullPacketByUdpCostsNone) {
  ExpectNone(1330);
}

TEST_F(PacketAllocations, APacketByTheWebSocketCostsNone) {
  ExpectNone(1350);
}

TEST_F(PacketAllocations, ALongPacketByTheWebSocketCostsNone) {
  ExpectNone(9000);
}

}  // namespace
}  // namespace tunnel
