#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include "service/connection_fixture.h"

namespace service {
namespace {

constexpr wchar_t kDiscoveryOffText[] = L"\r\n局域网发现模式已关闭：只转发已知 IP 网段。";

// A proxy list edit that throws if there are routes.
std::wstring ThrowForRoutes(const std::vector<std::wstring>& routes, const char* message) {
  if (!routes.empty()) throw std::runtime_error(message);
  return {};
}

// The connect and stop jobs.
class ConnectionJobsTest : public ConnectionTest {};

TEST_F(ConnectionJobsTest, ConnectingAuthorizesStartsTheTunnelAndSaves) {
  world_.started.accessRoutes = {L"192.168.1.0/24", L"172.31.0.0/24"};
  world_.started.mappingText = L"10.0.0.0/8 -> 172.31.0.0/24";
  world_.Answer(kGrant);

  EXPECT_EQ(Connect(), std::wstring(L"\r\n") + kGrantText +
                           L"\r\n软件隧道已启动\r\n10.0.0.0/8 -> 172.31.0.0/24" +
                           kDiscoveryOffText);

  EXPECT_EQ(world_.events,
            (Events{L"bypass-", L"save", std::wstring(L"POST ") + kRequestUrl, L"save",
                    L"bypass+ 192.168.1.0/24 10.0.0.0/8", L"start", L"save"}));
  EXPECT_EQ(settings_.accessRoutesText, L"192.168.1.0/24\r\n172.31.0.0/24");
  EXPECT_EQ(settings_.routeMappingsText, L"10.0.0.0/8 -> 172.31.0.0/24");
  EXPECT_EQ(world_.LastSaved().accessRoutesText, settings_.accessRoutesText);
  EXPECT_EQ(world_.LastSaved().routeMappingsText, settings_.routeMappingsText);
}

// As after any closed window, the next run's connect reports the connection's end.
TEST_F(ConnectionJobsTest, ClosingWhileTheTunnelStartsKeepsTheGrantAndReportsNothing) {
  world_.Answer(kGrant);
  world_.onStart = [this] {
    world_.closing.request_stop();
    throw std::runtime_error("The tunnel was stopped while it started.");
  };
  EXPECT_EQ(Connect(), L"Error: The tunnel was stopped while it started.");

  EXPECT_EQ(world_.requests.size(), 1u);
  EXPECT_EQ(settings_.connectionId, L"c1");
  EXPECT_EQ(settings_.granted.connectionId, L"c1");
  EXPECT_EQ(settings_.routesText, L"192.168.1.0/24\r\n10.0.0.0/8");

  world_.closing = std::stop_source();
  world_.onStart = nullptr;
  world_.Answer(LR"({"success":true})");
  world_.Answer(kGrant);
  Connect();
  ASSERT_EQ(world_.requests.size(), 3u);
  EXPECT_EQ(world_.requests[1].url, L"http://192.0.2.10:31080/api/connections/c1/disconnect");
}

TEST_F(ConnectionJobsTest, ConnectingPassesTheGrantToTheTunnel) {
  settings_.serverUrl = L"192.0.2.10:31080/";
  settings_.discoveryModeEnabled = true;
  world_.Answer(kGrant);
  const std::wstring text = Connect();

  ASSERT_EQ(world_.starts.size(), 1u);
  const tunnel::TunnelRequest& request = world_.starts[0];
  EXPECT_EQ(request.serverUrl, L"http://192.0.2.10:31080");
  EXPECT_EQ(request.connectionId, L"c1");
  EXPECT_EQ(request.engineerId, L"ENG-12345678");
  EXPECT_EQ(request.assignedAddress, L"10.8.0.2");
  EXPECT_EQ(request.routes, (std::vector<std::wstring>{L"192.168.1.0/24", L"10.0.0.0/8"}));
  EXPECT_TRUE(request.discoveryMode);
  EXPECT_EQ(text,
            std::wstring(L"\r\n") + kGrantText + L"\r\n软件隧道已启动\r\n局域网发现模式已开启");
}

TEST_F(ConnectionJobsTest, ConnectingAlwaysAsksForEveryNetwork) {
  world_.Answer(kGrant);
  Connect();

  EXPECT_NE(world_.requests.at(0).body.find(L"\"targetNetwork\":\"ALL\""), std::wstring::npos);
  EXPECT_EQ(settings_.targetNetwork, L"ALL");
}

TEST_F(ConnectionJobsTest, ConnectingFirstEndsAnOldConnection) {
  HoldConnection();
  world_.Answer(LR"({"success":true})");
  world_.Answer(kGrant);

  EXPECT_EQ(Connect(), std::wstring(L"\r\n远程调试会话已断开。\r\n") + kGrantText +
                           L"\r\n软件隧道已启动" + kDiscoveryOffText);

  ASSERT_EQ(world_.requests.size(), 2u);
  EXPECT_EQ(world_.requests.at(0).url, L"http://192.0.2.10:31080/api/connections/old/disconnect");
  EXPECT_EQ(world_.requests.at(1).url, kRequestUrl);
}

TEST_F(ConnectionJobsTest, ConnectingEndsWithTheTextOfARefusal) {
  world_.Answer(LR"({"success":false,"code":"DEVICE_OFFLINE","message":"offline"})");

  EXPECT_EQ(Connect(), L"\r\nConnection authorization failed: offline");

  EXPECT_TRUE(world_.starts.empty());
  EXPECT_EQ(world_.requests.size(), 1u) << "nothing to report as ended";
  EXPECT_EQ(world_.LastSaved().heartbeatMessage, L"DEVICE_OFFLINE");
  ExpectForgotten(world_.LastSaved());
}

TEST_F(ConnectionJobsTest, ARefusalTouchesNoTunnelEvenWhenAnEarlierConnectionHadOne) {
  HoldConnection();
  world_.Answer(LR"({"success":true})");
  world_.Answer(LR"({"success":false,"code":"DEVICE_OFFLINE","message":"offline"})");

  EXPECT_EQ(Connect(), L"\r\n远程调试会话已断开。\r\nConnection authorization failed: offline");

  EXPECT_EQ(world_.events, (Events{L"POST http://192.0.2.10:31080/api/connections/old/disconnect",
                                   L"bypass- 10.1.0.0/16 10.2.0.0/16", L"save",
                                   std::wstring(L"POST ") + kRequestUrl, L"save"}));
  ExpectForgotten(world_.LastSaved());
}

TEST_F(ConnectionJobsTest, ARefusedReportOfTheOldEndDoesNotStopTheNewConnection) {
  HoldConnection();
  world_.Answer(LR"({"success":false,"message":"unknown connection"})", 404);
  world_.Answer(kGrant);

  EXPECT_EQ(Connect(), std::wstring(L"\r\n会话断开上报失败：unknown connection\r\n") + kGrantText +
                           L"\r\n软件隧道已启动" + kDiscoveryOffText);

  EXPECT_EQ(world_.starts.size(), 1u);
  EXPECT_EQ(world_.LastSaved().connectionId, L"c1");
}

TEST_F(ConnectionJobsTest, AFailedTunnelStartIsReportedAndDropsAllTextBefore) {
  HoldConnection();
  world_.Answer(LR"({"success":true})");
  world_.Answer(kGrant);
  world_.Answer(LR"({"success":false,"message":"too late"})");
  world_.onStart = [] {
    throw std::runtime_error("WinDivertOpen failed \xE9\xA9\xB1\xE5\x8A\xA8");
  };

  EXPECT_EQ(Connect(), L"Error: WinDivertOpen failed 驱动");

  ASSERT_EQ(world_.requests.size(), 3u);
  EXPECT_EQ(world_.requests.at(2).method, L"POST");
  EXPECT_EQ(world_.requests.at(2).url, L"http://192.0.2.10:31080/api/connections/c1/disconnect");
  EXPECT_EQ(world_.requests.at(2).body,
            LR"({"engineerId":"ENG-12345678","reason":"本地隧道启动失败"})");
  const Events afterStart(std::find(world_.events.begin(), world_.events.end(), L"start"),
                          world_.events.end());
  EXPECT_EQ(afterStart,
            (Events{L"start", L"POST http://192.0.2.10:31080/api/connections/c1/disconnect",
                    L"bypass- 192.168.1.0/24 10.0.0.0/8", L"save"}));
  ExpectNoConnection(settings_);
  ExpectNoConnection(world_.LastSaved());
}

TEST_F(ConnectionJobsTest, AFailedReportDoesNotHideTheFirstError) {
  for (const bool malformed : {false, true}) {
    world_.Answer(kGrant);
    if (malformed) {
      world_.Answer(L"{\"success\"");
    } else {
      world_.FailRequest("WinHttpReceiveResponse failed.");
    }
    world_.onStart = [] { throw std::runtime_error("No valid target routes were configured."); };

    EXPECT_EQ(Connect(), L"Error: No valid target routes were configured.");

    ExpectNoConnection(settings_);
    ExpectNoConnection(world_.LastSaved());
  }
}

TEST_F(ConnectionJobsTest, ANonStandardExceptionIsUnknown) {
  world_.Answer(kGrant);
  world_.Answer(LR"({"success":true})");
  world_.onStart = [] { throw 7; };

  EXPECT_EQ(Connect(), L"Unknown error.");

  EXPECT_EQ(world_.requests.size(), 2u) << "the granted connection is reported ended all the same";
  ExpectNoConnection(world_.LastSaved());
}

TEST_F(ConnectionJobsTest, AnAuthorizationThatThrowsIsShownWithoutAReport) {
  struct Row {
    std::wstring reply;
    std::wstring text;
  };
  const Row rows[] = {
      {L"{\"success\":tr", L"Error: Invalid JSON."},
      {L"{\"success\":true,\"message\":\"", L"Error: Invalid JSON string."},
      {L"{\"success\":true,\"data\":{}}",
       L"Error: Connection authorization response is missing connectionId, assignedAddress, or "
       L"routes."},
  };
  for (const Row& row : rows) {
    world_.requests.clear();
    world_.Answer(row.reply);
    EXPECT_EQ(Connect(), row.text);
    EXPECT_EQ(world_.requests.size(), 1u) << "no connection id, no report";
    ExpectForgotten(world_.LastSaved());
  }
}

TEST_F(ConnectionJobsTest, ADeadServiceIsShownAsTheTransportsError) {
  world_.FailRequest(
      "WinHttpReceiveResponse: \xE6\x97\xA0\xE6\xB3\x95\xE8\xBF\x9E\xE6\x8E\xA5\r\n");

  EXPECT_EQ(Connect(), L"Error: WinHttpReceiveResponse: 无法连接\r\n");
}

TEST_F(ConnectionJobsTest, ADeadServiceOnReconnectEndsTheOldConnectionLocally) {
  HoldConnection();
  world_.FailRequest("WinHttpReceiveResponse failed.");

  EXPECT_EQ(Connect(), L"Error: WinHttpReceiveResponse failed.");

  EXPECT_EQ(world_.requests.size(), 1u);
  EXPECT_TRUE(world_.starts.empty());
  ExpectForgotten(settings_);
  ExpectForgotten(world_.LastSaved());
}

// A disk error neither costs the connection nor prevents the report of its end.
TEST_F(ConnectionJobsTest, AFailingDiskDoesNotPreventTheConnection) {
  world_.disk.refuse = [](const std::wstring&) { return std::wstring(L"拒绝访问。"); };
  world_.Answer(kGrant);

  EXPECT_EQ(Connect(),
            std::wstring(L"\r\n") + kGrantText + L"\r\n软件隧道已启动" + kDiscoveryOffText);

  EXPECT_EQ(settings_.connectionId, L"c1");
  EXPECT_EQ(world_.reports.size(), 1u) << "told once";
  world_.Answer(LR"({"success":true})");
  EXPECT_EQ(StopTunnel(), L"\r\n远程调试会话已断开。");
  EXPECT_EQ(world_.requests.back().url, L"http://192.0.2.10:31080/api/connections/c1/disconnect");
  ExpectForgotten(settings_);
}

// The old connection was granted by another service, to another engineer id.
TEST_F(ConnectionJobsTest, EveryEndIsReportedToTheServiceThatGranted) {
  HoldConnection();
  settings_.granted = {L"old", L"http://granted:1", L"ENG-87654321", {L"10.1.0.0/16"}};
  world_.Answer(LR"({"success":true})");
  world_.Answer(kGrant);
  world_.Answer(LR"({"success":true})");
  world_.onStart = [] { throw std::runtime_error("no driver"); };

  EXPECT_EQ(Connect(), L"Error: no driver");

  ASSERT_EQ(world_.requests.size(), 3u);
  EXPECT_EQ(world_.requests[0].url, L"http://granted:1/api/connections/old/disconnect");
  EXPECT_EQ(world_.requests[1].url, kRequestUrl);
  EXPECT_EQ(world_.requests[2].url, L"http://192.0.2.10:31080/api/connections/c1/disconnect");
  EXPECT_NE(world_.requests[0].body.find(L"ENG-87654321"), std::wstring::npos);
  EXPECT_NE(world_.requests[2].body.find(L"ENG-12345678"), std::wstring::npos);
  EXPECT_EQ(std::count(world_.events.begin(), world_.events.end(), L"bypass- 10.1.0.0/16"), 1);
}

TEST_F(ConnectionJobsTest, ARefusalAfterARefusalWritesNothing) {
  world_.Answer(LR"({"success":false,"code":"DEVICE_OFFLINE","message":"offline"})");
  Connect();
  world_.saved.clear();
  world_.disk.written.clear();
  world_.Answer(LR"({"success":false,"code":"DEVICE_OFFLINE","message":"offline"})");
  Connect();
  EXPECT_TRUE(world_.saved.empty());
  EXPECT_TRUE(world_.disk.written.empty());
}

TEST_F(ConnectionJobsTest, AProxyListThatThrowsEndsTheJobAndGivesUpWhatWasGranted) {
  world_.editProxyBypass = [](ProxyBypassChange change, const auto& routes) {
    const bool adds = change == ProxyBypassChange::Add;
    return ThrowForRoutes(routes, adds ? "no list" : "no list at the end either");
  };
  world_.Answer(kGrant);
  world_.Answer(LR"({"success":true})");

  EXPECT_EQ(ConnectIn(world_), L"Error: no list");

  ASSERT_EQ(world_.requests.size(), 2u);
  EXPECT_EQ(world_.requests.at(1).url, L"http://192.0.2.10:31080/api/connections/c1/disconnect");
  EXPECT_TRUE(world_.starts.empty());
  ExpectNoConnection(world_.LastSaved());
}

TEST_F(ConnectionJobsTest, AProxyListThatThrowsAtTheOldEndDoesNotKeepTheOldConnection) {
  HoldConnection();
  world_.editProxyBypass = [this](ProxyBypassChange change, const auto& routes) {
    if (change == ProxyBypassChange::Add) return world_.NoteProxyBypass(change, routes);
    return ThrowForRoutes(routes, "no list");
  };
  world_.Answer(LR"({"success":true})");
  world_.Answer(LR"({"success":true})");

  EXPECT_EQ(ConnectIn(world_), L"Error: no list");

  ASSERT_EQ(world_.requests.size(), 2u);
  EXPECT_NE(world_.requests.at(0).body.find(L"本地客户端断开连接"), std::wstring::npos);
  EXPECT_EQ(world_.requests.at(1).url, L"http://192.0.2.10:31080/api/connections/old/disconnect")
      << "the job's failure";
  EXPECT_TRUE(world_.starts.empty());
  ExpectNoConnection(settings_);
  ExpectNoConnection(world_.LastSaved());
}

TEST_F(ConnectionJobsTest, NoTextForTheEngineerHoldsTheKey) {
  settings_.deviceSecret = L"the-key-itself";
  for (const wchar_t* reply :
       {kGrant, LR"({"success":false,"message":"no"})", L"{\"a\"", LR"({"success":true})"}) {
    FakeWorld world;
    settings_.connectionId.clear();
    world.Answer(reply);

    const std::wstring text = ConnectIn(world);

    EXPECT_NE(world.requests.at(0).body.find(settings_.deviceSecret), std::wstring::npos);
    EXPECT_FALSE(text.empty());
    EXPECT_EQ(text.find(settings_.deviceSecret), std::wstring::npos);
  }
}

TEST_F(ConnectionJobsTest, StoppingStopsTheTunnelBeforeReporting) {
  HoldConnection();
  world_.stopText = L"软件隧道已停止。";
  world_.Answer(LR"({"success":true})");

  EXPECT_EQ(StopTunnel(), L"软件隧道已停止。\r\n远程调试会话已断开。");

  EXPECT_EQ(world_.events,
            (Events{L"stop", L"POST http://192.0.2.10:31080/api/connections/old/disconnect",
                    L"bypass- 10.1.0.0/16 10.2.0.0/16", L"save"}));
  ExpectForgotten(world_.LastSaved());
}

TEST_F(ConnectionJobsTest, StoppingWithoutAConnectionReturnsOnlyTheTunnelsText) {
  world_.stopText = L"软件隧道运行中。";

  EXPECT_EQ(StopTunnel(), L"软件隧道运行中。");
  EXPECT_TRUE(world_.requests.empty());
}

TEST_F(ConnectionJobsTest, StoppingWithADeadServiceLeavesTheTunnelStoppedAndThrows) {
  HoldConnection();
  world_.FailRequest("WinHttpReceiveResponse failed.");

  EXPECT_EQ(FailureOf([this] { StopTunnel(); }), "WinHttpReceiveResponse failed.");

  EXPECT_EQ(world_.events.at(0), L"stop");
  ExpectForgotten(world_.LastSaved());
}

}  // namespace
}  // namespace service
