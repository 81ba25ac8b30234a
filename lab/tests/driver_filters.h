#pragma once

#include <gtest/gtest.h>

#include <string>

#include "driver/filter.h"
#include "tests/driver_packets.h"

// Filters for the driver's tests. Packets come from interface 7.
namespace filters {

// The tunnel's two filters around their ranges: without and with discovery.
inline const std::string kF1Head = "outbound and ip and !impostor and (icmp or tcp or udp) and (";
inline const std::string kF2Head = "outbound and ip and !impostor and (((icmp or tcp or udp) and (";
inline const std::string kF2Tail = ")) or (udp and ip.DstAddr == 255.255.255.255))";

inline bool Compiles(const std::string& text) {
  return driver::Filter::Compile(text).has_value();
}

inline bool Matches(const std::string& text, const packets::Bytes& packet,
                    std::uint32_t flags = driver::kAddressOutbound) {
  const auto filter = driver::Filter::Compile(text);
  EXPECT_TRUE(filter) << text;
  driver::Address address;
  address.flags = flags;
  address.interfaceIndex = 7;
  return filter && filter->Matches({packet, driver::ReadHeaders(packet), address});
}

}  // namespace filters
