// Every file call of a download: its arguments, and the effect of its failure.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/files.h"
#include "platform/scratch_folder.h"
#include "service/fake_http_win.h"
#include "service/http_transport.h"

namespace service {
namespace {

using namespace win32;

constexpr wchar_t kUrl[] = L"http://host/x.exe";

class HttpDownloadCalls : public testing::Test {
 protected:
  HttpDownloadCalls() { http_.pieces = {"body"}; }

  [[nodiscard]] bool Download() const { return DownloadFile(kUrl, target_); }
  [[nodiscard]] Text File() const { return {calls_.Given(Api::CreateFileW)}; }

  [[nodiscard]] std::string SaidCreate() const {
    return Said<Api::CreateFileW>(partial_, GENERIC_WRITE | DELETE, 0, nullptr, CREATE_NEW,
                                  FILE_ATTRIBUTE_NORMAL, nullptr);
  }
  [[nodiscard]] std::string SaidDeletes(bool deletes) const {
    return Said<Api::SetFileInformationByHandle>(File(), FileDispositionInfo,
                                                 std::string(1, deletes ? '\1' : '\0'), 1);
  }
  [[nodiscard]] std::string SaidWrite() const {
    return Said<Api::WriteFile>(File(), "body", 4, Ref{0}, nullptr);
  }
  [[nodiscard]] std::string SaidClose() const { return Said<Api::CloseHandle>(File()); }
  [[nodiscard]] std::string SaidMove() const {
    return Said<Api::MoveFileExW>(partial_, target_,
                                  MOVEFILE_REPLACE_EXISTING | MOVEFILE_COPY_ALLOWED);
  }
  [[nodiscard]] std::string SaidDelete() const { return Said<Api::DeleteFileW>(partial_); }

  // True when these were the file calls, and nothing remains but a complete file.
  // The calls after an old partial file, or a link in its place, was deleted.
  [[nodiscard]] testing::AssertionResult Did(std::vector<std::string> expected) {
    if (!expected.empty()) expected.insert(expected.begin(), Said<Api::DeleteFileW>(partial_));
    if (const std::string left = calls_.Unbalanced(); !left.empty()) {
      return testing::AssertionFailure() << left;
    }
    if (platform::IsFile(partial_)) return testing::AssertionFailure() << "a part is left";
    return calls_.WereAmong({Api::CreateFileW, Api::SetFileInformationByHandle, Api::WriteFile,
                             Api::CloseHandle, Api::MoveFileExW, Api::DeleteFileW},
                            expected);
  }

  const platform::ScratchFolder scratch_;
  const std::wstring target_ = scratch_.Path(L"x.exe");
  const std::wstring partial_ = target_ + L".download";
  Calls calls_;
  FakeHttp http_{calls_};
};

TEST_F(HttpDownloadCalls, SendAGetWithATwoMinuteLimitAndReadTheLength) {
  http_.contentLength = L"4";
  EXPECT_TRUE(Download());
  EXPECT_TRUE(calls_.WereAmong(
      {Api::WinHttpSetTimeouts, Api::WinHttpOpenRequest, Api::WinHttpSendRequest,
       Api::WinHttpQueryHeaders},
      {
          Said<Api::WinHttpSetTimeouts>(Handle{1}, 10000, 10000, 15000, 120000),
          Said<Api::WinHttpOpenRequest>(Handle{2}, L"GET", L"/x.exe", nullptr, nullptr, nullptr, 0),
          Said<Api::WinHttpSendRequest>(Handle{3}, nullptr, 0, nullptr, 0, 0, http_.Context()),
          Said<Api::WinHttpQueryHeaders>(Handle{3},
                                         WINHTTP_QUERY_STATUS_CODE | WINHTTP_QUERY_FLAG_NUMBER,
                                         nullptr, Some{}, Ref{4}, nullptr),
          Said<Api::WinHttpQueryHeaders>(Handle{3}, WINHTTP_QUERY_CONTENT_LENGTH, nullptr, Some{},
                                         Ref{126}, nullptr),
      }));
}

TEST_F(HttpDownloadCalls, WriteAFileDeletedWithItsHandleAndMoveItWhenComplete) {
  EXPECT_TRUE(Download());
  EXPECT_TRUE(Did(
      {SaidCreate(), SaidDeletes(true), SaidWrite(), SaidDeletes(false), SaidClose(), SaidMove()}));
  EXPECT_TRUE(platform::IsFile(target_));
}

TEST_F(HttpDownloadCalls, StopWithoutAFile) {
  calls_.Fail(Api::CreateFileW, ERROR_ACCESS_DENIED);
  EXPECT_FALSE(Download());
  EXPECT_TRUE(Did({SaidCreate()}));
}

TEST_F(HttpDownloadCalls, ContinueWhereDeletionWithTheHandleIsUnsupported) {
  calls_.Fail(Api::SetFileInformationByHandle, ERROR_NOT_SUPPORTED, 0);
  EXPECT_TRUE(Download());
  EXPECT_TRUE(Did(
      {SaidCreate(), SaidDeletes(true), SaidWrite(), SaidDeletes(false), SaidClose(), SaidMove()}));
}

TEST_F(HttpDownloadCalls, DeleteAFileThatCouldNotBeWritten) {
  calls_.Fail(Api::WriteFile, ERROR_DISK_FULL);
  EXPECT_FALSE(Download());
  EXPECT_TRUE(Did({SaidCreate(), SaidDeletes(true), SaidWrite(), SaidClose(), SaidDelete()}));
}

TEST_F(HttpDownloadCalls, DeleteAPartlyWrittenFile) {
  calls_.AnswerWith<Api::WriteFile>(
      [](HANDLE, const void*, DWORD, DWORD* writtenBytes, OVERLAPPED*) {
        *writtenBytes = 3;
        return TRUE;
      });
  EXPECT_FALSE(Download());
  EXPECT_TRUE(Did({SaidCreate(), SaidDeletes(true), SaidWrite(), SaidClose(), SaidDelete()}));
}

TEST_F(HttpDownloadCalls, DeleteAFileShorterThanItsAnnouncedLength) {
  http_.contentLength = L"5";
  EXPECT_FALSE(Download());
  EXPECT_TRUE(Did({SaidCreate(), SaidDeletes(true), SaidWrite(), SaidClose(), SaidDelete()}));
}

TEST_F(HttpDownloadCalls, DeleteAFileThatCouldNotBeMoved) {
  calls_.Fail(Api::MoveFileExW, ERROR_ACCESS_DENIED);
  EXPECT_FALSE(Download());
  EXPECT_TRUE(Did({SaidCreate(), SaidDeletes(true), SaidWrite(), SaidDeletes(false), SaidClose(),
                   SaidMove(), SaidDelete()}));
}

TEST_F(HttpDownloadCalls, CreateNoFileForAnUnsuccessfulReply) {
  http_.status = 404;
  EXPECT_FALSE(Download());
  EXPECT_TRUE(Did({}));
}

}  // namespace
}  // namespace service
