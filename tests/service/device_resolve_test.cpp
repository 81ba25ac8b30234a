#include "service/device_resolve.h"

#include <gtest/gtest.h>

namespace service {
namespace {

TEST(DeviceResolve, SaysThatItIsNotBuilt) {
  EXPECT_EQ(ResolveDevice(settings::Settings()), L"获取现场端网段功能尚未提供。");
}

}  // namespace
}  // namespace service
