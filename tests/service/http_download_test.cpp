#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "platform/files.h"
#include "platform/handles_win.h"
#include "platform/path.h"
#include "platform/windows_sdk.h"
#include "service/http_exchange_win.h"
#include "service/http_transport.h"
#include "service/scripted_server_win.h"

namespace service {
namespace {

// Downloads into a subfolder of the temporary folder, which every test leaves empty.
class DownloadFileTest : public testing::Test {
 protected:
  void SetUp() override {
    folder_ = platform::TemporaryFolder() + L"velmarine-download-" +
              std::to_wstring(::GetCurrentProcessId());
    target_ = folder_ + L"\\驱动 文件\\update.exe";
    RemoveAll();
  }
  void TearDown() override { RemoveAll(); }

  void RemoveAll() const {
    ::DeleteFileW(target_.c_str());
    ::DeleteFileW(Partial().c_str());
    ::RemoveDirectoryW((folder_ + L"\\驱动 文件").c_str());
    ::RemoveDirectoryW(folder_.c_str());
  }

  void PutOldTarget() const {
    ASSERT_TRUE(platform::CreateFolders(folder_ + L"\\驱动 文件"));
    ASSERT_TRUE(platform::WriteFileBytes(target_, "old"));
  }

  // Runs one download against one raw reply.
  [[nodiscard]] bool DownloadReply(const RawReply& reply) const {
    ScriptedServer server(reply);
    return DownloadFile(server.Url(L"/update"), target_);
  }

  [[nodiscard]] std::wstring Partial() const { return target_ + L".download"; }
  [[nodiscard]] std::optional<std::string> Target() const {
    return platform::ReadFileBytes(target_);
  }

