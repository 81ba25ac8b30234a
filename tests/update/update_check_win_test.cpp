#include <gtest/gtest.h>

#include <stdexcept>

#include "platform/files.h"
#include "platform/path.h"
#include "platform/scratch_folder.h"
#include "service/scripted_server_win.h"
#include "text/utf8.h"
#include "update/update_check.h"

namespace update {
namespace {

using service::HttpReply;
using service::RawReply;

// The program's own HTTP and files, without the steps that would replace this test program.
struct RealUpdateDepsButTheEnd : RealUpdateDeps {
  explicit RealUpdateDepsButTheEnd(const std::stop_token& stop)
      : RealUpdateDeps({L"1.0.4"}, stop) {}

  std::optional<UpdateTry> LastTry() override { return std::nullopt; }
  platform::SystemResult CopyOver(const std::wstring&, const std::wstring&) override { return {}; }
  platform::SystemResult StartHidden(const std::wstring&) override {
    downloaded = platform::ReadFileBytes(downloadTarget);
    return {starts, 0};
  }
  void EndProcess() override { hasEnded = true; }

  bool starts = true;
  bool hasEnded = false;
  std::optional<std::string> downloaded;
};

class UpdateCheckOnWindows : public testing::Test {
 protected:
  std::wstring Check(const std::wstring& serverUrl) {
    settings::Settings settings;
    settings.serverUrl = serverUrl;
    RealUpdateDepsButTheEnd deps(stop_.get_token());
    EXPECT_EQ(deps.downloadTarget, platform::TemporaryFolder() + L"Velmarine.Client.update.exe");
    deps.downloadTarget = target_;
    deps.starts = starts_;
    std::wstring line = CheckForUpdate(settings, deps);
    downloaded_ = deps.downloaded;
    hasEnded_ = deps.hasEnded;
    return line;
  }

  // Returns the line for a forced offer whose download gets the reply `download`.
  std::wstring CheckWithDownload(RawReply download) {
    service::ScriptedServer server;
    server.Start({{HttpReply("200 OK",
                             "{\"success\":true,\"data\":{\"updateAvailable\":true,\"version\":"
                             "\"1.0.10\",\"downloadUrl\":\"updates/client.exe\",\"force\":true}}")},
                  std::move(download)});
    const std::wstring line = Check(server.Url(L""));
    requests_ = server.Requests();
    return line;
  }
  [[nodiscard]] std::string RequestLine(std::size_t index) const {
    return requests_.at(index).substr(0, requests_.at(index).find("\r\n"));
  }

  const platform::ScratchFolder scratch_;
  std::wstring target_ = scratch_.Path(L"临时 文件\\update.exe");
  std::stop_source stop_;
  bool starts_ = true;
  bool hasEnded_ = false;
  std::optional<std::string> downloaded_;
  std::vector<std::string> requests_;
};

TEST_F(UpdateCheckOnWindows, DownloadsAForcedUpdateFromTheService) {
  const std::string program("MZ\0\xFF program", 12);
  EXPECT_EQ(CheckWithDownload({HttpReply("200 OK", program)}), L"");
  EXPECT_EQ(downloaded_, program);
  EXPECT_TRUE(hasEnded_);
  ASSERT_EQ(requests_.size(), 2u);
  EXPECT_EQ(RequestLine(0), "GET /api/updates/client?currentVersion=1.0.4 HTTP/1.1");
  EXPECT_EQ(requests_[0].find("Content-Type"), std::string::npos) << "there is no body";
  EXPECT_EQ(RequestLine(1), "GET /updates/client.exe HTTP/1.1");
}

TEST_F(UpdateCheckOnWindows, AFailedDownloadLeavesNothing) {
  const RawReply replies[] = {
      {HttpReply("404 Not Found", "nothing here")},
      {"HTTP/1.1 200 OK\r\nContent-Length: 1000\r\n\r\nMZ the first bytes"},
      {},
  };
  for (const RawReply& reply : replies) {
    EXPECT_EQ(CheckWithDownload(reply), L"强制更新下载失败：1.0.10");
    EXPECT_FALSE(hasEnded_);
    EXPECT_FALSE(platform::IsFile(target_));
    EXPECT_FALSE(platform::IsFile(target_ + L".download"));
  }
}

TEST_F(UpdateCheckOnWindows, ATemporaryFolderThatCannotBeCreatedFailsTheDownload) {
  ASSERT_TRUE(platform::WriteFileBytes(scratch_.Path(L"临时 文件"), "a file"));
  EXPECT_EQ(CheckWithDownload({HttpReply("200 OK", "MZ")}), L"强制更新下载失败：1.0.10");
  EXPECT_FALSE(hasEnded_);
}

TEST_F(UpdateCheckOnWindows, TheDownloadIsDeletedIfTheReplacementProcessDoesNotStart) {
  starts_ = false;
  EXPECT_EQ(CheckWithDownload({HttpReply("200 OK", "MZ")}), L"强制更新启动替换进程失败：1.0.10");
  EXPECT_EQ(downloaded_, "MZ");
  EXPECT_FALSE(platform::IsFile(target_));
  EXPECT_FALSE(hasEnded_);
}

TEST_F(UpdateCheckOnWindows, AnUnreachableServiceThrowsTheTransportsText) {
  try {
    Check(L"http://127.0.0.1:" + std::to_wstring(service::ClosedPort()));
    ADD_FAILURE();
  } catch (const std::runtime_error& error) {
    EXPECT_EQ(std::string(error.what()).substr(0, 22), "WinHttpReceiveResponse");
  }
}

}  // namespace
}  // namespace update
