#include "service/scripted_server_win.h"

#include <cstdlib>
#include <stdexcept>
#include <utility>

namespace service {
namespace {

constexpr std::chrono::milliseconds kPause{40};
constexpr DWORD kRequestLimitMs = 3000;  // a request that never ends fails only its test

struct WinsockStart {
  WinsockStart() {
    WSADATA data = {};
    if (::WSAStartup(MAKEWORD(2, 2), &data) != 0) throw std::runtime_error("WSAStartup");
  }
};

sockaddr_in Loopback(std::uint16_t port) {
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_port = ::htons(port);
  address.sin_addr.s_addr = ::htonl(INADDR_LOOPBACK);
  return address;
}

TestSocket Listen(std::uint16_t& port) {
  static const WinsockStart started;
  TestSocket listener(::socket(AF_INET, SOCK_STREAM, IPPROTO_TCP));
  sockaddr_in address = Loopback(0);
  int lengthBytes = sizeof(address);
  auto* plain = reinterpret_cast<sockaddr*>(&address);
  if (::bind(listener.Get(), plain, lengthBytes) != 0 || ::listen(listener.Get(), 8) != 0 ||
      ::getsockname(listener.Get(), plain, &lengthBytes) != 0) {
    throw std::runtime_error("no loopback listener");
  }
  port = ::ntohs(address.sin_port);
  return listener;
}

void ConnectOnce(std::uint16_t port) {
  TestSocket wake(::socket(AF_INET, SOCK_STREAM, IPPROTO_TCP));
  sockaddr_in address = Loopback(port);
  ::connect(wake.Get(), reinterpret_cast<sockaddr*>(&address), sizeof(address));
}

// The body bytes that the request's headers announce.
std::size_t AnnouncedBytes(const std::string& headers) {
  const std::string name = "Content-Length: ";
  const std::size_t at = headers.find(name);
  if (at == std::string::npos) return 0;
  return static_cast<std::size_t>(std::strtoul(headers.c_str() + at + name.size(), nullptr, 10));
}

std::string ReadRequest(SOCKET socket) {
  ::setsockopt(socket, SOL_SOCKET, SO_RCVTIMEO, reinterpret_cast<const char*>(&kRequestLimitMs),
               sizeof(kRequestLimitMs));
  std::string request;
  char buffer[4096];
  for (;;) {
    const std::size_t end = request.find("\r\n\r\n");
    if (end != std::string::npos && request.size() - end - 4 >= AnnouncedBytes(request)) break;
    const int received = ::recv(socket, buffer, sizeof(buffer), 0);
    if (received <= 0) break;
    request.append(buffer, static_cast<std::size_t>(received));
    if (request[0] == kTlsHandshake) break;
  }
  return request;
}

void SendAll(SOCKET socket, const std::string& bytes) {
  std::size_t sentBytes = 0;
  while (sentBytes < bytes.size()) {
    const int sent =
        ::send(socket, bytes.data() + sentBytes, static_cast<int>(bytes.size() - sentBytes), 0);
    if (sent <= 0) return;
    sentBytes += static_cast<std::size_t>(sent);
  }
}

}  // namespace

ScriptedServer::ScriptedServer() : listener_(Listen(port_)) {}

ScriptedServer::ScriptedServer(RawReply reply) : ScriptedServer() {
  Start({std::move(reply)});
}

ScriptedServer::~ScriptedServer() {
  {
    const platform::MutexLock held(lock_);
    stopping_ = true;
  }
  if (!thread_.joinable()) return;
  ConnectOnce(port_);  // wakes accept()
  thread_.join();
}

void ScriptedServer::Start(std::vector<RawReply> replies) {
  thread_ = std::thread([this, script = std::move(replies)] { Serve(script); });
}

std::wstring ScriptedServer::Url(const std::wstring& path) const {
  return L"http://127.0.0.1:" + std::to_wstring(port_) + path;
}

std::string ScriptedServer::LocationHeader(const std::string& path) const {
  return "Location: http://127.0.0.1:" + std::to_string(port_) + path + "\r\n";
}

std::vector<std::string> ScriptedServer::Requests() {
  const platform::MutexLock held(lock_);
  return requests_;
}

void ScriptedServer::Serve(const std::vector<RawReply>& replies) {
  for (std::size_t next = 0;; ++next) {
    const TestSocket client(::accept(listener_.Get(), nullptr, nullptr));
    {
      const platform::MutexLock held(lock_);
      if (stopping_ || !client) return;
    }
    const std::string request = ReadRequest(client.Get());
    {
      const platform::MutexLock held(lock_);
      if (!request.empty()) requests_.push_back(request);
    }
    if (next >= replies.size()) continue;
    for (std::size_t piece = 0; piece < replies[next].size(); ++piece) {
      if (piece > 0) std::this_thread::sleep_for(kPause);
      if (IsStopping()) return;
      SendAll(client.Get(), replies[next][piece]);
    }
  }
}

bool ScriptedServer::IsStopping() {
  const platform::MutexLock held(lock_);
  return stopping_;
}

std::uint16_t ClosedPort() {
  std::uint16_t port = 0;
  Listen(port).Reset();
  return port;
}

std::string HttpReply(const std::string& status, const std::string& body,
                      const std::string& headers) {
  return "HTTP/1.1 " + status + "\r\nContent-Length: " + std::to_string(body.size()) + "\r\n" +
         headers + "\r\n" + body;
}

}  // namespace service
