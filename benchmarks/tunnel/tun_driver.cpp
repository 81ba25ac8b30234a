#include "benchmarks/tunnel/tun_driver.h"

#include <unistd.h>

#include <cerrno>
#include <span>

#include "benchmarks/tunnel/checksums.h"
#include "benchmarks/tunnel/ends.h"

namespace bench {
namespace {

using tunnel::WinDivertAddress;
using tunnel::WinDivertHandle;

constexpr std::uint32_t kInterface = 7;  // any: the device has no interfaces to choose from
constexpr std::uint32_t kOutbound = 1U << 17;

int device = -1;  // the functions of the table have no place for state

WinDivertHandle Open(const char*, int, std::int16_t, std::uint64_t) {
  return &device;
}

int Receive(WinDivertHandle, void* packet, std::uint32_t lengthBytes, std::uint32_t* receivedBytes,
            WinDivertAddress* address) {
  const ssize_t bytes = ::read(device, packet, lengthBytes);
  if (bytes <= 0) return 0;
  *receivedBytes = static_cast<std::uint32_t>(bytes);
  *address = {};
  address->flags = kOutbound;
  address->interfaceIndex = kInterface;
  return 1;
}

int Send(WinDivertHandle, const void* packet, std::uint32_t lengthBytes, std::uint32_t* sentBytes,
         const WinDivertAddress*) {
  const ssize_t bytes = ::write(device, packet, lengthBytes);
  if (bytes < 0) return 0;
  if (sentBytes != nullptr) *sentBytes = static_cast<std::uint32_t>(bytes);
  return 1;
}

int CalcChecksums(void* packet, std::uint32_t lengthBytes, WinDivertAddress*, std::uint64_t) {
  return WriteChecksums(std::span(static_cast<std::byte*>(packet), lengthBytes)) ? 1 : 0;
}

}  // namespace

std::unique_ptr<tunnel::WinDivertApi> MakeTunDriver(const std::string& name, int mtu) {
  const auto file = std::make_shared<tun::File>(OpenWaitingTun(name, mtu));
  device = file->Get();
  auto api = std::make_unique<tunnel::WinDivertApi>();
  api->open = Open;
  api->recv = Receive;
  api->send = Send;
  api->calcChecksums = CalcChecksums;
  api->close = [](WinDivertHandle) { return 1; };
  api->lastError = []() { return static_cast<std::uint32_t>(errno); };
  api->module = file;
  return api;
}

}  // namespace bench
