#include <gtest/gtest.h>

#include "tunnel/adapter_list.h"

namespace tunnel {
namespace {

// Machines differ; check only the properties that hold on all of them.
TEST(LocalNetworks, OfThisMachineAreMaskedAndNeitherLoopbackNorLinkLocal) {
  for (const Ipv4Network& network : CollectLocalNetworks().networks) {
    SCOPED_TRACE(network.network);
    ASSERT_LE(network.prefix, 32U);
    EXPECT_EQ(network.network & ~MaskOf(network.prefix), 0U);
    EXPECT_NE(network.network >> 24, 127U);
    if (network.prefix >= 16) {
      EXPECT_NE(network.network >> 16, 0xA9FEU);
    }
  }
}

}  // namespace
}  // namespace tunnel
