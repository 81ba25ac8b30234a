#include "tunnel/adapter_list.h"

#include <gtest/gtest.h>

namespace tunnel {
namespace {

TEST(LocalNetworks, CountsAddressesOfAdaptersThatAreUp) {
  const std::vector<AdapterAddress> addresses{
      {true, 0xC0A80132, 24},   // 192.168.1.50/24
      {false, 0x0A000001, 8},   // of an adapter that is down
      {true, 0x7F000001, 8},    // loopback
      {true, 0x7FFFFFFF, 32},   // loopback
      {true, 0xA9FE0102, 16},   // link-local
      {true, 0xA9FD0102, 16},   // 169.253.1.2, an ordinary one
      {true, 0x80000001, 32},   // 128.0.0.1
      {true, 0xAC1F0001, 16},   // 172.31.0.1
      {true, 0xE0000001, 4},    // reserved ranges count
      {true, 0x0A000001, 255},  // the system does not know the prefix
      {true, 0x01020304, 0},
  };
  EXPECT_EQ(SelectLocalNetworks(addresses), (std::vector<Ipv4Network>{{0xC0A80100, 24},
                                                                      {0xA9FD0000, 16},
                                                                      {0x80000001, 32},
                                                                      {0xAC1F0000, 16},
                                                                      {0xE0000000, 4},
                                                                      {0x0A000001, 32},
                                                                      {0, 0}}));
  EXPECT_TRUE(SelectLocalNetworks({}).empty());
}

}  // namespace
}  // namespace tunnel
