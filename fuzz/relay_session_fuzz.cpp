// One tunnel from its handshake to its end, as a script of steps: the relay's frames, whole or cut
// anywhere, its datagrams, captured packets, errors, reconnects and the passing of time. The parts
// of a session are connected as in the program but run on one thread: the bodies of the relay and
// sender threads, the link, the packet path, the queue and the driver's binding. Only the UDP relay
// keeps its two threads, which run while the script waits for them. The session's own threads and
// real sockets would make results differ between runs of one input.
//
// Whatever happens, the relay receives only whole frames and datagrams, each with a packet from the
// tunnel address, and this computer receives only answers to its own packets.

#include <cerrno>
#include <stdexcept>

#include "fuzz_input.h"
#include "memory_socket.h"
#include "scripted_network.h"
#include "session_checks.h"
#include "tunnel/driver/packet_path.h"
#include "tunnel/relay/relay_threads.h"
#include "tunnel/relay/udp_datagram.h"

namespace tunnel {
namespace {

using fuzz::Require;
using platform::SocketResult;

constexpr std::uint32_t kTunnelAddress = 0x0A630007;  // 10.99.0.7
constexpr wchar_t kRelayUrl[] = L"ws://127.0.0.1:31080/api/relay/client/c1?engineerId=e";
constexpr int kMaxConnects = 6;
constexpr std::string_view kAccepted = "HTTP/1.1 101 Switching Protocols\r\n\r\n";

const std::vector<RouteMapping> kMappings = {
    {0x0A000000, 24, 0x0A000000, 24, false},
    {0xC0A80100, 24, 0xAC1F0000, 24, true},
    {0xC0A80200, 31, 0xAC1F0100, 31, true},
};

class Script final : public fuzz::StreamPeer, private RelayHost {
 public:
  explicit Script(fuzz::Input input) : input_(input) { fuzz::SetStreamPeer(this); }
  ~Script() override { fuzz::SetStreamPeer(nullptr); }

  void Run() {
    const std::uint8_t choices = input_.Byte();
    isDiscovering_ = choices % 2 == 1;
    driver_.Load(fuzz::CheckingDriver(answers_));
    driver_.OpenCapture(L"true");
    driver_.OpenInject();
    queue_.Start();
    path_.Configure(kTunnelAddress, kMappings, isDiscovering_);
    flags_.running = true;
    try {
      link_.Connect(kRelayUrl);
      udp_.StartUdpRelay({});
      Work();
    } catch (const std::runtime_error&) {
      // Starting a tunnel requires a relay.
    }
    End();
  }

  int Connect() override {
    Require(++connects_ <= kMaxConnects);
    sent_.Begin();
    return input_.Byte() == 0xFF ? ECONNREFUSED : 0;
  }

  SocketResult Send(std::span<const std::byte> bytes) override {
    if (sendsFail_) return {0, EPIPE};
    const std::size_t moved = std::min(bytes.size(), sendAtMost_);
    sent_.Add(bytes.first(moved));
    return {moved, 0};
  }

  // Continues the script until a step produces bytes for the stream.
  SocketResult Receive(std::span<std::byte> buffer) override {
    while (!input_.IsEmpty() && flags_.KeepGoing()) {
      const fuzz::Bytes bytes = Step();
      Require(!realUdp_.IsReady() || (network_.IsOpen() && network_.HasRecentAcknowledgement()));
      if (hasEnded_) {
        hasEnded_ = false;
        return {0, input_.Byte() % 2 == 0 ? 0 : ECONNRESET};
      }
      if (bytes.empty()) continue;
      Require(bytes.size() <= buffer.size());
      std::ranges::copy(bytes, buffer.begin());
      return {bytes.size(), 0};
    }
    Stop();
    return {0, platform::SocketClosedError()};
  }

 private:
  // The UDP relay, unless the script starts without one. The sender loop calls IsReady() once per
  // batch, which ends the loop after that batch.
  class UdpPath final : public UdpRelay {
   public:
    explicit UdpPath(Script& script) : script_(script) {}
    void StartUdpRelay(const UdpRelayRequest& request) override { script_.StartUdp(request); }
    void Close() noexcept override { script_.realUdp_.Close(); }
    void Join() noexcept override { script_.realUdp_.Join(); }
    bool IsReady() const noexcept override {
      script_.senderFlags_.running = false;
      return script_.realUdp_.IsReady();
    }
    bool SendUdpPacket(std::span<const std::byte> packet) override {
      return script_.realUdp_.SendUdpPacket(packet);
    }

