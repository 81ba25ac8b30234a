#include "platform/process_win.h"

#include <gtest/gtest.h>

#include "platform/files.h"
#include "platform/scratch_folder.h"

namespace platform {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

TEST(RunHidden, WaitsUntilTheCommandHasDoneItsWork) {
  const ScratchFolder scratch;
  const std::wstring made = scratch.Path(L"made");
  EXPECT_TRUE(RunHidden(L"cmd.exe /c echo x> \"" + made + L"\"", seconds(30)));
  EXPECT_TRUE(IsFile(made));
}

TEST(RunHidden, DoesNotLookAtWhatTheCommandReturned) {
  EXPECT_TRUE(RunHidden(L"cmd.exe /c exit 3", seconds(30)));
}

TEST(RunHidden, GivesUpWaitingButNotTheCommand) {
  const auto before = std::chrono::steady_clock::now();
  EXPECT_TRUE(RunHidden(L"cmd.exe /c ping -n 4 127.0.0.1", milliseconds(1)));
  EXPECT_LT(std::chrono::steady_clock::now() - before, seconds(3));
}

TEST(RunHidden, SaysThatACommandCouldNotBeStarted) {
  EXPECT_FALSE(RunHidden(L"velmarine-no-such-command.exe now", seconds(1)));
  EXPECT_FALSE(RunHidden(L"", seconds(1)));
}

}  // namespace
}  // namespace platform
