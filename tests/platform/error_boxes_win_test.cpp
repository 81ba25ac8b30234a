#include <gtest/gtest.h>

#include "platform/process_win.h"
#include "platform/windows_sdk.h"

namespace platform {
namespace {

TEST(SystemErrorBoxes, AreRefusedForTheWholeProcess) {
  const UINT before = ::SetErrorMode(0);
  RefuseSystemErrorBoxes();
  EXPECT_EQ(::GetErrorMode(), UINT{SEM_FAILCRITICALERRORS | SEM_NOOPENFILEERRORBOX});
  ::SetErrorMode(before);
}

}  // namespace
}  // namespace platform
