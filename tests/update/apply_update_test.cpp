#include "update/apply_update.h"

#include <gtest/gtest.h>

#include "platform/files.h"
#include "platform/scratch_folder.h"

namespace update {
namespace {

TEST(ApplyUpdate, FailsAndTouchesNoFileWhileItIsNotBuilt) {
  const platform::ScratchFolder scratch;
  const std::wstring source = scratch.Path(L"new.exe");
  const std::wstring destination = scratch.Path(L"old.exe");
  ASSERT_TRUE(platform::WriteFileBytes(source, "new"));
  ASSERT_TRUE(platform::WriteFileBytes(destination, "old"));

  EXPECT_NE(ApplyUpdate(0, source, destination), 0);

  EXPECT_EQ(platform::ReadFileBytes(source), "new");
  EXPECT_EQ(platform::ReadFileBytes(destination), "old");
}

}  // namespace
}  // namespace update
