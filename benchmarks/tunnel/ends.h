#pragma once

#include <netinet/in.h>

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

#include "tun/tun_device.h"

// Devices and sockets of the tunnel benchmark's programs. Errors: as tun/tun_device.h says.
namespace bench {

// The socket buffer that every contestant requests, in both directions.
inline constexpr int kSocketBytes = 4 << 20;
inline constexpr std::size_t kMaxPacketBytes = 65535;

// tun::OpenTun(), but a read waits for a packet.
[[nodiscard]] tun::File OpenWaitingTun(const std::string& name, int mtu);

[[nodiscard]] sockaddr_in AddressOf(const std::string& dotted, std::uint16_t port);

// A UDP socket bound to `port` of any address (0: the system's choice).
[[nodiscard]] tun::File BindUdp(std::uint16_t port);
// Connects the socket: it then sends to `peer` and receives from nobody else.
void ConnectTo(const tun::File& socket, const sockaddr_in& peer);

// Both have TCP_NODELAY. Accept waits for one client; Connect for the listener, up to 5 s.
[[nodiscard]] tun::File AcceptTcp(std::uint16_t port);
[[nodiscard]] tun::File ConnectTcp(const sockaddr_in& peer);

// False when the connection has ended.
bool SendAll(int socket, std::span<const std::byte> bytes) noexcept;

// Reports on standard output that the program is ready.
void SayReady();

// Prints `reason` and ends the process. Threads that move packets end no other way: a TUN's read
// cannot be woken.
[[noreturn]] void EndProcess(const char* reason) noexcept;

}  // namespace bench
