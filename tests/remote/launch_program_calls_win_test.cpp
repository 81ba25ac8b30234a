// Starting a program: the call, its arguments, and the effect of its failure.
#include <gtest/gtest.h>

#include <vector>

#include "remote/rustdesk_program.h"
#include "win32/calls.h"

namespace remote {
namespace {

using namespace win32;

using Arguments = std::vector<std::wstring>;

// SEE_MASK_NOCLOSEPROCESS, SW_SHOWNORMAL; no verb, no working folder.
std::string SaidStart(const std::string& parameters) {
  return Said<Api::ShellExecuteExW>(Text{"{112 mask 64 window null verb null \"C:\\a b.exe\" " +
                                         parameters + " in null show 1}"});
}

class LaunchCalls : public testing::Test {
 protected:
  LaunchCalls() {
    calls_.AnswerWith<Api::ShellExecuteExW>([](SHELLEXECUTEINFOW* start) {
      start->hProcess = ::CreateMutexW(nullptr, FALSE, nullptr);
      return TRUE;
    });
  }

  Calls calls_;
};

TEST_F(LaunchCalls, AskTheShellAndCloseItsHandle) {
  LaunchProgram(L"C:\\a b.exe", Arguments{L"--connect", L"9 8"});
  EXPECT_TRUE(
      calls_.Were({SaidStart(R"(""--connect" "9 8"")"), Said<Api::CloseHandle>(Handle{1})}));
  EXPECT_EQ(calls_.Unbalanced(), "");
}

TEST_F(LaunchCalls, PassNoParametersWithoutArguments) {
  LaunchProgram(L"C:\\a b.exe", {});
  EXPECT_TRUE(calls_.Were({SaidStart("null"), Said<Api::CloseHandle>(Handle{1})}));
}

TEST_F(LaunchCalls, CloseNoHandleAfterAFailure) {
  calls_.Fail(Api::ShellExecuteExW, ERROR_FILE_NOT_FOUND);
  LaunchProgram(L"C:\\a b.exe", {});
  EXPECT_TRUE(calls_.Were({SaidStart("null")}));
}

}  // namespace
}  // namespace remote
