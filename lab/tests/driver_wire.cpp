#include "tests/driver_wire.h"

#include <gtest/gtest.h>

#include "tests/driver_packets.h"
// clang-format off
#include <iphlpapi.h>
// clang-format on

namespace {

constexpr std::uint16_t kMarkPort = 61234;

sockaddr_in Loopback(std::uint16_t port) {
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_port = ::htons(port);
  address.sin_addr.s_addr = ::htonl(INADDR_LOOPBACK);
  return address;
}

}  // namespace

Wire::Wire() {
  WSADATA data;
  EXPECT_EQ(::WSAStartup(MAKEWORD(2, 2), &data), 0);
  socket_ = ::socket(AF_INET, SOCK_DGRAM, IPPROTO_UDP);
  sockaddr_in address = Loopback(0);
  auto* own = reinterpret_cast<sockaddr*>(&address);
  int bytes = sizeof(address);
  EXPECT_EQ(::bind(socket_, own, bytes), 0);
  EXPECT_EQ(::getsockname(socket_, own, &bytes), 0);
  port_ = ::ntohs(address.sin_port);
  const DWORD timeoutMs = 5000;
  ::setsockopt(socket_, SOL_SOCKET, SO_RCVTIMEO, reinterpret_cast<const char*>(&timeoutMs),
               sizeof(timeoutMs));
}

Wire::~Wire() {
  ::closesocket(socket_);
  ::WSACleanup();
}

void Wire::SendTo(std::uint16_t port, const std::vector<std::uint8_t>& packet) const {
  const sockaddr_in to = Loopback(port);
  const int sent = ::sendto(socket_, reinterpret_cast<const char*>(packet.data()),
                            static_cast<int>(packet.size()), 0,
                            reinterpret_cast<const sockaddr*>(&to), sizeof(to));
  EXPECT_EQ(sent, static_cast<int>(packet.size()));
}

std::vector<std::uint8_t> Wire::Receive() const {
  std::vector<std::uint8_t> packet(65535);
  const int bytes = ::recv(socket_, reinterpret_cast<char*>(packet.data()), 65535, 0);
  packet.resize(bytes > 0 ? static_cast<std::size_t>(bytes) : 0);
  return packet;
}

OwnAddress FindOwnAddress() {
  OwnAddress found = {};
  ULONG bytes = 64 * 1024;
  std::vector<std::uint64_t> buffer(bytes / sizeof(std::uint64_t));
  auto* adapter = reinterpret_cast<IP_ADAPTER_ADDRESSES*>(buffer.data());
  EXPECT_EQ(::GetAdaptersAddresses(AF_INET, 0, nullptr, adapter, &bytes), ULONG{NO_ERROR});
  for (; adapter != nullptr; adapter = adapter->Next) {
    const auto* unicast = adapter->FirstUnicastAddress;
    if (unicast == nullptr) continue;
    const auto* address = reinterpret_cast<const sockaddr_in*>(unicast->Address.lpSockaddr);
    found = {::ntohl(address->sin_addr.s_addr), adapter->IfIndex};
    if (found.address >> 24U != 127) break;
  }
  EXPECT_NE(found.index, 0U);
  return found;
}

void WaitForQueued(const Library& library, const Wire& wire, std::uint16_t port) {
  const std::string filter = "udp.DstPort == " + std::to_string(kMarkPort);
  const HANDLE handle = library.open(filter.c_str(), 0, 30000, 0);
  wire.SendTo(port, packets::Ip(17, packets::Udp(1, kMarkPort, {})));
  std::vector<std::uint8_t> packet(100);
  EXPECT_TRUE(library.recv(handle, packet.data(), 100, nullptr, nullptr));
  EXPECT_TRUE(library.close(handle));
}

std::string ReadText(const std::wstring& file) {
  const HANDLE handle = ::CreateFileW(file.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr,
                                      OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
  std::string text(64 * 1024, '\0');
  DWORD bytes = 0;
  EXPECT_TRUE(::ReadFile(handle, text.data(), static_cast<DWORD>(text.size()), &bytes, nullptr));
  ::CloseHandle(handle);
  text.resize(bytes);
  return text;
}

std::uint16_t FindFreePort() {
  return Wire().Port();
}
