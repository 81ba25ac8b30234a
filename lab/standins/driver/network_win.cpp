#include "driver/network_win.h"

#include "platform/windows_sdk.h"

#include <iphlpapi.h>

#include <cstddef>
#include <utility>

#include "driver/packet.h"

namespace driver {
namespace {

constexpr int kBufferBytes = 8 * 1024 * 1024;
// Wine can lose a receive's wake-up when another thread sends on the same socket at that moment.
// The time-out makes the next receive find the datagram.
constexpr DWORD kReceiveTimeoutMs = 500;

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

constexpr std::int64_t kRefreshMs = 1000;

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
  ::setsockopt(socket_.Get(), SOL_SOCKET, SO_RCVTIMEO,
               reinterpret_cast<const char*>(&kReceiveTimeoutMs), sizeof(kReceiveTimeoutMs));
  return StartThread();
}

// The thread holds a reference to the library. Otherwise unloading would wait for the thread under
// the loader's lock, which the thread needs in order to end.
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
  // Closing wakes the receiving thread; the handle is cleared only after that thread has ended.
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
    // An error means Stop(), the time-out or a late report of a refused datagram; stopping_
    // decides.
    if (bytes > 0) receiver_(std::span(buffer).first(static_cast<std::size_t>(bytes)));
  }
}

std::uint32_t Adapters::FindByAddress(std::uint32_t address, std::int64_t nowMs) {
  do {
    for (const Entry& entry : entries_) {
      if (entry.address == address) return entry.index;
    }
  } while (Refresh(nowMs));
  return 0;
}

bool Adapters::Exists(std::uint32_t index, std::int64_t nowMs) {
  do {
    for (const Entry& entry : entries_) {
      if (entry.index == index) return true;
    }
  } while (Refresh(nowMs));
  return false;
}

std::uint32_t Adapters::FindRoute(std::uint32_t destination) {
  DWORD index = 0;
  return ::GetBestInterface(::htonl(destination), &index) == NO_ERROR ? index : 0;
}

bool Adapters::Refresh(std::int64_t nowMs) {
  if (wasRead_ && nowMs - readMs_ < kRefreshMs) return false;
  wasRead_ = true;
  readMs_ = nowMs;
  entries_.clear();
  constexpr ULONG kFlags =
      GAA_FLAG_SKIP_ANYCAST | GAA_FLAG_SKIP_MULTICAST | GAA_FLAG_SKIP_DNS_SERVER;
  ULONG bytes = 0;
  if (::GetAdaptersAddresses(AF_INET, kFlags, nullptr, nullptr, &bytes) != ERROR_BUFFER_OVERFLOW) {
    return true;
  }
  std::vector<std::byte> buffer(bytes);
  auto* adapter = reinterpret_cast<IP_ADAPTER_ADDRESSES*>(buffer.data());
  if (::GetAdaptersAddresses(AF_INET, kFlags, nullptr, adapter, &bytes) != NO_ERROR) return true;
  for (; adapter != nullptr; adapter = adapter->Next) {
    for (auto* unicast = adapter->FirstUnicastAddress; unicast != nullptr;
         unicast = unicast->Next) {
      const auto* address = reinterpret_cast<const sockaddr_in*>(unicast->Address.lpSockaddr);
      if (address->sin_family != AF_INET) continue;
      entries_.push_back({::ntohl(address->sin_addr.s_addr), adapter->IfIndex});
    }
  }
  return true;
}

}  // namespace driver
