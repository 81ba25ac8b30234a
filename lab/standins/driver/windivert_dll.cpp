#include <algorithm>
#include <cstdint>
#include <span>
#include <string_view>

#include "driver/checksums.h"
#include "driver/driver_win.h"
#include "driver/filter.h"
#include "platform/windows_sdk.h"

// The library's exports, with the published names and argument orders: first those for handles,
// then the helpers for filters and packets. Each converts handles and pointers into the values that
// Driver and the pure code work on, and the result into BOOL and last error. The helpers for IPv6
// texts exist so that they can be loaded, and fail.
#define LAB_EXPORT extern "C" __declspec(dllexport)

namespace {

using driver::Address;
using driver::Driver;

// Handles start here and grow by 4, so that none is null or INVALID_HANDLE_VALUE.
constexpr std::uintptr_t kFirstHandle = 0x10000;

std::uint64_t IdOf(HANDLE handle) noexcept {
  const auto number = reinterpret_cast<std::uintptr_t>(handle);
  return number > kFirstHandle && number % 4 == 0 ? (number - kFirstHandle) / 4 : 0;
}

HANDLE HandleOf(std::uint64_t id) noexcept {
  return reinterpret_cast<HANDLE>(kFirstHandle + static_cast<std::uintptr_t>(id) * 4);
}

// Runs `call`, which returns an error code, as the body of an export that returns BOOL.
template <typename Call>
BOOL Answer(Call call) noexcept {
  std::uint32_t error = driver::kErrorNoSystemResources;
  try {
    error = call();
  } catch (...) {  // out of memory
  }
  if (error == driver::kOk) return TRUE;
  ::SetLastError(error);
  return FALSE;
}

std::span<std::uint8_t> AsBytes(void* data, UINT bytes) noexcept {
  return {static_cast<std::uint8_t*>(data), data != nullptr ? bytes : 0};
}

std::span<const std::uint8_t> AsBytes(const void* data, UINT bytes) noexcept {
  return {static_cast<const std::uint8_t*>(data), data != nullptr ? bytes : 0};
}

std::uint32_t CopyText(std::string_view text, char* buffer, UINT bufferBytes) noexcept {
  if (buffer == nullptr) return driver::kErrorInvalidParameter;
  if (text.size() >= bufferBytes) return driver::kErrorInsufficientBuffer;
  *std::copy(text.begin(), text.end(), buffer) = '\0';
  return driver::kOk;
}

template <typename Number>
Number Swapped(Number number) noexcept {
  auto* bytes = reinterpret_cast<std::uint8_t*>(&number);
  std::reverse(bytes, bytes + sizeof(number));
  return number;
}

// Reverses all 16 bytes; `from` and `to` may be the same.
void SwapIpv6(const UINT* from, UINT* to) noexcept {
  UINT swapped[4] = {Swapped(from[3]), Swapped(from[2]), Swapped(from[1]), Swapped(from[0])};
  std::copy_n(swapped, 4, to);
}

template <typename Value>
void SetIfWanted(Value* where, Value value) noexcept {
  if (where != nullptr) *where = value;
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

// Returns one packet per call; OVERLAPPED is refused.
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

// The packets follow one another, each as long as its header states.
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

LAB_EXPORT BOOL WinDivertHelperCalcChecksums(void* packet, UINT packetBytes, Address* address,
                                             UINT64 flags) {
  if (Driver::Instance().IsChecksumFault()) return FALSE;
  return driver::CalcChecksums(AsBytes(packet, packetBytes), address, flags) ? TRUE : FALSE;
}

LAB_EXPORT BOOL WinDivertHelperDecrementTTL(void* packet, UINT packetBytes) {
  return driver::DecrementTtl(AsBytes(packet, packetBytes)) ? TRUE : FALSE;
}

LAB_EXPORT BOOL WinDivertHelperCompileFilter(const char* filter, int layer, char* object,
                                             UINT objectBytes, const char** errorText,
                                             UINT* errorPosition) {
  return Answer([&]() -> std::uint32_t {
    if (filter == nullptr || layer != driver::kLayerNetwork) return driver::kErrorInvalidParameter;
    driver::FilterError error{"No error", 0};
    const auto compiled = driver::CompileFilter(filter, &error);
    SetIfWanted(errorText, error.message);
    SetIfWanted(errorPosition, static_cast<UINT>(error.position));
    if (!compiled) return driver::kErrorInvalidParameter;
    if (object == nullptr) return driver::kOk;
    return CopyText(driver::MakeFilterObject(*compiled, *driver::FilterTextOf(filter)), object,
                    objectBytes);
  });
}

LAB_EXPORT BOOL WinDivertHelperEvalFilter(const char* filter, const void* packet, UINT packetBytes,
                                          const Address* address) {
  bool matches = false;
  const BOOL answered = Answer([&]() -> std::uint32_t {
    if (filter == nullptr || packet == nullptr || address == nullptr) {
      return driver::kErrorInvalidParameter;
    }
    const auto compiled = driver::CompileFilter(filter);
    const auto bytes = AsBytes(packet, packetBytes);
    const auto headers = driver::ReadHeaders(bytes);
    if (!compiled || (!headers && !driver::IsIpv6(bytes))) return driver::kErrorInvalidParameter;
    matches = compiled->Matches({bytes, headers, *address});
    return driver::kOk;
  });
  if (answered) ::SetLastError(driver::kOk);  // FALSE without an error is "does not match"
  return matches ? TRUE : FALSE;
}

// Returns the text unchanged.
LAB_EXPORT BOOL WinDivertHelperFormatFilter(const char* filter, int layer, char* buffer,
                                            UINT bufferBytes) {
  return Answer([&]() -> std::uint32_t {
    if (filter == nullptr || layer != driver::kLayerNetwork || !driver::CompileFilter(filter)) {
      return driver::kErrorInvalidParameter;
    }
    return CopyText(*driver::FilterTextOf(filter), buffer, bufferBytes);
  });
}

LAB_EXPORT BOOL WinDivertHelperParsePacket(void* packet, UINT packetBytes, void** ip, void** ipv6,
                                           UINT8* protocol, void** icmp, void** icmpv6, void** tcp,
                                           void** udp, void** data, UINT* dataBytes, void** next,
                                           UINT* nextBytes) {
  const auto bytes = AsBytes(packet, packetBytes);
  const auto headers = driver::ReadHeaders(bytes);
  if (!headers || headers->totalBytes > bytes.size()) return FALSE;
  const auto at = [&bytes](std::size_t offset, bool isThere) -> void* {
    return isThere ? bytes.data() + offset : nullptr;
  };
  const auto transportAt = [&](driver::Transport transport) {
    return at(headers->headerBytes, headers->transport == transport);
  };
  const std::size_t dataAt = headers->headerBytes + headers->transportHeaderBytes;
  const std::size_t rest = headers->totalBytes - std::min(dataAt, headers->totalBytes);
  SetIfWanted(ip, at(0, true));
  SetIfWanted(ipv6, at(0, false));
  SetIfWanted(protocol, headers->protocol);
  SetIfWanted(icmp, transportAt(driver::Transport::Icmp));
  SetIfWanted(icmpv6, at(0, false));
  SetIfWanted(tcp, transportAt(driver::Transport::Tcp));
  SetIfWanted(udp, transportAt(driver::Transport::Udp));
  SetIfWanted(data, at(dataAt, rest > 0));
  SetIfWanted(dataBytes, static_cast<UINT>(rest));
  const std::size_t behind = bytes.size() - headers->totalBytes;
  SetIfWanted(next, at(headers->totalBytes, behind > 0));
  SetIfWanted(nextBytes, static_cast<UINT>(behind));
  return TRUE;
}

LAB_EXPORT UINT64 WinDivertHelperHashPacket(const void* packet, UINT packetBytes, UINT64 seed) {
  const auto bytes = AsBytes(packet, packetBytes);
  return driver::HashHeaders(bytes, driver::ReadHeaders(bytes), seed);
}

LAB_EXPORT BOOL WinDivertHelperParseIPv4Address(const char* text, UINT32* address) {
  return Answer([&]() -> std::uint32_t {
    const auto parsed = text != nullptr ? driver::ParseIpv4(text) : std::nullopt;
    if (!parsed) return driver::kErrorInvalidParameter;
    SetIfWanted(address, static_cast<UINT32>(*parsed));
    return driver::kOk;
  });
}

LAB_EXPORT BOOL WinDivertHelperFormatIPv4Address(UINT32 address, char* buffer, UINT bufferBytes) {
  return Answer([&] { return CopyText(driver::FormatIpv4(address), buffer, bufferBytes); });
}

LAB_EXPORT BOOL WinDivertHelperParseIPv6Address(const char*, UINT32*) {
  return Answer([] { return driver::kErrorCallNotImplemented; });
}

LAB_EXPORT BOOL WinDivertHelperFormatIPv6Address(const UINT32*, char*, UINT) {
  return Answer([] { return driver::kErrorCallNotImplemented; });
}

LAB_EXPORT UINT16 WinDivertHelperNtohs(UINT16 number) {
  return Swapped(number);
}
LAB_EXPORT UINT16 WinDivertHelperHtons(UINT16 number) {
  return Swapped(number);
}
LAB_EXPORT UINT32 WinDivertHelperNtohl(UINT32 number) {
  return Swapped(number);
}
LAB_EXPORT UINT32 WinDivertHelperHtonl(UINT32 number) {
  return Swapped(number);
}
LAB_EXPORT UINT64 WinDivertHelperNtohll(UINT64 number) {
  return Swapped(number);
}
LAB_EXPORT UINT64 WinDivertHelperHtonll(UINT64 number) {
  return Swapped(number);
}

// Both spellings are published.
LAB_EXPORT void WinDivertHelperNtohIPv6Address(const UINT* from, UINT* to) {
  SwapIpv6(from, to);
}
LAB_EXPORT void WinDivertHelperHtonIPv6Address(const UINT* from, UINT* to) {
  SwapIpv6(from, to);
}
LAB_EXPORT void WinDivertHelperNtohIpv6Address(const UINT* from, UINT* to) {
  SwapIpv6(from, to);
}
LAB_EXPORT void WinDivertHelperHtonIpv6Address(const UINT* from, UINT* to) {
  SwapIpv6(from, to);
}
