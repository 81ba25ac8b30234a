// The Windows calls for the running client's mark and for its window.
#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>

#include "shell/single_instance.h"
#include "text/utf8.h"
#include "win32/calls.h"

namespace shell {
namespace {

using namespace win32;

constexpr wchar_t kMarkName[] = L"Global\\Velmarine.Client.Running";
constexpr DWORD kSession = 7;

// The layout in memory that all clients on a computer share, whatever their version.
struct Mark {
  DWORD isWritten;
  DWORD session;
  wchar_t user[256];
};
static_assert(sizeof(Mark) == 520 && offsetof(Mark, user) == 8);

class InstanceCalls : public testing::Test {
 protected:
  InstanceCalls() {
    FakeTheMark();
    FakeTheSession();
  }

  void FakeTheMark() {
    calls_.AnswerWith<Api::CreateFileMappingW>(
        [this](HANDLE, SECURITY_ATTRIBUTES*, DWORD, DWORD, DWORD, const wchar_t*) {
          Real<Api::SetLastError>()(markError_);
          return static_cast<HANDLE>(&mappingByte);
        });
    calls_.AnswerWith<Api::MapViewOfFile>(
        [this](HANDLE, DWORD, DWORD, DWORD, SIZE_T) { return static_cast<void*>(&mark_); });
    calls_.AnswerWith<Api::UnmapViewOfFile>([](const void*) { return TRUE; });
    calls_.AnswerWith<Api::CloseHandle>([](HANDLE handle) {
      return handle == &mappingByte ? TRUE : Real<Api::CloseHandle>()(handle);
    });
  }
  void FakeTheSession() {
    calls_.AnswerWith<Api::ProcessIdToSessionId>([](DWORD, DWORD* session) {
      *session = kSession;
      return TRUE;
    });
    calls_.AnswerWith<Api::WTSQuerySessionInformationW>(
        [this](HANDLE, DWORD, WTS_INFO_CLASS, wchar_t** text, DWORD* sizeBytes) {
          *text = signedIn_.empty() ? nullptr : signedIn_.data();
          *sizeBytes = static_cast<DWORD>((signedIn_.size() + 1) * sizeof(wchar_t));
          return TRUE;
        });
    calls_.AnswerWith<Api::WTSFreeMemory>([](void*) {});
  }

  // Another process owns the mark.
  void GiveMarkToAnother(DWORD isWritten, DWORD session, const std::wstring& user) {
    markError_ = ERROR_ALREADY_EXISTS;
    mark_ = {};
    mark_.isWritten = isWritten;
    mark_.session = session;
    user.copy(mark_.user, std::size(mark_.user) - 1);
  }

  static std::string Claim() {
    const RunningClient running = InstanceSystem(L"Class", L"Title").Claim();
    if (running.isMine) return "mine";
    return std::string(running.isInThisSession ? "here " : "elsewhere ") +
           text::ToUtf8(running.user);
  }
  static bool BringToFront() { return InstanceSystem(L"Class", L"Title").BringToFront(); }

  static std::string SaidCreate() {
    return Said<Api::CreateFileMappingW>(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0,
                                         sizeof(Mark), kMarkName);
  }

