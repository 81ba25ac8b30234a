#include "tunnel/relay/test_relay.h"

#include <chrono>
#include <stdexcept>

#include "tunnel/patience.h"

namespace tunnel {

std::optional<Bytes> TestPeer::Read(std::size_t size) {
  Bytes bytes(size);
  for (std::size_t have = 0; have < size;) {
    const platform::SocketResult got = socket_->Receive(std::span(bytes).subspan(have));
    if (got.bytes == 0) return std::nullopt;
    have += got.bytes;
  }
  return bytes;
}

std::string TestPeer::ReadRequest() {
  std::string request;
  while (!request.ends_with("\r\n\r\n")) {
    const std::optional<Bytes> byte = Read(1);
    if (!byte) return {};
    request += std::to_integer<char>(byte->front());
  }
  return request;
}

bool TestPeer::Send(std::span<const std::byte> bytes) {
  while (!bytes.empty()) {
    const platform::SocketResult sent = socket_->Send(bytes);
    if (sent.bytes == 0) return false;
    bytes = bytes.subspan(sent.bytes);
  }
  return true;
}

bool TestPeer::AcceptUpgrade() {
  // The accept value belongs to the sample key (RFC 6455, section 1.3).
  return Send(
      "HTTP/1.1 101 Switching Protocols\r\nUpgrade: websocket\r\nConnection: Upgrade\r\n"
      "Sec-WebSocket-Accept: s3pPLMBiTxaQ9kYGzzhZRbK+xOo=\r\n\r\n");
}

std::optional<TestPeer::Frame> TestPeer::ReadFrame() {
  const std::optional<Bytes> start = Read(2);
  if (!start) return std::nullopt;
  Frame frame;
  frame.firstByte = std::to_integer<int>((*start)[0]);
  const auto second = std::to_integer<unsigned>((*start)[1]);
  frame.isMasked = second >= 128;
  std::size_t size = second % 128;
  if (size >= 126) {
    const std::optional<Bytes> longer = Read(size == 126 ? 2 : 8);
    if (!longer) return std::nullopt;
    size = 0;
    for (const std::byte byte : *longer) size = size * 256 + std::to_integer<unsigned>(byte);
  }
  if (frame.isMasked) {
    const std::optional<Bytes> key = Read(4);
    if (!key) return std::nullopt;
    frame.key = *key;
  }
  std::optional<Bytes> payload = Read(size);
  if (!payload) return std::nullopt;
  frame.payload = *std::move(payload);
  for (std::size_t i = 0; frame.isMasked && i < size; ++i) frame.payload[i] ^= frame.key[i % 4];
  return frame;
}

void TestPeer::WaitForEnd() {
  while (Read(1)) {
  }
}

TestRelay::TestRelay() : TestRelay(nullptr) {}

TestRelay::TestRelay(Behaviour behaviour) : behaviour_(std::move(behaviour)) {
  int error = library_.Start();
  listener_ = platform::Socket::Create(platform::SocketKind::Tcp,
                                       platform::SocketAddress::Loopback(0).Family(), error);
  if (listener_ == nullptr || listener_->Bind(platform::SocketAddress::Loopback(0)) != 0 ||
      listener_->Listen() != 0) {
    throw std::runtime_error("no loopback port");
  }
  if (behaviour_ == nullptr) behaviour_ = Serve();
  thread_ = std::thread([this]() noexcept { Run(); });
}

TestRelay::~TestRelay() {
  {
    const platform::MutexLock held(lock_);
    isEnding_ = true;
    if (peer_ != nullptr) peer_->Close();
  }
  listener_->Close();
  thread_.join();
}

std::string TestRelay::HostAndPort() const {
  return "127.0.0.1:" + std::to_string(Port());
}

std::wstring TestRelay::ServerUrl() const {
  const std::string host = HostAndPort();
  return L"http://" + std::wstring(host.begin(), host.end());
}

std::wstring TestRelay::RelayUrl() const {
  return L"ws" + ServerUrl().substr(4) + L"/api/relay/client/c1?engineerId=ENG-1";
}

void TestRelay::SetBehaviour(Behaviour behaviour) {
  const platform::MutexLock held(lock_);
  behaviour_ = std::move(behaviour);
}

TestRelay::Behaviour TestRelay::Serve() {
  return [this](TestPeer& peer) { ServeOne(peer); };
}

TestRelay::Behaviour TestRelay::Refuse() {
  return [](TestPeer&) {};
}

void TestRelay::Run() noexcept {
  int error = 0;
  while (const std::shared_ptr<platform::Socket> socket = listener_->Accept(error)) {
    const auto peer = std::make_shared<TestPeer>(socket);
    Behaviour behaviour;
    {
      const platform::MutexLock held(lock_);
      if (isEnding_) return;
      behaviour = behaviour_;
      peer_ = peer;
    }
    behaviour(*peer);
    peer->Close();
    const platform::MutexLock held(lock_);
    peer_.reset();
    isUpgraded_ = false;
  }
}

std::string TestRelay::TakeRequest(TestPeer& peer) {
  std::string request = peer.ReadRequest();
  if (!request.empty()) {
    const platform::MutexLock held(lock_);
    requests_.push_back(request);
  }
  changed_.NotifyAll();
  return request;
}

void TestRelay::ServeOne(TestPeer& peer) {
  if (TakeRequest(peer).empty() || !peer.AcceptUpgrade()) return;
  {
    const platform::MutexLock held(lock_);
    isUpgraded_ = true;
    ++connections_;
  }
  changed_.NotifyAll();
  while (const std::optional<TestPeer::Frame> frame = peer.ReadFrame()) {
    {
      const platform::MutexLock held(lock_);
      frames_.push_back(*frame);
    }
    changed_.NotifyAll();
  }
}

template <typename Condition>
bool TestRelay::WaitUntil(Condition condition) {
  const auto deadline = std::chrono::steady_clock::now() + kPatience;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    changed_.WaitFor(lock_, std::chrono::milliseconds(100));
  }
  return true;
}

bool TestRelay::Push(std::span<const std::byte> bytes) {
  std::shared_ptr<TestPeer> peer;
  {
    const platform::MutexLock held(lock_);
    if (!WaitUntil([this]() REQUIRES(lock_) { return isUpgraded_; })) return false;
    peer = peer_;
  }
  return peer->Send(bytes);
}

void TestRelay::CutConnection() {
  const platform::MutexLock held(lock_);
  if (peer_ != nullptr) peer_->Close();
}

bool TestRelay::WaitForConnections(std::size_t count) {
  const platform::MutexLock held(lock_);
  return WaitUntil([&]() REQUIRES(lock_) { return connections_ >= count; });
}

bool TestRelay::WaitForRequests(std::size_t count) {
  const platform::MutexLock held(lock_);
  return WaitUntil([&]() REQUIRES(lock_) { return requests_.size() >= count; });
}

bool TestRelay::WaitForFrames(std::size_t count) {
  const platform::MutexLock held(lock_);
  return WaitUntil([&]() REQUIRES(lock_) { return frames_.size() >= count; });
}

std::vector<TestPeer::Frame> TestRelay::Frames() const {
  const platform::MutexLock held(lock_);
  return frames_;
}

std::vector<std::string> TestRelay::Requests() const {
  const platform::MutexLock held(lock_);
  return requests_;
}

}  // namespace tunnel