   private:
    Script& script_;
  };

  void Work() {
    RelayWorker(*this, link_, udp_, kRelayUrl, {}).Run();
    Require(!flags_.KeepGoing());
  }

  // In discovery mode, broadcasts are captured only while the relay is connected.
  void OnLinkChanged(bool isConnected) override {
    Require(isConnected != isConnected_);
    isConnected_ = isConnected;
    if (!isDiscovering_) return;
    try {
      driver_.ReplaceCapture(isConnected ? L"true" : L"tcp");
    } catch (const std::runtime_error&) {
      // The capture continues with the old filter.
    }
  }

  void OnReconnectFailed(const std::string& reason) override { Require(!reason.empty()); }
  void OnUdpChanged(bool) override {}
  [[nodiscard]] bool KeepGoing() const noexcept override { return flags_.KeepGoing(); }

  void Pause(std::chrono::milliseconds time) override {
    Require(time.count() >= 1000 && time.count() <= 10000);
    if (input_.IsEmpty() || connects_ == kMaxConnects) Stop();
  }

  // In the order of Session's stop.
  void Stop() {
    flags_.stopping = true;
    flags_.running = false;
    driver_.CloseHandles();
    link_.Close();
    realUdp_.Close();
    queue_.Stop();
  }

  void End() {
    Stop();
    realUdp_.Join();
    link_.Release();
    driver_.Unload();
    Require(fuzz::OpenDriverHandles() == 0 && !realUdp_.IsReady());
    path_.ClearFlows();
    queue_.Clear();
  }

  // 1: the relay answers; 2: it does not; 3: sending fails; 4: the start fails; others: no UDP.
  void StartUdp(const UdpRelayRequest& request) {
    const int kind = input_.Byte() % 8;
    if (kind == 0 || kind > 4) return;
    if (kind == 4) throw std::runtime_error("UDP socket failed.");
    network_.SetAnswering(kind == 1);
    network_.SetFailing(kind == 3);
    realUdp_.StartUdpRelay(request);
    network_.AwaitQuiet();
  }

  void HandleInbound(std::span<std::byte> packet) noexcept override {
    try {
      path_.HandleInbound(packet);
    } catch (const std::runtime_error&) {
      // The driver refused to inject it.
    }
  }

  fuzz::Bytes TakeBytes() {
    const auto bytes = input_.Bytes(input_.Byte());
    return {bytes.begin(), bytes.end()};
  }

  // Runs one step; returns its bytes for the stream.
  fuzz::Bytes Step() {
    switch (input_.Byte() % 16) {
      case 0:
        return TakeBytes();
      case 1:
        return BytesOf(kAccepted);
      case 2:
        return ServerFrame(0x82, TakeBytes());
      case 3:
        return ServerFrame(0x82, LastAnswer());
      case 4:
        return ServerFrame(input_.Byte(), TakeBytes());
      case 5:
        return ServerFrame(input_.Byte(), Pattern(std::size_t{input_.Byte()} * 250));
      case 6:
        hasEnded_ = true;
        return {};
      case 7:
        Capture(TakeBytes(), 1);
        return {};
      case 8:
        CaptureAgain();
        return {};
      case 9:
        network_.Deliver(TakeBytes());
        return {};
      case 10:
        DeliverScripted();
        return {};
      case 11:
        network_.Deliver(fuzz::ScriptedNetwork::PacketDatagram(LastAnswer()));
        return {};
      case 12:
        network_.Advance(std::chrono::milliseconds(250 * input_.Byte()));
        return {};
      case 13:
        ChangeNetwork(input_.Byte());
        return {};
      case 14:
        link_.Close();
        return {};
      default:
        return {};
    }
  }

  void DeliverScripted() {
    if (input_.Byte() % 2 == 1) {
      network_.Deliver(fuzz::ScriptedNetwork::PacketDatagram(TakeBytes()));
    } else {
      network_.Deliver(fuzz::ScriptedNetwork::Acknowledgement());
      Require(realUdp_.IsReady() == network_.IsOpen());
    }
  }