  std::wstring folder_;
  std::wstring target_;
};

std::string Bytes(std::size_t count) {
  std::string bytes(count, '\0');
  for (std::size_t i = 0; i < count; ++i) bytes[i] = static_cast<char>(i * 31 % 251);
  return bytes;
}

TEST_F(DownloadFileTest, WritesTheBodyAndCreatesTheFolder) {
  const std::string body = Bytes(200'000);

  EXPECT_TRUE(DownloadReply({HttpReply("200 OK", body)}));

  EXPECT_EQ(Target(), body);
  EXPECT_FALSE(platform::IsFile(Partial()));
}

TEST_F(DownloadFileTest, SendsAGetWithoutDataAndHeader) {
  ScriptedServer server({HttpReply("200 OK", "x")});
  EXPECT_TRUE(DownloadFile(server.Url(L"/api/update?v=1"), target_));

  ASSERT_EQ(server.Requests().size(), 1u);
  const std::string request = server.Requests()[0];
  EXPECT_EQ(request.substr(0, request.find("\r\n")), "GET /api/update?v=1 HTTP/1.1");
  EXPECT_EQ(request.find("Content-"), std::string::npos) << request;
  EXPECT_NE(request.find("User-Agent: Velmarine.Native/0.2\r\n"), std::string::npos) << request;
}

TEST_F(DownloadFileTest, ReplacesAnEarlierFile) {
  PutOldTarget();
  EXPECT_TRUE(DownloadReply({HttpReply("206 Partial Content", "new")}));
  EXPECT_EQ(Target(), "new");
}

TEST_F(DownloadFileTest, OverwritesAPartialFileLeftBefore) {
  PutOldTarget();
  ASSERT_TRUE(platform::WriteFileBytes(Partial(), "a longer rest of an earlier run"));

  EXPECT_TRUE(DownloadReply({HttpReply("200 OK", "new")}));

  EXPECT_EQ(Target(), "new");
  EXPECT_FALSE(platform::IsFile(Partial()));
}

TEST_F(DownloadFileTest, ReadsBodiesOfEveryFraming) {
  EXPECT_TRUE(DownloadReply({HttpReply("200 OK", "")}));
  EXPECT_EQ(Target(), "");
  EXPECT_TRUE(DownloadReply(
      {"HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n3\r\nabc\r\n", "0\r\n\r\n"}));
  EXPECT_EQ(Target(), "abc");
  EXPECT_TRUE(DownloadReply({"HTTP/1.1 200 OK\r\n\r\nab", "cd"}));
  EXPECT_EQ(Target(), "abcd");
}

TEST_F(DownloadFileTest, FollowsARedirect) {
  ScriptedServer moved({HttpReply("200 OK", "from elsewhere")});

  EXPECT_TRUE(DownloadReply({HttpReply("302 Found", "", moved.LocationHeader("/file"))}));

  EXPECT_EQ(Target(), "from elsewhere");
}

TEST_F(DownloadFileTest, LeavesNoFileForAReplyOutside2xx) {
  for (const char* status : {"404 Not Found", "500 Internal Server Error", "304 Not Modified"}) {
    EXPECT_FALSE(DownloadReply({HttpReply(status, "")}));
    EXPECT_FALSE(platform::IsFile(target_));
    EXPECT_FALSE(platform::IsFile(Partial()));
  }
}

TEST_F(DownloadFileTest, KeepsTheEarlierFileForAReplyOutside2xx) {
  PutOldTarget();
  EXPECT_FALSE(DownloadReply({HttpReply("404 Not Found", "no such file")}));
  EXPECT_EQ(Target(), "old");
}

TEST_F(DownloadFileTest, ABodyCutMidwayLeavesTheEarlierFileAlone) {
  const RawReply cuts[] = {
      {"HTTP/1.1 200 OK\r\nContent-Length: 100000\r\n\r\n" + Bytes(99'999)},
      {"HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\n", "abc"},
      {"HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\n"},
  };
  for (const RawReply& cut : cuts) {
    PutOldTarget();
    EXPECT_FALSE(DownloadReply(cut));
    EXPECT_EQ(Target(), "old");
    EXPECT_FALSE(platform::IsFile(Partial()));
  }
}

TEST_F(DownloadFileTest, ABodyCutMidwayLeavesNothingWhereNothingWas) {
  EXPECT_FALSE(DownloadReply({"HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\nabc"}));
  EXPECT_FALSE(platform::IsFile(target_));
  EXPECT_FALSE(platform::IsFile(Partial()));
}

TEST_F(DownloadFileTest, AnAbsentOrClosingServerFailsWithoutAnException) {
  PutOldTarget();
  const std::wstring closed = L"http://127.0.0.1:" + std::to_wstring(ClosedPort()) + L"/x";
  EXPECT_FALSE(DownloadFile(closed, target_));
  EXPECT_FALSE(DownloadReply({}));
  EXPECT_FALSE(DownloadFile(L"no address", target_));

  EXPECT_EQ(Target(), "old");
  EXPECT_FALSE(platform::IsFile(Partial()));
}

TEST_F(DownloadFileTest, ALockedTargetRemainsAndThePartialFileIsDeleted) {
  PutOldTarget();
  const platform::FileHandle lock(::CreateFileW(target_.c_str(), GENERIC_READ, FILE_SHARE_READ,
                                                nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL,
                                                nullptr));
  ASSERT_TRUE(static_cast<bool>(lock));

  EXPECT_FALSE(DownloadReply({HttpReply("200 OK", "new")}));

  EXPECT_EQ(Target(), "old");
  EXPECT_FALSE(platform::IsFile(Partial()));
}

TEST_F(DownloadFileTest, APartialFileInUseElsewhereFailsAndRemains) {
  PutOldTarget();
  ASSERT_TRUE(platform::WriteFileBytes(Partial(), "theirs"));
  {
    const platform::FileHandle lock(::CreateFileW(Partial().c_str(), GENERIC_READ, 0, nullptr,
                                                  OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    ASSERT_TRUE(static_cast<bool>(lock));
    EXPECT_FALSE(DownloadReply({HttpReply("200 OK", "new")}));
  }
  EXPECT_EQ(platform::ReadFileBytes(Partial()), "theirs");
  EXPECT_EQ(Target(), "old");
}

TEST_F(DownloadFileTest, AFailedOrShortWriteFailsOnlyTheDownload) {
  struct WriteRow {
    const char* name;
    std::size_t (*second)(const std::string& bytes);
  };
  const WriteRow rows[] = {
      {"full disk", [](const std::string&) { return std::size_t{0}; }},
      {"short", [](const std::string& bytes) { return bytes.size() - 1; }},
  };
  for (const WriteRow& row : rows) {
    PutOldTarget();
    int writes = 0;
    const FileWriter write = [&](HANDLE file, const std::string& bytes) {
      return ++writes == 1 ? WriteToFile(file, bytes) : row.second(bytes);
    };
    ScriptedServer server({"HTTP/1.1 200 OK\r\nContent-Length: 6\r\n\r\nnew", "est"});
    EXPECT_FALSE(DownloadFileWith(write, server.Url(L"/x"), target_, {})) << row.name;
    EXPECT_EQ(writes, 2) << row.name;
    EXPECT_EQ(Target(), "old") << row.name;
    EXPECT_FALSE(platform::IsFile(Partial())) << row.name;
  }
}

TEST_F(DownloadFileTest, UnwrittenBytesAreNotCounted) {
  EXPECT_EQ(WriteToFile(INVALID_HANDLE_VALUE, "bytes"), 0u);
}

TEST_F(DownloadFileTest, AFolderThatCannotBeCreatedFails) {
  ASSERT_TRUE(platform::CreateFolders(folder_));
  ASSERT_TRUE(platform::WriteFileBytes(folder_ + L"\\驱动 文件", "a file, not a folder"));

  EXPECT_FALSE(DownloadReply({HttpReply("200 OK", "new")}));

  ::DeleteFileW((folder_ + L"\\驱动 文件").c_str());
}

}  // namespace
}  // namespace service
