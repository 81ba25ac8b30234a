#include "remote/remote_desktop.h"

#include <gtest/gtest.h>

namespace remote {
namespace {

TEST(RemoteDesktop, SaysThatItIsNotBuilt) {
  EXPECT_EQ(StartRemoteDesktop(settings::Settings()), L"远程桌面功能尚未提供。");
}

}  // namespace
}  // namespace remote