  void ChangeNetwork(std::uint8_t how) {
    network_.SetAnswering(how % 2 == 0);
    network_.SetFailing(how / 2 % 2 == 1);
    fuzz::SetDriverFailing(how % 16 == 15);
    sendsFail_ = how / 4 % 8 == 7;
    sendAtMost_ = how / 32 == 0 ? SIZE_MAX : std::size_t{how} / 32 * 50;  // bytes
  }

  // Passes a captured packet to the path `times` times, with the readable bytes that must follow
  // it, then runs the sender.
  void Capture(Packet packet, int times) {
    captured_ = packet;
    if (const auto view = ValidatePacket(packet)) {
      const std::uint32_t source = view->SourceAddress();
      answers_.insert({view->DestinationAddress(), source});
      for (const RouteMapping& mapping : kMappings) {
        if (isDiscovering_) answers_.insert({LastAddress(mapping.Mapped()), source});
      }
    }
    const std::size_t length = packet.size();
    packet.resize(length + kReadableBehindPacket);
    WinDivertAddress address;
    address.interfaceIndex = fuzz::kInterface;
    for (; times > 0; --times) {
      Packet copy = packet;
      path_.HandleOutbound(std::span(copy).first(length), address);
    }
    while (queue_.Size() > 0) {
      senderFlags_.running = true;
      SenderLoop(senderFlags_, queue_, link_, udp_);
    }
  }

  // The last packet again, longer and several times before the sender runs.
  void CaptureAgain() {
    Packet packet = captured_;
    if (packet.size() < 20) return;
    const std::uint8_t how = input_.Byte();
    packet.resize(packet.size() + std::size_t{how} / 8 * 64);
    WriteU16Be(packet, 2, static_cast<std::uint16_t>(packet.size()));
    Capture(packet, how % 8 + 1);
  }

  // The site's answer to the last packet sent: addresses and ports swapped.
  fuzz::Bytes LastAnswer() {
    fuzz::Bytes packet = left_;
    const auto view = ValidatePacket(packet);
    if (!view) return packet;
    const std::uint32_t source = view->SourceAddress();
    view->SetSourceAddress(view->DestinationAddress());
    view->SetDestinationAddress(source);
    if (view->Is(kProtocolIcmp)) return packet;
    const std::size_t at = view->Layout().transportOffset;
    const std::uint32_t ports = ReadU32Be(packet, at);
    WriteU32Be(packet, at, ports << 16 | ports >> 16);
    return packet;
  }

  void CheckDatagram(std::span<const std::byte> datagram) {
    const std::string_view magic = "TNR1";
    Require(datagram.size() > 4);
    Require(std::ranges::equal(datagram.first(4), BytesOf(magic)));
    if (datagram[4] == std::byte{2}) return;  // a hello
    Require(datagram[4] == std::byte{4} && datagram.size() <= kMaxUdpDatagramBytes);
    left_ = fuzz::CheckedPacket(datagram.subspan(kUdpHeaderBytes), kTunnelAddress);
  }

  fuzz::Input input_;
  bool isDiscovering_ = false;
  fuzz::Answers answers_;
  TunnelFlags flags_;
  TunnelFlags senderFlags_;
  StopSignal signal_{flags_};
  Driver driver_;
  PacketQueue queue_;
  PacketPath path_{driver_, queue_};
  RelayLink link_{signal_, [] { return 0U; }};
  fuzz::ScriptedNetwork network_{[this](auto datagram) { CheckDatagram(datagram); }};
  SocketUdpRelay realUdp_{*this, network_};
  UdpPath udp_{*this};

  int connects_ = 0;
  bool isConnected_ = true;
  bool hasEnded_ = false;
  bool sendsFail_ = false;
  std::size_t sendAtMost_ = SIZE_MAX;
  fuzz::SentStream sent_{
      [this](auto packet) { left_ = fuzz::CheckedPacket(packet, kTunnelAddress); }};
  Packet captured_;
  fuzz::Bytes left_;  // the last packet that went to the relay
};

}  // namespace
}  // namespace tunnel

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t sizeBytes) {
  tunnel::Script(fuzz::Input(data, sizeBytes)).Run();
  return 0;
}
