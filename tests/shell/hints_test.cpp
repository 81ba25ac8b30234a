#include "shell/hints.h"

#include <algorithm>
#include <set>

#include "page/status_presentation.h"
#include "platform/system_error.h"
#include "service/http_call.h"
#include "service/service_jobs.h"
#include "shell/hints_fixture.h"
#include "text/utf8.h"
#include "tunnel/driver/windivert.h"
#include "tunnel/packets/routes.h"
#include "tunnel/relay/relay_url.h"
#include "tunnel/relay/test_relay.h"
#include "tunnel/relay/websocket_relay.h"

namespace shell {
namespace {

// Returns the line for connecting to a relay that answers `response`, then waits or disconnects.
std::wstring RelayAnswers(const std::string& response, bool ends = false) {
  tunnel::TestRelay server([&](tunnel::TestPeer& peer) {
    peer.ReadRequest();
    peer.Send(response);
    if (!ends) peer.WaitForEnd();
  });
  tunnel::WebSocketRelay relay;
  try {
    relay.Connect(server.RelayUrl());
  } catch (const std::runtime_error& error) {
    return L"Error: " + text::FromUtf8(error.what());
  }
  return {};
}

std::wstring Resolve(const std::wstring& reply) {
  settings::Settings settings;
  std::wstring text;
  const auto send = [&reply](auto&&...) { return service::HttpResponse{200, reply}; };
  service::ResolveDevice(settings, send, text);
  return text;
}

TEST_F(HintsTest, DistinguishRequestFailuresByTheSystemsText) {
  std::set<std::uint32_t> codes;
  for (const auto part : HintCatalogue()) {
    for (const Hint& hint : part) {
      if (hint.at != HintAt::HttpCode) continue;
      codes.insert(hint.code);
      service::FakeWorld world;
      const std::wstring reason = platform::ErrorReason(hint.code) + L"\r\n";
      world.FailRequest(service::HttpFailureText("WinHttpReceiveResponse", reason));
      EXPECT_EQ(Cause(Connect(world)), hint.cause) << hint.code;
    }
  }
  for (const std::uint32_t code : {12002u, 12007u, 12029u, 12030u, 12037u, 12038u, 12044u, 12045u,
                                   12152u, 12157u, 12169u, 12175u}) {
    EXPECT_TRUE(codes.contains(code)) << code;
  }
}

TEST_F(HintsTest, RecogniseOtherRequestFailures) {
  const struct {
    std::string failure;
    const wchar_t* cause;
  } rows[] = {
      {service::HttpFailureText("WinHttpReceiveResponse", L""), L"http"},
      {service::HttpFailureText("WinHttpOpen", L"whatever"), L"http"},
      {service::HttpFailureText("WinHttpCrackUrl", L"whatever"), L"address"},
  };
  for (const auto& row : rows) {
    service::FakeWorld world;
    world.FailRequest(row.failure);
    EXPECT_EQ(Cause(Connect(world)), row.cause) << row.failure;
  }
  for (const wchar_t* reply : {L"{\"success\":true,", L"{\"message\":\"cut", L"[[["}) {
    service::FakeWorld world;
    world.Answer(reply);
    EXPECT_EQ(Cause(Connect(world)), L"json") << reply;
  }
  service::FakeWorld world;
  world.Answer(LR"({"success":true,"data":{"connectionId":"c1"}})");
  EXPECT_EQ(Cause(Connect(world)), L"grant");
}

TEST_F(HintsTest, RecogniseEachRefusalByItsCode) {
  const struct {
    const wchar_t* code;
    const wchar_t* cause;
  } rows[] = {
      {L"DEVICE_NOT_BOUND", L"refusal.unbound"},
      {L"TRAFFIC_QUOTA_EXCEEDED", L"refusal.traffic"},
      {L"CONCURRENT_LIMIT_EXCEEDED", L"refusal.concurrent"},
      {L"device_offline", L"refusal.offline"},
      {L"DEVICE_RELAY_OFFLINE", L"refusal.relay"},
      {L"WRONG_SECRET", L""},
  };
  for (const auto& row : rows) {
    for (const wchar_t* held : {L"", L"c0"}) {
      service::FakeWorld world;
      if (*held != 0) world.Answer(LR"({"success":true})");
      world.Answer(LR"({"success":false,"code":")" + std::wstring(row.code) +
                   LR"(","message":"原话"})");
      const std::wstring line = Connect(world, held);
      EXPECT_EQ(Cause(line, {refusalCode_}), row.cause) << row.code << held;
      EXPECT_EQ(Cause(L"通讯延迟 12 ms：10.0.0.1", {refusalCode_}), L"")
          << "the code is an old one";
    }
  }
}

