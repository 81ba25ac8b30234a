#include "diag/proxy_bypass.h"

#include <gtest/gtest.h>

namespace diag {
namespace {

TEST(ProxyBypass, HasNothingToReportAsItEditsNothing) {
  EXPECT_EQ(AddProxyBypass({L"192.168.1.0/24"}), L"");
  EXPECT_EQ(RemoveProxyBypass({L"192.168.1.0/24"}), L"");
}

}  // namespace
}  // namespace diag
