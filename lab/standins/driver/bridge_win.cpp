#include "driver/bridge_win.h"

#include <utility>

#include "driver/record.h"

namespace driver {
namespace {

constexpr int kBufferBytes = 8 * 1024 * 1024;
// Wine loses the wake-up of a receive when another thread sends by the same socket in that moment;
// what has arrived is then found by the next look.
constexpr DWORD kLookEveryMs = 500;

sockaddr_in LoopbackAddress(std::uint16_t port) noexcept {
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_port = ::htons(port);
  address.sin_addr.s_addr = ::htonl(INADDR_LOOPBACK);
  return address;
}

const sockaddr* AsSocketAddress(const sockaddr_in& address) noexcept {
  return reinterpret_cast<const sockaddr*>(&address);
}

void EnlargeBuffers(SOCKET socket) noexcept {
  const char* value = reinterpret_cast<const char*>(&kBufferBytes);
  ::setsockopt(socket, SOL_SOCKET, SO_RCVBUF, value, sizeof(kBufferBytes));
  ::setsockopt(socket, SOL_SOCKET, SO_SNDBUF, value, sizeof(kBufferBytes));
}

}  // namespace

std::uint32_t Bridge::Start(std::uint16_t port, std::uint16_t peerPort, Receiver receiver) {
  WSADATA data = {};
  if (const int error = ::WSAStartup(MAKEWORD(2, 2), &data); error != 0) {
    return static_cast<std::uint32_t>(error);
  }
  hasSockets_ = true;
  ::InterlockedExchange(&stopping_, 0);
  receiver_ = std::move(receiver);
  peer_ = LoopbackAddress(peerPort);
  socket_.Reset(::socket(AF_INET, SOCK_DGRAM, IPPROTO_UDP));
  const sockaddr_in own = LoopbackAddress(port);
  if (!socket_ || ::bind(socket_.Get(), AsSocketAddress(own), sizeof(own)) != 0) {
    const int error = ::WSAGetLastError();
    Stop();
    return static_cast<std::uint32_t>(error);
  }
  EnlargeBuffers(socket_.Get());
  ::setsockopt(socket_.Get(), SOL_SOCKET, SO_RCVTIMEO, reinterpret_cast<const char*>(&kLookEveryMs),
               sizeof(kLookEveryMs));
  return StartThread();
}

// The thread holds the library: one that was unloaded under its thread would have to wait for it
// while holding the loader's lock, without which no thread ends.
std::uint32_t Bridge::StartThread() {
  HMODULE library = nullptr;
  ::GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS,
                       reinterpret_cast<const wchar_t*>(&Bridge::Run), &library);
  library_ = library;
  thread_.Reset(::CreateThread(nullptr, 0, &Bridge::Run, this, 0, nullptr));
  const DWORD error = ::GetLastError();
  if (thread_) return 0;
  ::FreeLibrary(library);
  Stop();
  return error;
}

void Bridge::Stop() noexcept {
  ::InterlockedExchange(&stopping_, 1);
  // Closing wakes the receiving thread; the handle is cleared once nobody reads it any more.
  const SOCKET socket = socket_.Get();
  if (thread_) {
    ::closesocket(socket);
    ::WaitForSingleObject(thread_.Get(), INFINITE);
    thread_.Reset();
    static_cast<void>(socket_.Release());
  }
  socket_.Reset();
  receiver_ = nullptr;
  if (std::exchange(hasSockets_, false)) ::WSACleanup();
}

void Bridge::Send(std::span<const std::uint8_t> packet) noexcept {
  ::sendto(socket_.Get(), reinterpret_cast<const char*>(packet.data()),
           static_cast<int>(packet.size()), 0, AsSocketAddress(peer_), sizeof(peer_));
}

DWORD WINAPI Bridge::Run(void* bridge) noexcept {
  auto& self = *static_cast<Bridge*>(bridge);
  const HMODULE library = self.library_;
  self.ReceiveLoop();
  ::FreeLibraryAndExitThread(library, 0);
}

void Bridge::ReceiveLoop() {
  std::vector<std::uint8_t> buffer(kMaxPacketBytes);
  const SOCKET socket = socket_.Get();
  while (::InterlockedCompareExchange(&stopping_, 0, 0) == 0) {
    const int bytes =
        ::recv(socket, reinterpret_cast<char*>(buffer.data()), static_cast<int>(buffer.size()), 0);
    // An error is Stop(), the look's end or a refused datagram reported late; the flag tells.
    if (bytes > 0) receiver_(std::span(buffer).first(static_cast<std::size_t>(bytes)));
  }
}

}  // namespace driver
