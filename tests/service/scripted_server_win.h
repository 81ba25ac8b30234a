#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <thread>
#include <vector>

#include "platform/mutex.h"
#include "platform/unique_handle.h"
#include "platform/windows_sdk.h"

namespace service {

struct TestSocketTraits {
  using Raw = SOCKET;
  static Raw Invalid() noexcept { return INVALID_SOCKET; }
  static bool IsValid(Raw raw) noexcept { return raw != INVALID_SOCKET; }
  static void Close(Raw raw) noexcept { ::closesocket(raw); }
};
using TestSocket = platform::UniqueHandle<TestSocketTraits>;

// Raw bytes, sent in pieces with short pauses; then the connection is closed. Destroying the server
// truncates a reply.
using RawReply = std::vector<std::string>;

// The first byte of a TLS handshake (RFC 8446, section 5.1). The server records the first bytes and
// closes the connection, since it does not implement TLS.
inline constexpr char kTlsHandshake = 0x16;

// A server on a loopback port of its own that replays scripted replies: it records each request's
// raw bytes and answers the n-th connection with the n-th reply. Further connections are closed at
// once.
//
// Threads: one of its own, from construction to destruction.
class ScriptedServer {
 public:
  // Listens, and answers after Start(), so that a reply may contain the server's own address.
  ScriptedServer();
  // Answers one connection.
  explicit ScriptedServer(RawReply reply);
  ~ScriptedServer();
  ScriptedServer(const ScriptedServer&) = delete;
  ScriptedServer& operator=(const ScriptedServer&) = delete;

  void Start(std::vector<RawReply> replies);
  // "http://127.0.0.1:<port>" and `path`.
  [[nodiscard]] std::wstring Url(const std::wstring& path) const;
  [[nodiscard]] std::uint16_t Port() const { return port_; }
  // The Location header of a redirect to this server's `path`.
  [[nodiscard]] std::string LocationHeader(const std::string& path) const;
  // The raw requests so far, in the order of their connections, without empty ones.
  [[nodiscard]] std::vector<std::string> Requests() EXCLUDES(lock_);

 private:
  void Serve(const std::vector<RawReply>& replies) EXCLUDES(lock_);
  bool IsStopping() EXCLUDES(lock_);

  std::uint16_t port_ = 0;  // before the listener, which sets it
  TestSocket listener_;
  platform::Mutex lock_;
  std::vector<std::string> requests_ GUARDED_BY(lock_);
  bool stopping_ GUARDED_BY(lock_) = false;
  std::thread thread_;
};

// A loopback port without a listener.
std::uint16_t ClosedPort();

// "HTTP/1.1 <status>", Content-Length, the headers (each with its line break) and the body.
std::string HttpReply(const std::string& status, const std::string& body,
                      const std::string& headers = {});

}  // namespace service
