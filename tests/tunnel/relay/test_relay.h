#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "platform/mutex.h"
#include "platform/socket.h"
#include "tunnel/relay/test_frames.h"

namespace tunnel {

// The relay's side of one connection. Shares no framing code with the program.
//
// Threads: reading by one thread; Send() and Close() by any.
class TestPeer {
 public:
  explicit TestPeer(std::shared_ptr<platform::Socket> socket) : socket_(std::move(socket)) {}

  // The request up to its empty line; empty if the connection ended earlier.
  std::string ReadRequest();
  bool Send(std::span<const std::byte> bytes);
  bool Send(std::string_view text) { return Send(BytesOf(text)); }
  // Sends the 101 response.
  bool AcceptUpgrade();

  struct Frame {
    int firstByte = 0;
    bool isMasked = false;
    Bytes key;
    Bytes payload;  // unmasked
  };
  // Empty at the end of the connection.
  std::optional<Frame> ReadFrame();
  // Returns once the client has closed the connection.
  void WaitForEnd();
  void Close() { socket_->Close(); }

 private:
  std::optional<Bytes> Read(std::size_t size);
  std::shared_ptr<platform::Socket> socket_;
};

// A relay on a loopback port. Its own thread serves one connection after the other with the current
// behaviour; a connection ends when its behaviour returns.
//
// Threads: any. Waits end within ten seconds.
class TestRelay {
 public:
  using Behaviour = std::function<void(TestPeer&)>;

  // Upgrades, then records every frame until the client closes the connection.
  TestRelay();
  explicit TestRelay(Behaviour behaviour);
  ~TestRelay();
  TestRelay(const TestRelay&) = delete;
  TestRelay& operator=(const TestRelay&) = delete;

  [[nodiscard]] std::wstring ServerUrl() const;  // "http://127.0.0.1:<port>"
  [[nodiscard]] std::wstring RelayUrl() const;   // "ws://<host and port>/..."
  [[nodiscard]] std::string HostAndPort() const;
  [[nodiscard]] std::uint16_t Port() const { return listener_->LocalAddress().Port(); }

  // Applies to later connections; the default is Serve().
  void SetBehaviour(Behaviour behaviour) EXCLUDES(lock_);
  Behaviour Serve();
  static Behaviour Refuse();  // ends every connection at once

  // Sends on the current connection, once it is upgraded; false without one.
  bool Push(std::span<const std::byte> bytes) EXCLUDES(lock_);
  void CutConnection() EXCLUDES(lock_);

  [[nodiscard]] bool WaitForConnections(std::size_t count) EXCLUDES(lock_);  // upgraded, in total
  [[nodiscard]] bool WaitForRequests(std::size_t count) EXCLUDES(lock_);
  [[nodiscard]] bool WaitForFrames(std::size_t count) EXCLUDES(lock_);
  [[nodiscard]] std::vector<TestPeer::Frame> Frames() const EXCLUDES(lock_);
  [[nodiscard]] std::vector<std::string> Requests() const EXCLUDES(lock_);

  // For behaviours: reads the request and records it.
  std::string TakeRequest(TestPeer& peer) EXCLUDES(lock_);

 private:
  void Run() noexcept;
  void ServeOne(TestPeer& peer) EXCLUDES(lock_);
  template <typename Condition>
  bool WaitUntil(Condition condition) REQUIRES(lock_);

  platform::SocketLibrary library_;
  std::shared_ptr<platform::Socket> listener_;
  mutable platform::Mutex lock_;
  platform::Condition changed_;
  Behaviour behaviour_ GUARDED_BY(lock_);
  std::shared_ptr<TestPeer> peer_ GUARDED_BY(lock_);
  bool isUpgraded_ GUARDED_BY(lock_) = false;
  bool isEnding_ GUARDED_BY(lock_) = false;
  std::size_t connections_ GUARDED_BY(lock_) = 0;
  std::vector<std::string> requests_ GUARDED_BY(lock_);
  std::vector<TestPeer::Frame> frames_ GUARDED_BY(lock_);
  std::thread thread_;
};

}  // namespace tunnel
