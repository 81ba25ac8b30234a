#include <algorithm>
#include <array>
#include <cstddef>

#include "diag/latency_test.h"
#include "platform/unique_handle.h"
#include "platform/windows_sdk.h"
// After the SDK, which they need; the second needs the first.
// clang-format off
#include <iphlpapi.h>
#include <icmpapi.h>
// clang-format on

namespace diag {
namespace {

constexpr char kPayload[] = "Velmarine";  // with its zero byte
// The reply, the payload and room for the eight bytes of an ICMP error, and some to spare.
constexpr std::size_t kReplyBytes = 82;
constexpr DWORD kTimeoutMs = 1000;

struct IcmpHandleTraits {
  using Raw = HANDLE;
  static Raw Invalid() noexcept { return INVALID_HANDLE_VALUE; }
  static bool IsValid(Raw handle) noexcept {
    return handle != nullptr && handle != INVALID_HANDLE_VALUE;
  }
  static void Close(Raw handle) noexcept { ::IcmpCloseHandle(handle); }
};
using IcmpHandle = platform::UniqueHandle<IcmpHandleTraits>;

}  // namespace

Echo SendEcho(std::uint32_t address) {
  // The system writes a record to the start of the buffer.
  alignas(ICMP_ECHO_REPLY) std::array<std::byte, kReplyBytes> buffer{};
  DWORD replies = 0;
  {
    const IcmpHandle icmp(::IcmpCreateFile());
    if (!icmp) return {EchoOutcome::NoHandle};
    // A copy: IcmpSendEcho takes a writable buffer.
    char payload[sizeof(kPayload)];
    std::copy(std::begin(kPayload), std::end(kPayload), std::begin(payload));
    replies = ::IcmpSendEcho(icmp.Get(), ::htonl(address), payload, sizeof(payload), nullptr,
                             buffer.data(), static_cast<DWORD>(buffer.size()), kTimeoutMs);
  }
  if (replies == 0) return {EchoOutcome::Silence};
  const auto* const first = static_cast<const ICMP_ECHO_REPLY*>(static_cast<void*>(buffer.data()));
  // An ICMP error, such as "unreachable", is a reply, too.
  if (first->Status != IP_SUCCESS) return {EchoOutcome::Refused};
  return {EchoOutcome::Answered, first->RoundTripTime};
}

}  // namespace diag
