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

// Bytes sent as they are, piece by piece with a short pause between; then the connection closes.
// The server's end cuts a reply short.
using RawReply = std::vector<std::string>;

// The first byte of a client that begins with a TLS handshake (RFC 8446, section 5.1). The server
// records what came first and closes, as it knows no TLS.
inline constexpr char kTlsHandshake = 0x16;

// An HTTP server on a loopback port of its own that knows no HTTP: it records each request's raw
// bytes and answers the n-th connection with the n-th reply. A connection beyond the last reply is
// closed at once.
//
// Threads: one of its own, from construction to destruction.
class ScriptedServer {
 public:
  // Listens; answers from Start() on, so that a reply may name the server's own address.
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
  // The header with which another server redirects to this one's `path`.
  [[nodiscard]] std::string LocationHeader(const std::string& path) const;
  // The raw requests so far, in the order of their connections; empty ones left out.
  [[nodiscard]] std::vector<std::string> Requests() EXCLUDES(lock_);

 private:
  void Serve(const std::vector<RawReply>& replies) EXCLUDES(lock_);
  bool IsStopping() EXCLUDES(lock_);

  std::uint16_t port_ = 0;  // before the listener, which fills it in
  TestSocket listener_;
  platform::Mutex lock_;
  std::vector<std::string> requests_ GUARDED_BY(lock_);
  bool stopping_ GUARDED_BY(lock_) = false;
  std::thread thread_;
};

// A port of the loopback address on which nobody listens.
std::uint16_t ClosedPort();

// "HTTP/1.1 <status>", the headers (each with its line break) and the body, with its length.
std::string HttpReply(const std::string& status, const std::string& body,
                      const std::string& headers = {});

}  // namespace service
