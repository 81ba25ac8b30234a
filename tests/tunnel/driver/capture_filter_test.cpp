#include "tunnel/driver/capture.h"

#include <gtest/gtest.h>

#include "tunnel/driver/test_packet_path.h"

namespace tunnel {
namespace {

TEST(CaptureFilter, ClauseCoversTheMappedNetwork) {
  EXPECT_EQ(RouteClause(kNat), L"(ip.DstAddr >= 172.31.0.0 and ip.DstAddr <= 172.31.0.255)");
  EXPECT_EQ(RouteClause({0, 0, 0, 0, false}),
            L"(ip.DstAddr >= 0.0.0.0 and ip.DstAddr <= 255.255.255.255)");
  EXPECT_EQ(RouteClause({7, 32, 7, 32, false}),
            L"(ip.DstAddr >= 0.0.0.7 and ip.DstAddr <= 0.0.0.7)");
}

TEST(CaptureFilter, JoinsTheClausesInMappingOrder) {
  EXPECT_EQ(BuildCaptureFilter(std::vector{kDirect, kNat}, false),
            L"outbound and ip and !impostor and (icmp or tcp or udp) and "
            L"((ip.DstAddr >= 10.0.0.0 and ip.DstAddr <= 10.0.0.255) or "
            L"(ip.DstAddr >= 172.31.0.0 and ip.DstAddr <= 172.31.0.255))");
}

TEST(CaptureFilter, DiscoveryAddsExactlyTheBroadcastClause) {
  EXPECT_EQ(BuildCaptureFilter(std::vector{kDirect}, true),
            L"outbound and ip and !impostor and (((icmp or tcp or udp) and "
            L"((ip.DstAddr >= 10.0.0.0 and ip.DstAddr <= 10.0.0.255))) or "
            L"(udp and ip.DstAddr == 255.255.255.255))");
}

}  // namespace
}  // namespace tunnel
