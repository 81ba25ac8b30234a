#include "driver/adapters_win.h"

#include <cstddef>

#include "platform/windows_sdk.h"
// clang-format off
#include <iphlpapi.h>
// clang-format on

namespace driver {
namespace {

constexpr std::int64_t kRefreshMs = 1000;

}  // namespace

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
