#include "driver/driver_win.h"
#include "driver/exports_win.h"

// The exports that work on handles, with the published names and argument orders. Each is a door:
// it turns handles and pointers into the values that Driver works on, and its answer into BOOL and
// last error.
namespace {

using driver::Address;
using driver::Answer;
using driver::AsBytes;
using driver::Driver;

// Handles count up from here in steps of 4, so that neither null nor INVALID_HANDLE_VALUE is one.
constexpr std::uintptr_t kFirstHandle = 0x10000;

std::uint64_t IdOf(HANDLE handle) noexcept {
  const auto number = reinterpret_cast<std::uintptr_t>(handle);
  return number > kFirstHandle && number % 4 == 0 ? (number - kFirstHandle) / 4 : 0;
}

HANDLE HandleOf(std::uint64_t id) noexcept {
  return reinterpret_cast<HANDLE>(kFirstHandle + static_cast<std::uintptr_t>(id) * 4);
}

}  // namespace

LAB_EXPORT HANDLE WinDivertOpen(const char* filter, int layer, INT16 priority, UINT64 flags) {
  std::uint64_t id = 0;
  const BOOL opened =
      Answer([&] { return Driver::Instance().Open(filter, layer, priority, flags, id); });
  return opened ? HandleOf(id) : INVALID_HANDLE_VALUE;
}

LAB_EXPORT BOOL WinDivertRecv(HANDLE handle, void* packet, UINT packetBytes, UINT* gotBytes,
                              Address* address) {
  return Answer([&] {
    return Driver::Instance().Recv(IdOf(handle), AsBytes(packet, packetBytes), gotBytes, address);
  });
}

// Gives one packet per call; waiting by OVERLAPPED is not built.
LAB_EXPORT BOOL WinDivertRecvEx(HANDLE handle, void* packet, UINT packetBytes, UINT* gotBytes,
                                UINT64 flags, Address* addresses, UINT* addressBytes,
                                OVERLAPPED* overlapped) {
  return Answer([&]() -> std::uint32_t {
    const bool hasRoom =
        addresses == nullptr || (addressBytes != nullptr && *addressBytes >= sizeof(Address));
    if (flags != 0 || overlapped != nullptr || !hasRoom) return driver::kErrorInvalidParameter;
    const std::uint32_t error =
        Driver::Instance().Recv(IdOf(handle), AsBytes(packet, packetBytes), gotBytes, addresses);
    if (error == driver::kOk && addressBytes != nullptr) *addressBytes = sizeof(Address);
    return error;
  });
}

LAB_EXPORT BOOL WinDivertSend(HANDLE handle, const void* packet, UINT packetBytes, UINT* sentBytes,
                              const Address* address) {
  return Answer([&]() -> std::uint32_t {
    if (address == nullptr) return driver::kErrorInvalidParameter;
    const std::uint32_t error =
        Driver::Instance().Send(IdOf(handle), AsBytes(packet, packetBytes), *address);
    if (error == driver::kOk && sentBytes != nullptr) *sentBytes = packetBytes;
    return error;
  });
}

// Packets stand one behind the other, each as long as its header says.
LAB_EXPORT BOOL WinDivertSendEx(HANDLE handle, const void* packet, UINT packetBytes,
                                UINT* sentBytes, UINT64 flags, const Address* addresses,
                                UINT addressBytes, OVERLAPPED* overlapped) {
  return Answer([&]() -> std::uint32_t {
    if (flags != 0 || overlapped != nullptr || addresses == nullptr || addressBytes == 0 ||
        addressBytes % sizeof(Address) != 0) {
      return driver::kErrorInvalidParameter;
    }
    auto rest = AsBytes(packet, packetBytes);
    for (const Address& address : std::span(addresses, addressBytes / sizeof(Address))) {
      const std::uint32_t error = Driver::Instance().Send(IdOf(handle), rest, address);
      if (error != driver::kOk) return error;
      rest = rest.subspan(driver::ReadU16Be(rest, 2));
    }
    if (sentBytes != nullptr) *sentBytes = packetBytes - static_cast<UINT>(rest.size());
    return driver::kOk;
  });
}

LAB_EXPORT BOOL WinDivertShutdown(HANDLE handle, int how) {
  return Answer([&] { return Driver::Instance().Shutdown(IdOf(handle), how); });
}

LAB_EXPORT BOOL WinDivertClose(HANDLE handle) {
  return Answer([&] { return Driver::Instance().Close(IdOf(handle)); });
}

LAB_EXPORT BOOL WinDivertSetParam(HANDLE handle, int param, UINT64 value) {
  return Answer([&] { return Driver::Instance().SetParam(IdOf(handle), param, value); });
}

LAB_EXPORT BOOL WinDivertGetParam(HANDLE handle, int param, UINT64* value) {
  return Answer([&]() -> std::uint32_t {
    if (value == nullptr) return driver::kErrorInvalidParameter;
    std::uint64_t found = 0;
    const std::uint32_t error = Driver::Instance().GetParam(IdOf(handle), param, found);
    if (error == driver::kOk) *value = found;
    return error;
  });
}
