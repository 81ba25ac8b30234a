#include <gtest/gtest.h>

#include <array>
#include <deque>
#include <memory>
#include <string>
#include <vector>

#include "checks/service_checks.h"
#include "platform/socket.h"

namespace checks {
namespace {

using platform::SocketResult;

std::wstring SaidOf(const Outcome& outcome) {
  return outcome.problems.empty() ? L"正常" : outcome.problems[0].text;
}

// Returns scripted results one by one, then only time-outs.
class ScriptedSocket final : public tunnel::DatagramSocket {
 public:
  void SetReceiveTimeout(std::chrono::milliseconds) noexcept override {}
  SocketResult Send(std::span<const std::byte> datagram) noexcept override {
    sent.emplace_back(datagram.begin(), datagram.end());
    return {datagram.size(), sendError};
  }
  SocketResult Receive(std::span<std::byte> buffer) noexcept override {
    if (answers.empty()) return {0, kTimeout};
    const std::vector<std::byte> answer = answers.front();
    answers.pop_front();
    std::copy(answer.begin(), answer.end(), buffer.begin());
    return {answer.size(), receiveError};
  }
  void Close() noexcept override { isClosed = true; }

  static int TimeoutCode();
  const int kTimeout = TimeoutCode();
  int sendError = 0;
  int receiveError = 0;
  bool isClosed = false;
  std::deque<std::vector<std::byte>> answers;
  std::vector<std::vector<std::byte>> sent;
};

// The code of a receive time-out on this system.
int ScriptedSocket::TimeoutCode() {
  platform::SocketLibrary library;
  EXPECT_EQ(library.Start(), 0);
  int error = 0;
  const auto socket = platform::Socket::Create(
      platform::SocketKind::UdpIpv4, platform::SocketAddress::Loopback(0).Family(), error);
  socket->Bind(platform::SocketAddress::Loopback(0));
  socket->SetTimeouts(std::chrono::milliseconds(1), std::chrono::milliseconds(1));
  std::array<std::byte, 4> buffer{};
  platform::SocketAddress from;
  return socket->ReceiveFrom(buffer, from).error;
}

class UdpCheck : public testing::Test {
 protected:
  Outcome Run() {
    return CheckServiceUdp(L"http://host:31080",
                           [this](const std::wstring& url, std::chrono::milliseconds, const auto&) {
                             EXPECT_EQ(url, L"http://host:31080");
                             return socket_;
                           });
  }
  std::shared_ptr<ScriptedSocket> socket_ = std::make_shared<ScriptedSocket>();
};

std::vector<std::byte> Acknowledgement() {
  std::vector<std::byte> bytes;
  for (const int byte : {0x54, 0x4E, 0x52, 0x31, 3, 2, 1, 2, 3, 4, 5, 6, 7, 8}) {
    bytes.push_back(static_cast<std::byte>(byte));
  }
  return bytes;
}

TEST_F(UdpCheck, AcceptsAnAcknowledgement) {
  socket_->answers = {Acknowledgement()};
  EXPECT_EQ(SaidOf(Run()), L"正常");
  EXPECT_EQ(socket_->sent.size(), 1u);
  EXPECT_TRUE(socket_->isClosed);
}

TEST_F(UdpCheck, SaysHelloTwiceForAnUnknownConnection) {
  EXPECT_EQ(SaidOf(Run()), L"UDP 没有回答");
  ASSERT_EQ(socket_->sent.size(), 2u);
  std::string text;
  for (const std::byte byte : socket_->sent[0]) text += static_cast<char>(byte);
  EXPECT_EQ(text.substr(0, 5), "TNR1\x02");
  EXPECT_NE(text.find("VELMARINE-CHECK"), std::string::npos);
}

TEST_F(UdpCheck, NotesAForeignAnswer) {
  socket_->answers = {{std::byte{1}}};
  EXPECT_EQ(SaidOf(Run()), L"收到了回答，但不是中继的确认");
}

TEST_F(UdpCheck, NotesARefusal) {
  socket_->answers = {{}};
  socket_->receiveError = 10054;
  EXPECT_EQ(SaidOf(Run()), L"UDP 被拒绝：那个端口上没有 UDP 中继，或系统不让发送");
  socket_->sendError = 10013;
  EXPECT_EQ(SaidOf(Run()), L"UDP 被拒绝：那个端口上没有 UDP 中继，或系统不让发送");
}

class TcpCheck : public testing::Test {
 protected:
  TcpCheck() {
    EXPECT_EQ(library_.Start(), 0);
    int error = 0;
    const auto any = platform::SocketAddress::Loopback(0);
    listener_ = platform::Socket::Create(platform::SocketKind::Tcp, any.Family(), error);
    EXPECT_EQ(listener_->Bind(any), 0);
    url_ = L"http://127.0.0.1:" + std::to_wstring(listener_->LocalAddress().Port());
  }
  platform::SocketLibrary library_;
  std::shared_ptr<platform::Socket> listener_;
  std::wstring url_;
};

TEST_F(TcpCheck, ReportsTheTimeToConnect) {
  ASSERT_EQ(listener_->Listen(), 0);
  const Outcome outcome = CheckServiceTcp(url_);
  EXPECT_EQ(SaidOf(outcome), L"正常");
  EXPECT_TRUE(outcome.lines.back().starts_with(L"TCP 连接成功，用时 "));
}

// No server listens on the bound port.
TEST_F(TcpCheck, FaultsARefusal) {
  EXPECT_TRUE(SaidOf(CheckServiceTcp(url_)).starts_with(L"TCP 连不上中心服务：错误 "));
}

HttpAnswer Answered(const wchar_t* body, const wchar_t* date = L"Sun, 06 Nov 1994 08:49:37 GMT") {
  return {200, date, body, L""};
}

TEST(ReplyCheck, RecognisesTheServiceByItsReply) {
  EXPECT_EQ(SaidOf(JudgeReply(Answered(LR"({"success":true,"data":{}})"))), L"正常");
  EXPECT_EQ(SaidOf(JudgeReply(Answered(LR"({"success":false,"message":"不行"})"))),
            L"中心服务拒绝了版本询问：不行");
  EXPECT_EQ(SaidOf(JudgeReply(Answered(L" <!doctype html><html>"))),
            L"回答的是一个网页，不是中心服务");
  for (const wchar_t* body : {L"", L"{}", L"[1]", L"{\"success\":1}", L"{\"success\":tru"}) {
    EXPECT_EQ(SaidOf(JudgeReply(Answered(body))), L"回答的不是中心服务的格式");
  }
  EXPECT_EQ(SaidOf(JudgeReply({0, L"", L"", L"timed out\r\n"})),
            L"中心服务没有回答 HTTP 请求：timed out");
}

TEST(ClockCheck, FaultsMoreThanFiveMinutes) {
  constexpr std::int64_t kThen = 784111777;  // Answered()'s date
  const auto said = [](std::int64_t now) { return SaidOf(JudgeClock(Answered(L""), now, L"z")); };
  EXPECT_EQ(said(kThen + 300), L"正常");
  EXPECT_EQ(said(kThen - 300), L"正常");
  EXPECT_EQ(said(kThen + 301), L"本机时钟比服务快 301 秒");
  EXPECT_EQ(said(kThen - 301), L"本机时钟比服务慢 301 秒");
  EXPECT_EQ(SaidOf(JudgeClock(Answered(L"", L""), kThen, L"z")),
            L"服务没有说出可读的时间，时钟没有对过");
  EXPECT_EQ(SaidOf(JudgeClock({0, L"", L"", L"no way\r\n"}, kThen, L"z")),
            L"服务没有回答，时钟没有对过：no way");
}

TEST(HttpDate, IsReadOnlyInItsStandardForm) {
  EXPECT_EQ(ParseHttpDate(L"Thu, 01 Jan 1970 00:00:00 GMT"), 0);
  EXPECT_EQ(ParseHttpDate(L"Thu, 29 Feb 2024 23:59:59 GMT"), 1709251199);
  for (const wchar_t* text :
       {L"", L"Thu, 29 Feb 2023 23:59:59 GMT", L"Thu, 01 Jan 1970 00:00:00 CET",
        L"Thu, 01 Jan 1970 24:00:00 GMT", L"Thu, 01 anF 1970 00:00:00 GMT",
        L"Thu, 0x Jan 1970 00:00:00 GMT", L"Thursday, 01-Jan-70 00:00:00 GMT",
        L"Thu, 01 Jan 1970 00:00:00 GMT "}) {
    EXPECT_EQ(ParseHttpDate(text), std::nullopt) << text;
  }
}

}  // namespace
}  // namespace checks