TEST_F(HintsTest, TreatARefusalWithoutAReasonAsAForeignAnswer) {
  for (const wchar_t* reply : {L"<html>Bad Gateway</html>", L"", L"{\"success\":false}"}) {
    for (const wchar_t* held : {L"", L"c0"}) {
      service::FakeWorld world;
      if (*held != 0) world.Answer(LR"({"success":true})");
      world.Answer(reply);
      world.removeText = L"已移除系统代理旁路：10.*";
      EXPECT_EQ(Cause(Connect(world, held), {refusalCode_}), L"noReason") << reply << held;
    }
    EXPECT_EQ(Cause(Resolve(reply)), L"noReason") << reply;
  }
}

// Every pattern of the catalogue and the beginnings of the lines that contain one, to be sent as a
// reason by the service.
std::vector<std::wstring> CatalogueTexts() {
  std::vector<std::wstring> words = {L"12029", L"\r\n", L"警告：设置未能保存：磁盘已满（",
                                     L"WinHttpReceiveResponse: " + platform::ErrorReason(12029)};
  for (const auto part : HintCatalogue()) {
    for (const Hint& hint : part) {
      words.push_back(std::wstring(hint.pattern) +
                      (hint.code == 0 ? L"" : std::to_wstring(hint.code)));
    }
  }
  return words;
}

TEST_F(HintsTest, NeverMatchTextFromTheService) {
  for (const std::wstring& words : CatalogueTexts()) {
    for (const wchar_t* before :
         {L"", L"Error: ", L"\r\nError: ", L"x\r\n", L"警告：自动重连未成功（"}) {
      if (words.empty() && *before == 0) continue;  // no reason at all
      const std::wstring message = before + words + (*before == L'警' ? L"），将继续重试。" : L"");
      const std::wstring reply =
          LR"({"success":false,"code":"X","message":)" + settings::QuoteJsonString(message) + L"}";
      EXPECT_EQ(Cause(Resolve(reply)), L"") << text::ToUtf8(message);
      service::FakeWorld refusing;
      refusing.Answer(reply);
      EXPECT_EQ(Cause(Connect(refusing), {refusalCode_}), L"") << text::ToUtf8(message);
      service::FakeWorld reporting;
      reporting.Answer(reply);
      reporting.Answer(LR"({"success":false,"message":"x","code":"WRONG"})");
      EXPECT_EQ(Cause(Connect(reporting, L"c0"), {refusalCode_}), L"") << text::ToUtf8(message);
    }
  }
}

TEST_F(HintsTest, RecogniseTheRelaysAnswers) {
  const struct {
    const char* response;
    const wchar_t* cause;
  } rows[] = {
      {"HTTP/1.1 200 OK", L"upgrade.200"},
      {"HTTP/1.1 400 Bad Request", L"upgrade.400"},
      {"HTTP/1.1 401 Unauthorized", L"upgrade.forbidden"},
      {"HTTP/1.1 403 Forbidden", L"upgrade.forbidden"},
      {"HTTP/1.1 404 Not Found", L"upgrade.404"},
      {"HTTP/1.1 407 Proxy Authentication Required", L"upgrade.407"},
      {"HTTP/1.1 502 Bad Gateway", L"upgrade.down"},
      {"HTTP/1.1 503 Service Unavailable", L"upgrade.down"},
      {"HTTP/1.1 504 Gateway Timeout", L"upgrade.down"},
      {"HTTP/1.1 2000 What", L"upgrade"},
      {"nonsense", L"upgrade"},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(Cause(RelayAnswers(row.response + std::string("\r\n\r\n"))), row.cause)
        << row.response;
  }
  EXPECT_EQ(Cause(RelayAnswers("HTTP/1.1 101 X\r\nX: " + std::string(16384, 'x'))), L"handshake");
  EXPECT_EQ(Cause(RelayAnswers("", true)), L"handshake");
}