  static inline char mappingByte = 0;
  Mark mark_{};
  DWORD markError_ = ERROR_SUCCESS;
  std::wstring signedIn_ = L"张工";
  const DWORD processId_ = ::GetCurrentProcessId();
  Calls calls_;
};

TEST_F(InstanceCalls, CreateTheMarkAndWriteItsOwner) {
  EXPECT_EQ(Claim(), "mine");
  EXPECT_TRUE(calls_.Were({
      SaidCreate(),
      Said<Api::GetLastError>(),
      Said<Api::MapViewOfFile>(Handle{1}, FILE_MAP_WRITE, 0, 0, sizeof(Mark)),
      Said<Api::GetCurrentProcessId>(),
      Said<Api::ProcessIdToSessionId>(processId_, Ref{0}),
      Said<Api::WTSQuerySessionInformationW>(nullptr, WTS_CURRENT_SESSION, WTSUserName, Some{},
                                             Ref{0}),
      Said<Api::WTSFreeMemory>(Handle{3}),
      Said<Api::UnmapViewOfFile>(Handle{2}),
  }));
  EXPECT_EQ(calls_.Unbalanced(), "h1 of CreateFileMappingW") << "the system's to close";
  EXPECT_EQ(mark_.isWritten, 1u);
  EXPECT_EQ(mark_.session, kSession);
  EXPECT_STREQ(mark_.user, L"张工");
}

TEST_F(InstanceCalls, LookForTheMarkWithoutTakingIt) {
  calls_.AnswerWith<Api::OpenFileMappingW>(
      [](DWORD, BOOL, const wchar_t*) { return static_cast<HANDLE>(&mappingByte); });
  EXPECT_TRUE(IsClientRunning());
  EXPECT_TRUE(calls_.Were({
      Said<Api::OpenFileMappingW>(FILE_MAP_READ, FALSE, L"Global\\Velmarine.Client.Running"),
      Said<Api::GetLastError>(),
      Said<Api::CloseHandle>(Handle{1}),
  }));
  calls_.Fail(Api::OpenFileMappingW, ERROR_FILE_NOT_FOUND);
  EXPECT_FALSE(IsClientRunning());
  calls_.Fail(Api::OpenFileMappingW, ERROR_ACCESS_DENIED);
  EXPECT_TRUE(IsClientRunning()) << "somebody else's";
}

TEST_F(InstanceCalls, TruncateALongUserName) {
  signedIn_ = std::wstring(300, L'x');
  std::memset(&mark_, 0, sizeof(mark_));
  EXPECT_EQ(Claim(), "mine");
  EXPECT_EQ(std::wstring(mark_.user), std::wstring(255, L'x'));
}

TEST_F(InstanceCalls, WriteTheMarkWithoutAnUnknownName) {
  signedIn_.clear();
  EXPECT_EQ(Claim(), "mine");
  EXPECT_STREQ(mark_.user, L"");
  EXPECT_EQ(mark_.isWritten, 1u);
  mark_ = {};
  calls_.Fail(Api::WTSQuerySessionInformationW, 1450);
  calls_.Fail(Api::ProcessIdToSessionId, 1450);
  EXPECT_EQ(Claim(), "mine");
  EXPECT_STREQ(mark_.user, L"");
  EXPECT_EQ(mark_.session, 0u);
  EXPECT_EQ(mark_.isWritten, 1u);
}

TEST_F(InstanceCalls, OwnTheMarkEvenIfItCannotBeWritten) {
  calls_.Fail(Api::MapViewOfFile, 1450);
  EXPECT_EQ(Claim(), "mine");
  EXPECT_EQ(mark_.isWritten, 0u);
  EXPECT_EQ(calls_.Count(Api::UnmapViewOfFile), 0);
}

TEST_F(InstanceCalls, ReadTheMarksOwnerAndCloseIt) {
  GiveMarkToAnother(1, kSession, L"李工");
  EXPECT_EQ(Claim(), "here 李工");
  EXPECT_TRUE(calls_.Were({
      SaidCreate(),
      Said<Api::GetLastError>(),
      Said<Api::MapViewOfFile>(Handle{1}, FILE_MAP_READ, 0, 0, sizeof(Mark)),
      Said<Api::GetCurrentProcessId>(),
      Said<Api::ProcessIdToSessionId>(processId_, Ref{0}),
      Said<Api::UnmapViewOfFile>(Handle{2}),
      Said<Api::CloseHandle>(Handle{1}),
  }));
  EXPECT_EQ(calls_.Unbalanced(), "");
}

TEST_F(InstanceCalls, ReportAnotherSessionAndAnUnfinishedMark) {
  GiveMarkToAnother(1, kSession + 1, L"李工");
  EXPECT_EQ(Claim(), "elsewhere 李工");
  GiveMarkToAnother(1, kSession + 1, L"");
  EXPECT_EQ(Claim(), "elsewhere ");
  GiveMarkToAnother(0, 0, L"");
  EXPECT_EQ(Claim(), "here ");
  calls_.Fail(Api::MapViewOfFile, 1450);
  EXPECT_EQ(Claim(), "elsewhere ") << "nobody can say where";
  EXPECT_EQ(calls_.Unbalanced(), "");
}

TEST_F(InstanceCalls, LeaveAMarkAloneThatThisUserMayNotOpen) {
  calls_.Fail(Api::CreateFileMappingW, ERROR_ACCESS_DENIED);
  EXPECT_EQ(Claim(), "elsewhere ");
  EXPECT_TRUE(calls_.Were({SaidCreate(), Said<Api::GetLastError>()}));
}

TEST_F(InstanceCalls, ContinueWhereNoMarkCanBeCreated) {
  for (const DWORD error : {DWORD{ERROR_NO_SYSTEM_RESOURCES}, DWORD{ERROR_PRIVILEGE_NOT_HELD}}) {
    calls_.Fail(Api::CreateFileMappingW, error);
    EXPECT_EQ(Claim(), "mine") << error;
  }
  EXPECT_EQ(calls_.Count(Api::MapViewOfFile), 0);
}

// ---- the running client's window

class InstanceWindowCalls : public InstanceCalls {
 protected:
  InstanceWindowCalls() {
    calls_.AnswerWith<Api::FindWindowW>([](const wchar_t*, const wchar_t*) {
      return reinterpret_cast<HWND>(static_cast<INT_PTR>(0x20002));
    });
    calls_.AnswerWith<Api::IsWindowVisible>([](HWND) { return TRUE; });
    calls_.AnswerWith<Api::IsIconic>([this](HWND) { return isMinimised_; });
    calls_.AnswerWith<Api::ShowWindowAsync>([](HWND, int) { return TRUE; });
    calls_.AnswerWith<Api::SetForegroundWindow>([](HWND) { return TRUE; });
  }
  const std::string find_ = Said<Api::FindWindowW>(L"Class", nullptr);
  const std::string look_ = Said<Api::IsWindowVisible>(Handle{1});
  BOOL isMinimised_ = FALSE;
};

TEST_F(InstanceWindowCalls, BringAWindowToTheFront) {
  EXPECT_TRUE(BringToFront());
  EXPECT_TRUE(calls_.Were(
      {find_, look_, Said<Api::IsIconic>(Handle{1}), Said<Api::SetForegroundWindow>(Handle{1})}));
}

TEST_F(InstanceWindowCalls, RestoreAMinimisedWindowWithoutWaiting) {
  isMinimised_ = TRUE;
  EXPECT_TRUE(BringToFront());
  EXPECT_TRUE(calls_.Were({find_, look_, Said<Api::IsIconic>(Handle{1}),
                           Said<Api::ShowWindowAsync>(Handle{1}, SW_RESTORE),
                           Said<Api::SetForegroundWindow>(Handle{1})}));
}

TEST_F(InstanceWindowCalls, AcceptAWindowThatOnlyFlashesInTheTaskBar) {
  calls_.Fail(Api::SetForegroundWindow, 1450);
  EXPECT_TRUE(BringToFront());
}

TEST_F(InstanceWindowCalls, FindNoMissingOrHiddenWindow) {
  calls_.Fail(Api::FindWindowW, 1450);
  EXPECT_FALSE(BringToFront());
  EXPECT_TRUE(calls_.Were({find_}));
  calls_.Fail(Api::IsWindowVisible, 0);
  EXPECT_FALSE(BringToFront());
  EXPECT_TRUE(calls_.Were({find_, find_, look_}));
}

TEST_F(InstanceWindowCalls, ShowTheReasonInABoxAndPause) {
  calls_.AnswerWith<Api::MessageBoxW>([](HWND, const wchar_t*, const wchar_t*, UINT) { return 1; });
  InstanceSystem system(L"Class", L"Title");
  system.ShowMessage(L"正在使用");
  EXPECT_TRUE(calls_.Were(
      {Said<Api::MessageBoxW>(nullptr, L"正在使用", L"Title", MB_OK | MB_ICONINFORMATION)}));
  const auto begin = std::chrono::steady_clock::now();
  system.Pause(std::chrono::milliseconds(30));
  EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(30));
}

}  // namespace
}  // namespace shell
