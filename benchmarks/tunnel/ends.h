#pragma once

#include <netinet/in.h>

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

#include "tun/tun_device.h"

// Devices and sockets of the tunnel benchmark's programs. Errors: as tun/tun_device.h says.
namespace bench {

// What every contestant asks of the system for its sockets, in both directions.
inline constexpr int kSocketBytes = 4 << 20;
inline constexpr std::size_t kMaxPacketBytes = 65535;

// tun::OpenTun(), but a read waits for a packet.
[[nodiscard]] tun::File OpenWaitingTun(const std::string& name, int mtu);

[[nodiscard]] sockaddr_in AddressOf(const std::string& dotted, std::uint16_t port);

// A UDP socket bound to `port` of any address (0: the system's choice).
[[nodiscard]] tun::File BindUdp(std::uint16_t port);
// From now on the socket sends to `peer` and hears nobody else.
void ConnectTo(const tun::File& socket, const sockaddr_in& peer);

// Both have TCP_NODELAY. Accept waits for one client; Connect for the listener, up to 5 s.
[[nodiscard]] tun::File AcceptTcp(std::uint16_t port);
[[nodiscard]] tun::File ConnectTcp(const sockaddr_in& peer);

// False when the connection has ended.
bool SendAll(int socket, std::span<const std::byte> bytes) noexcept;

// Tells the script on standard output that the program is ready.
void SayReady();

// The bodies of threads that move packets end only with the process: a TUN's read cannot be woken.
// Prints `reason` and ends the process.
[[noreturn]] void EndProcess(const char* reason) noexcept;

}  // namespace bench
