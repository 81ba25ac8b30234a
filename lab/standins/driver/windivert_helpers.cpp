#include <algorithm>
#include <string_view>

#include "driver/checksums.h"
#include "driver/driver_win.h"
#include "driver/exports_win.h"
#include "driver/filter_object.h"

// The exports that work on filters and packets alone, with the published names and argument orders.
// Those for IPv6 texts are there to be found, and fail.
namespace {

using driver::Address;
using driver::Answer;
using driver::AsBytes;

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

// As one number of 128 bits; the two may be the same.
void SwapIpv6(const UINT* from, UINT* to) noexcept {
  UINT swapped[4] = {Swapped(from[3]), Swapped(from[2]), Swapped(from[1]), Swapped(from[0])};
  std::copy_n(swapped, 4, to);
}

template <typename Value>
void Tell(Value* where, Value value) noexcept {
  if (where != nullptr) *where = value;
}

}  // namespace

LAB_EXPORT BOOL WinDivertHelperCalcChecksums(void* packet, UINT packetBytes, Address* address,
                                             UINT64 flags) {
  if (driver::Driver::Instance().IsChecksumFault()) return FALSE;
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
    Tell(errorText, error.message);
    Tell(errorPosition, static_cast<UINT>(error.position));
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

// Gives the text as it was written.
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
  Tell(ip, at(0, true));
  Tell(ipv6, at(0, false));
  Tell(protocol, headers->protocol);
  Tell(icmp, transportAt(driver::Transport::Icmp));
  Tell(icmpv6, at(0, false));
  Tell(tcp, transportAt(driver::Transport::Tcp));
  Tell(udp, transportAt(driver::Transport::Udp));
  Tell(data, at(dataAt, rest > 0));
  Tell(dataBytes, static_cast<UINT>(rest));
  const std::size_t behind = bytes.size() - headers->totalBytes;
  Tell(next, at(headers->totalBytes, behind > 0));
  Tell(nextBytes, static_cast<UINT>(behind));
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
    Tell(address, static_cast<UINT32>(*parsed));
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
