#include "service/http_transport.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "service/api_messages.h"
#include "service/http_exchange_win.h"
#include "service/scripted_server_win.h"

namespace service {
namespace {

// The message of the exception that the call throws.
template <typename Call>
std::string MessageOf(Call call) {
  try {
    call();
  } catch (const std::runtime_error& error) {
    return error.what();
  }
  return "(none)";
}

// "WinHttpX: <text>" or "WinHttpX failed.", which depends on the system's message table.
bool IsMessageOf(const std::string& function, const std::string& message) {
  return message == function + " failed." ||
         (message.rfind(function + ": ", 0) == 0 && message.size() > function.size() + 2);
}

// The header lines of a raw request, sorted, without the request line.
std::vector<std::string> HeaderLines(const std::string& request) {
  std::vector<std::string> lines;
  std::size_t at = request.find("\r\n") + 2;
  for (std::size_t end = request.find("\r\n", at); end != at; end = request.find("\r\n", at)) {
    lines.push_back(request.substr(at, end - at));
    at = end + 2;
  }
  std::sort(lines.begin(), lines.end());
  return lines;
}

std::string RequestLine(const std::string& request) {
  return request.substr(0, request.find("\r\n"));
}

std::string BodyOf(const std::string& request) {
  return request.substr(request.find("\r\n\r\n") + 4);
}

TEST(ParseUrl, SplitsAbsoluteAddresses) {
  const ParsedUrl plain = ParseUrl(L"http://10.0.0.5:31080/api/devices/resolve");
  EXPECT_EQ(plain.host, L"10.0.0.5");
  EXPECT_EQ(plain.port, 31080);
  EXPECT_EQ(plain.path, L"/api/devices/resolve");
  EXPECT_FALSE(plain.secure);

  const ParsedUrl secure = ParseUrl(L"https://host/x?y=1");
  EXPECT_EQ(secure.host, L"host");
  EXPECT_EQ(secure.port, 443);
  EXPECT_EQ(secure.path, L"/x?y=1");
  EXPECT_TRUE(secure.secure);

  const ParsedUrl bare = ParseUrl(L"http://host");
  EXPECT_EQ(bare.port, 80);
  EXPECT_EQ(bare.path, L"/");
}

TEST(ParseUrl, NamesTheFailedCall) {
  for (const wchar_t* url : {L"no address", L"", L"ftp://host/x", L"http://host:99999/"}) {
    EXPECT_TRUE(IsMessageOf("WinHttpCrackUrl", MessageOf([url] { ParseUrl(url); })))
        << MessageOf([url] { ParseUrl(url); });
  }
}

TEST(SendJsonRequest, SendsExactlyTheSpecifiedRequest) {
  ScriptedServer server({HttpReply("200 OK", "{}")});
  SendJsonRequest(L"POST", server.Url(L"/api/connections/request?x=1"), L"{\"key\":\"中文\"}");

  const std::vector<std::string> requests = server.Requests();
  ASSERT_EQ(requests.size(), 1u);
  EXPECT_EQ(RequestLine(requests[0]), "POST /api/connections/request?x=1 HTTP/1.1");
  EXPECT_EQ(BodyOf(requests[0]), "{\"key\":\"\xE4\xB8\xAD\xE6\x96\x87\"}");
  EXPECT_EQ(HeaderLines(requests[0]),
            (std::vector<std::string>{"Connection: Keep-Alive", "Content-Length: 16",
                                      "Content-Type: application/json; charset=utf-8",
                                      "Host: 127.0.0.1:" + std::to_string(server.Port()),
                                      "User-Agent: Velmarine.Native/0.2"}));
}

TEST(SendJsonRequest, SendsAnEmptyBodyWithoutDataAndContentType) {
  ScriptedServer server({HttpReply("200 OK", "{}")});
  SendJsonRequest(L"POST", server.Url(L"/x"), L"");

  const std::vector<std::string> requests = server.Requests();
  ASSERT_EQ(requests.size(), 1u);
  EXPECT_EQ(BodyOf(requests[0]), "");
  EXPECT_EQ(HeaderLines(requests[0]),
            (std::vector<std::string>{"Connection: Keep-Alive", "Content-Length: 0",
                                      "Host: 127.0.0.1:" + std::to_string(server.Port()),
                                      "User-Agent: Velmarine.Native/0.2"}));
}

TEST(SendJsonRequest, RequestsTheRootForAUrlWithoutPath) {
  ScriptedServer server({HttpReply("200 OK", "{}")});
  SendJsonRequest(L"POST", server.Url(L""), L"{}");

  ASSERT_EQ(server.Requests().size(), 1u);
  EXPECT_EQ(RequestLine(server.Requests()[0]), "POST / HTTP/1.1");
}

TEST(SendJsonRequest, ReturnsStatusAndBodyOfEveryReply) {
  struct Row {
    std::string status;
    std::string body;
    std::uint32_t wantedStatus;
    std::wstring wantedBody;
  };
  const Row rows[] = {
      {"200 OK", R"({"success":true})", 200, LR"({"success":true})"},
      {"500 Internal Server Error", R"({"success":false,"code":"X"})", 500,
       LR"({"success":false,"code":"X"})"},
      {"404 Not Found", "<html>", 404, L"<html>"},
      {"403 Forbidden", "", 403, L""},
  };
  for (const Row& row : rows) {
    ScriptedServer server({HttpReply(row.status, row.body)});
    const HttpResponse response = SendJsonRequest(L"POST", server.Url(L"/x"), L"{}");
    EXPECT_EQ(response.status, row.wantedStatus);
    EXPECT_EQ(response.body, row.wantedBody);
  }
}

TEST(SendJsonRequest, DecodesUtf8CutBetweenPieces) {
  const std::string body = "{\"message\":\"\xE8\xAE\xBE\xE5\xA4\x87\xF0\x9F\x98\x80\xFF\"}";
  const std::string reply = HttpReply("200 OK", body);
  const std::size_t insideCharacter = reply.size() - 6;
  ScriptedServer server({reply.substr(0, insideCharacter), reply.substr(insideCharacter)});

  EXPECT_EQ(SendJsonRequest(L"POST", server.Url(L"/x"), L"{}").body,
            L"{\"message\":\"设备\xD83D\xDE00\xFFFD\"}");
}

// Some servers write one; the envelope after it is parsed.
TEST(SendJsonRequest, AReplyMayBeginWithAByteOrderMark) {
  ScriptedServer server({HttpReply(
      "400 Bad Request", "\xEF\xBB\xBF{\"success\":false,\"message\":\"\xE5\x81\x9C\"}")});
  const HttpResponse response = SendJsonRequest(L"POST", server.Url(L"/x"), L"{}");

  EXPECT_EQ(ParseApiEnvelope(response.body).message, L"停");
}

TEST(SendJsonRequest, JoinsAChunkedBody) {
  ScriptedServer server({"HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n5\r\n{\"a\":\r\n",
                         "2\r\n1}\r\n", "0\r\n\r\n"});

  EXPECT_EQ(SendJsonRequest(L"POST", server.Url(L"/x"), L"{}").body, L"{\"a\":1}");
}

TEST(SendJsonRequest, ReadsABodyWithoutALengthToTheEndOfTheConnection) {
  ScriptedServer server({"HTTP/1.1 200 OK\r\n\r\n{\"a\"", ":1}"});

  EXPECT_EQ(SendJsonRequest(L"POST", server.Url(L"/x"), L"{}").body, L"{\"a\":1}");
}

TEST(SendJsonRequest, WaitsForASlowReply) {
  const std::string reply = HttpReply("200 OK", "{\"a\":1}");
  RawReply pieces;
  for (std::size_t at = 0; at < reply.size(); at += 8) pieces.push_back(reply.substr(at, 8));
  ScriptedServer server(pieces);

  const HttpResponse response = SendJsonRequest(L"POST", server.Url(L"/x"), L"{}");
  EXPECT_EQ(response.status, 200u);
  EXPECT_EQ(response.body, L"{\"a\":1}");
}

TEST(SendJsonRequest, KeepsALargeBodyWhole) {
  const std::string body(300'000, 'x');
  ScriptedServer server({HttpReply("200 OK", body)});

  EXPECT_EQ(SendJsonRequest(L"POST", server.Url(L"/x"), L"{}").body, std::wstring(300'000, L'x'));
}

// Without 302: Wine 8 fails it (12019) for a request with a body, and Windows turns it into a GET.
// The downloads' tests cover it.
TEST(SendJsonRequest, FollowsARedirectThatKeepsVerbAndBody) {
  ScriptedServer moved({HttpReply("200 OK", "{\"a\":1}")});
  ScriptedServer server({HttpReply("307 Temporary Redirect", "", moved.LocationHeader("/moved"))});

  const HttpResponse response = SendJsonRequest(L"POST", server.Url(L"/x"), L"{}");

  EXPECT_EQ(response.status, 200u);
  EXPECT_EQ(response.body, L"{\"a\":1}");
  ASSERT_EQ(moved.Requests().size(), 1u);
  EXPECT_EQ(RequestLine(moved.Requests()[0]), "POST /moved HTTP/1.1");
  EXPECT_EQ(BodyOf(moved.Requests()[0]), "{}");
}

TEST(SendJsonRequest, NamesReceivingWhenTheHostIsUnreachable) {
  const std::wstring url = L"http://127.0.0.1:" + std::to_wstring(ClosedPort()) + L"/x";
  const std::string message = MessageOf([&] { SendJsonRequest(L"POST", url, L"{}"); });

  EXPECT_TRUE(IsMessageOf("WinHttpReceiveResponse", message)) << message;
}

TEST(SendJsonRequest, NamesReceivingWhenTheServerClosesBeforeItsHeaders) {
  for (const RawReply& reply : {RawReply{}, RawReply{"HTTP/1.1 20"}, RawReply{"garbage\r\n\r\n"}}) {
    ScriptedServer server(reply);
    const std::string message =
        MessageOf([&] { SendJsonRequest(L"POST", server.Url(L"/x"), L"{}"); });
    EXPECT_TRUE(IsMessageOf("WinHttpReceiveResponse", message)) << message;
  }
}

TEST(SendJsonRequest, SpeaksTlsToAnHttpsAddress) {
  ScriptedServer server(RawReply{});
  const std::wstring url = L"https://127.0.0.1:" + std::to_wstring(server.Port()) + L"/x";
  const std::string message = MessageOf([&] { SendJsonRequest(L"POST", url, L"{\"key\":1}"); });

  EXPECT_TRUE(IsMessageOf("WinHttpReceiveResponse", message)) << message;
  ASSERT_EQ(server.Requests().size(), 1u);
  EXPECT_EQ(server.Requests()[0][0], kTlsHandshake);
  EXPECT_EQ(server.Requests()[0].find("key"), std::string::npos);
}

TEST(HttpExchange, WaitsForTheReplyUpToItsLimit) {
  RawReply late(10, "");  // silent for 400 ms after the headers
  late[0] = "HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\n";
  late.push_back("{}");
  struct Row {
    std::chrono::milliseconds limit;
    bool fails;
  };
  for (const Row& row :
       {Row{std::chrono::milliseconds(50), true}, Row{std::chrono::milliseconds(20000), false}}) {
    ScriptedServer server(late);
    HttpExchange exchange(L"POST", server.Url(L"/x"), row.limit);
    exchange.Run("{}");
    std::string body;
    const std::string message = MessageOf([&] { body = exchange.ReadChunk(); });
    EXPECT_EQ(message != "(none)", row.fails) << message;
    EXPECT_EQ(body, row.fails ? "" : "{}");
  }
}

TEST(SendJsonRequest, FailsForAnInvalidUrl) {
  const std::string message = MessageOf([] { SendJsonRequest(L"POST", L"http:/", L"{}"); });

  EXPECT_TRUE(IsMessageOf("WinHttpCrackUrl", message)) << message;
}

TEST(SendJsonRequest, RunsOnSeveralThreadsAtOnce) {
  constexpr int kThreads = 4;
  std::vector<RawReply> replies(kThreads, RawReply{HttpReply("200 OK", "{\"a\":1}")});
  ScriptedServer server;
  server.Start(replies);

  std::vector<std::thread> threads;
  std::vector<std::wstring> bodies(kThreads);
  for (std::wstring& body : bodies) {
    threads.emplace_back([&] { body = SendJsonRequest(L"POST", server.Url(L"/x"), L"{}").body; });
  }
  for (std::thread& thread : threads) thread.join();

  EXPECT_EQ(bodies, std::vector<std::wstring>(kThreads, L"{\"a\":1}"));
}

}  // namespace
}  // namespace service
