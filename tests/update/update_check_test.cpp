#include "update/update_check.h"

#include <gtest/gtest.h>

namespace update {
namespace {

TEST(UpdateCheck, SaysThatItIsNotBuilt) {
  EXPECT_EQ(CheckForUpdate(settings::Settings()), L"自动更新尚未提供：本版本不检查更新。");
}

}  // namespace
}  // namespace update
