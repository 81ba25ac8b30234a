#include <gtest/gtest.h>

#include <stdexcept>

#include "platform/socket.h"
#include "service/http_transport.h"
#include "shell/window_fixture.h"
#include "shell/window_messages.h"

namespace shell {
namespace {

using Lines = std::vector<std::wstring>;

constexpr wchar_t kTestBusy[] = L"正在测试通讯延迟...";
constexpr wchar_t kUdpLine[] = L"提示：UDP 通道不可用，小数据包改经 WebSocket 传输，连接不受影响。";
constexpr wchar_t kUdpHint[] =
    L"提示：多半是防火墙拦了 UDP 31080。能用，不用管；想更快就请网络管理员放行它。";
constexpr wchar_t kReconnectLine[] =
    L"警告：自动重连未成功（getaddrinfo failed for relay host.），将继续重试。";

class WindowHints : public WindowTest {
 protected:
  WindowHints() { OpenWithReadyPage(); }

  void RunTest(const std::function<std::wstring()>& body) {
    jobBody_ = [body](settings::Settings&, tunnel::Tunnel&) { return body(); };
    PageSends(L"{\"action\":\"test\",\"f\":{}}");
    FinishJob();
  }

  // Returns `member` of every line posted to the page: its text or its colour.
  Lines PageLines(const wchar_t* member) const {
    Lines lines;
    for (const std::wstring& json : page_.posted) {
      const settings::JsonValue message = settings::ReadJsonDocument(json);
      if (settings::JsonStringOrEmpty(message, L"t") != L"log") continue;
      lines.push_back(settings::JsonStringOrEmpty(message, member));
    }
    return lines;
  }
};

TEST_F(WindowHints, FollowTheirLineInFileAndPageButAreNotTheResult) {
  RunTest([]() -> std::wstring { throw std::runtime_error("Invalid JSON."); });
  ASSERT_EQ(logged_.size(), 3u);
  EXPECT_EQ(logged_[0], kTestBusy);
  EXPECT_EQ(logged_[1], L"Error: Invalid JSON.");
  EXPECT_TRUE(logged_[2].starts_with(L"提示：中心服务的回答残缺")) << logged_[2];
  EXPECT_EQ(PageLines(L"msg"), logged_);
  EXPECT_EQ(PageLines(L"cls"), (Lines{L"", L"er", L""}));
  EXPECT_EQ(state_->lastMessage, L"Error: Invalid JSON.");
}

TEST_F(WindowHints, AppearOnceForEachCause) {
  for (int i = 0; i < 3; ++i) {
    tunnel_->running = true;
    Send(kUdpChanged, 0);
    SendText(kNotice, kReconnectLine);
  }
  Pump();
  ASSERT_EQ(logged_.size(), 8u);
  EXPECT_EQ(logged_[0], kUdpLine);
  EXPECT_EQ(logged_[1], kUdpHint);
  EXPECT_EQ(logged_[2], kReconnectLine);
  EXPECT_TRUE(logged_[3].starts_with(L"提示：查不到中继的域名。")) << logged_[3];
  EXPECT_EQ(Lines(logged_.begin() + 4, logged_.end()),
            (Lines{kUdpLine, kReconnectLine, kUdpLine, kReconnectLine}));
  EXPECT_EQ(PageLines(L"msg"), logged_);
}

TEST_F(WindowHints, UseTheCodeOfARefusalAndPrecedeTheRetry) {
  jobBody_ = [](settings::Settings& settings, tunnel::Tunnel&) {
    settings.heartbeatMessage = L"DEVICE_OFFLINE";
    return std::wstring(L"\r\nConnection authorization failed: 原话");
  };
  PageSends(L"{\"action\":\"connect\",\"f\":{}}");
  FinishJob();
  ASSERT_EQ(logged_.size(), 4u);
  EXPECT_TRUE(logged_[2].starts_with(L"提示：现场设备离线。")) << logged_[2];
  EXPECT_EQ(logged_[3], L"授权未恢复，将每 5 秒自动重试连接。");
  ForgetRecords();
  RunTest([] { return std::wstring(L"Resolve failed: Connection authorization failed: 原话"); });
  EXPECT_EQ(logged_.size(), 2u);
}

TEST_F(WindowHints, DistinguishAFailedRequestFromTheServicesText) {
  RunTest([] { return std::wstring(L"远程桌面失败：Invalid JSON."); });
  EXPECT_EQ(logged_.size(), 2u);
  jobBody_ = nullptr;
  ForgetRecords();
  RunTest([this] {
    *link_.requestFailed = true;
    return std::wstring(L"远程桌面失败：Invalid JSON.");
  });
  EXPECT_EQ(logged_.size(), 3u);
  ForgetRecords();
  RunTest([] { return std::wstring(L"远程桌面失败：WinHttpReceiveResponse failed."); });
  EXPECT_EQ(logged_.size(), 2u) << "the earlier job's failure";
}

TEST_F(WindowHints, ReachAReplacementPage) {
  RunTest([]() -> std::wstring { throw std::runtime_error("Invalid JSON."); });
  Send(kBrowserFailed, static_cast<WPARAM>(webview::ProcessFailedKind::BrowserExited));
  ForgetRecords();
  PageSends(L"{\"action\":\"ready\",\"f\":{}}");
  Pump();
  EXPECT_NE(page_.posted.back().find(L"提示：中心服务的回答残缺"), std::wstring::npos);
}

TEST_F(WindowHints, RecogniseAClosedPort) {
  platform::SocketLibrary library;
  int error = library.Start();
  const auto taken = platform::Socket::Create(platform::SocketKind::Tcp, 2, error);
  ASSERT_EQ(taken->Bind(platform::SocketAddress::Loopback(0)), 0);  // but does not listen
  const std::wstring url = L"http://127.0.0.1:" + std::to_wstring(taken->LocalAddress().Port());
  RunTest([&] { return service::SendJsonRequest(L"GET", url + L"/x", L"").body; });
  ASSERT_EQ(logged_.size(), 3u);
  EXPECT_TRUE(logged_[2].starts_with(L"提示：连不上中心服务。")) << logged_[1] << logged_[2];
  RunTest([] { return service::SendJsonRequest(L"GET", L"ftp://x", L"").body; });
  ASSERT_EQ(logged_.size(), 6u);
  EXPECT_TRUE(logged_[5].starts_with(L"提示：设置里的中心服务地址写错了")) << logged_[4];
}

}  // namespace
}  // namespace shell
