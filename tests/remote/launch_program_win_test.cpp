#include <gtest/gtest.h>

#include <vector>

#include "platform/files.h"
#include "platform/recorded_start_win.h"
#include "platform/scratch_folder.h"
#include "platform/windows_sdk.h"
#include "remote/rustdesk_program.h"
#include "text/strings.h"

namespace remote {
namespace {

using Arguments = std::vector<std::wstring>;

class LaunchProgramTest : public testing::Test {
 protected:
  LaunchProgramTest() {
    ::CreateDirectoryW(scratch_.Path(L"现场 工具").c_str(), nullptr);
    EXPECT_TRUE(platform::PutRecorder(program_));
  }

  const platform::ScratchFolder scratch_;
  const std::wstring program_ = scratch_.Path(L"现场 工具\\rustdesk.exe");
};

TEST_F(LaunchProgramTest, PassesTheArgumentsInQuotesAsTheyAre) {
  LaunchProgram(program_, Arguments{L"--connect", L"9\"8 7钥"});
  const platform::RecordedStart start = platform::AwaitStart(program_);
  EXPECT_EQ(start.commandLine, L"\"" + program_ + L"\" \"--connect\" \"9\"8 7钥\"");
}

TEST_F(LaunchProgramTest, PassesNothingWithoutArguments) {
  LaunchProgram(program_, {});
  const platform::RecordedStart start = platform::AwaitStart(program_);
  EXPECT_EQ(text::Trim(start.commandLine), L"\"" + program_ + L"\"");
}

TEST_F(LaunchProgramTest, SetsNoWorkingFolder) {
  std::wstring ours(MAX_PATH, L'\0');
  ours.resize(::GetCurrentDirectoryW(MAX_PATH, ours.data()));
  LaunchProgram(program_, {});
  EXPECT_EQ(platform::AwaitStart(program_).workingFolder, ours);
}

}  // namespace
}  // namespace remote
