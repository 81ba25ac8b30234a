// The diagnosis report, started from the window's system menu.
#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <memory>
#include <stdexcept>

#include "settings/settings_file.h"
#include "shell/diagnosis.h"
#include "shell/window_fixture.h"
#include "shell/window_messages.h"
#include "win32/calls.h"

namespace shell {
namespace {

using namespace win32;

constexpr wchar_t kLine[] = L"诊断报告已写入：C:\\a.txt";

class Diagnosis : public WindowTest {
 protected:
  [[nodiscard]] bool IsLogged(const std::wstring& line) const {
    return std::ranges::find(logged_, line) != logged_.end();
  }
};

TEST_F(Diagnosis, IsAnItemOfTheSystemMenu) {
  Open();
  HMENU menu = ::GetSystemMenu(state_->window, FALSE);
  EXPECT_EQ(::GetMenuItemID(menu, ::GetMenuItemCount(menu) - 1), kReportItem);
  Calls calls;
  AddReportItem(state_->window);
  EXPECT_TRUE(
      calls.Were({Said<Api::GetSystemMenu>(Some{}, FALSE),
                  Said<Api::AppendMenuW>(Handle{1}, MF_SEPARATOR, 0, nullptr),
                  Said<Api::AppendMenuW>(Handle{1}, MF_STRING, kReportItem, L"诊断报告…")}));
  calls.Fail(Api::GetSystemMenu, ERROR_INVALID_WINDOW_HANDLE);
  AddReportItem(state_->window);
  EXPECT_EQ(calls.Count(Api::AppendMenuW), 2);
}

TEST_F(Diagnosis, IsWrittenWithTheWindowsSettingsAndLogged) {
  Open();
  Edit([](settings::Settings& record) { record.deviceName = L"水厂"; });
  *writeReport_ = [](const settings::Settings& settings) { return kLine + settings.deviceName; };
  EXPECT_EQ(Send(WM_SYSCOMMAND, kReportItem | 2), 0) << "the system's own low bits";
  PumpUntil([this] { return IsLogged(std::wstring(kLine) + L"水厂"); });
  ASSERT_GE(logged_.size(), 2U);
  EXPECT_EQ(logged_.back(), std::wstring(kLine) + L"水厂");
  EXPECT_EQ(logged_[logged_.size() - 2], L"正在做诊断报告，最多二十秒，做好后自动打开。");
}

TEST_F(Diagnosis, IsWrittenOneAtATime) {
  Open();
  const auto release = std::make_shared<std::promise<void>>();
  const auto runs = std::make_shared<std::atomic<int>>(0);
  *writeReport_ = [released = release->get_future().share(), runs](const settings::Settings&) {
    ++*runs;
    released.wait();
    return std::wstring(kLine);
  };
  Send(WM_SYSCOMMAND, kReportItem);
  Send(WM_SYSCOMMAND, kReportItem);
  release->set_value();
  PumpUntil([this] { return IsLogged(kLine) && !*state_->isReporting; });
  EXPECT_EQ(*runs, 1);
  Send(WM_SYSCOMMAND, kReportItem);
  PumpUntil([&] { return *runs == 2 && !*state_->isReporting; });
  EXPECT_EQ(*runs, 2);
}

TEST_F(Diagnosis, AllowsTheNextReportAfterRunningOutOfMemory) {
  Open();
  *writeReport_ = [](const settings::Settings&) -> std::wstring {
    throw std::runtime_error("memory");
  };
  Send(WM_SYSCOMMAND, kReportItem);
  PumpUntil([this] { return !*state_->isReporting; });
  EXPECT_FALSE(*state_->isReporting);
}

TEST_F(Diagnosis, LeavesOtherCommandsToTheSystem) {
  Open();
  Calls calls;
  calls.AnswerWith<Api::DefWindowProcW>([](HWND, UINT, WPARAM, LPARAM) -> LRESULT { return 7; });
  EXPECT_EQ(window_->OnSystemCommand(SC_MINIMIZE, 5), 7);
  EXPECT_TRUE(calls.EachWas(Api::DefWindowProcW,
                            Said<Api::DefWindowProcW>(Some{}, WM_SYSCOMMAND, SC_MINIMIZE, 5)));
}

// A check from the command line: the report's path is relative.
TEST(CheckCalls, LoadTheDriverFromTheRuntimeFolderAndMakeThePathAbsolute) {
  Calls calls;
  CheckArguments arguments;
  arguments.file = L"no such folder\\a.txt";
  EXPECT_EQ(RunCheck(arguments, {L"1.0"}), 1);
  EXPECT_TRUE(calls.Had(Said<Api::SetDllDirectoryW>(settings::RuntimeFolder())));
  EXPECT_TRUE(
      calls.Had(Said<Api::GetFullPathNameW>(L"no such folder\\a.txt", 0, nullptr, nullptr)));
  calls.Fail(Api::GetFullPathNameW, ERROR_INVALID_NAME, 0);
  EXPECT_EQ(RunCheck(arguments, {L"1.0"}), 1);
}

}  // namespace
}  // namespace shell