TEST_F(HintsTest, RecogniseWhyTheRelayIsUnreachable) {
  const auto cause = [](const std::wstring& url) {
    return Cause(ConnectWith([&] { tunnel::WebSocketRelay().Connect(url); }));
  };
  EXPECT_EQ(cause(L"wss://127.0.0.1/"), L"wss");
  EXPECT_EQ(cause(L"http://127.0.0.1/"), L"address");
  EXPECT_EQ(cause(L"ws://" + std::wstring(70, L'a') + L"/"), L"relay.name");
  platform::SocketLibrary library;
  int error = library.Start();
  const auto taken = platform::Socket::Create(platform::SocketKind::Tcp, 2, error);
  ASSERT_EQ(taken->Bind(platform::SocketAddress::Loopback(0)), 0);  // but does not listen
  const std::wstring refused =
      cause(L"ws://127.0.0.1:" + std::to_wstring(taken->LocalAddress().Port()) + L"/");
  EXPECT_TRUE(refused == L"relay.refused" || refused == L"relay") << "the second with POSIX codes";
  for (const auto& [code, wanted] : {std::pair(L"10060", L"relay.timeout"),
                                     {L"10051", L"relay.unreachable"},
                                     {L"10065", L"relay.unreachable"},
                                     {L"10013", L"relay.forbidden"},
                                     {L"110061", L"relay"}}) {
    EXPECT_EQ(Cause(L"警告：自动重连未成功（Relay TCP connect failed to h10061:31080, error " +
                    std::wstring(code) + L"），将继续重试。"),
              wanted);
  }
  EXPECT_EQ(Cause(ConnectWith([] { tunnel::BuildRelayUrl(L"http://h:99999", L"/x"); })),
            L"address");
}

TEST_F(HintsTest, RecogniseUnusableNetworks) {
  const auto networks = [](std::vector<std::wstring> texts) { return tunnel::ParseRoutes(texts); };
  EXPECT_EQ(Cause(ConnectWith([&] {
              tunnel::BuildRouteMappings(networks({L"10.0.0.0/8"}),
                                         networks({L"10.0.0.0/8", L"172.31.0.0/16"}));
            })),
            L"nat");
}

TEST_F(HintsTest, AddNothingToTheDriversOwnAdvice) {
  for (const std::uint32_t code : {2u, 5u, 87u, 126u, 225u, 577u, 1058u, 1275u, 4711u}) {
    const std::wstring line = ConnectWith(
        [code] { throw tunnel::DriverError("WinDivertOpen failed for filter: x", code); });
    const Hint* const hint = FindHint(line, {});
    ASSERT_NE(hint, nullptr) << code;
    EXPECT_EQ(hint->text, L"") << code;
  }
}

TEST_F(HintsTest, UseTheFirstMatchingPattern) {
  std::vector<const Hint*> earlier;
  for (const auto part : HintCatalogue()) {
    for (const Hint& hint : part) {
      const bool isHidden = std::ranges::any_of(earlier, [&hint](const Hint* other) {
        return other->at == hint.at && other->code == 0 && !other->pattern.empty() &&
               hint.pattern.starts_with(other->pattern);
      });
      EXPECT_FALSE(isHidden) << text::ToUtf8(hint.cause) << " is never found";
      earlier.push_back(&hint);
    }
  }
}

TEST_F(HintsTest, UseOneTextPerCauseInTheColourOfPlainText) {
  std::map<std::wstring_view, std::wstring_view> texts;
  for (const auto part : HintCatalogue()) {
    for (const Hint& hint : part) {
      const auto known = texts.emplace(hint.cause, hint.text).first;
      EXPECT_EQ(known->second, hint.text) << text::ToUtf8(hint.cause);
      EXPECT_EQ(page::ClassifyStatus(HintLine(hint)), page::StatusClass::Plain)
          << text::ToUtf8(HintLine(hint));
    }
  }
}

}  // namespace
}  // namespace shell
