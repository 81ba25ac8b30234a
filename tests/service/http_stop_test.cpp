#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <stdexcept>
#include <string>
#include <thread>

#include "platform/files.h"
#include "platform/scratch_folder.h"
#include "service/http_exchange_win.h"
#include "service/http_transport.h"
#include "service/scripted_server_win.h"

namespace service {
namespace {

using std::chrono::milliseconds;

constexpr std::chrono::seconds kPatience{20};
constexpr std::size_t kPieces = 10'000;  // enough for minutes
const std::string kHead = "HTTP/1.1 200 OK\r\nContent-Length: 100000\r\n\r\n";

// A reply that outlasts the test: `start`, then `piece` repeatedly.
RawReply Endless(const std::string& start, const std::string& piece) {
  RawReply reply(kPieces, piece);
  reply[0] = start;
  return reply;
}

struct Row {
  const char* name;
  RawReply reply;
  const char* awaited;  // the call that waits when stopped
};

const Row kReplies[] = {
    {"no answer", Endless("", ""), "WinHttpReceiveResponse"},
    {"half a head", Endless("HTTP/1.1 200 OK\r\nContent-", ""), "WinHttpReceiveResponse"},
    {"no body", Endless(kHead, ""), "WinHttpQueryDataAvailable"},
    {"trickled body", Endless(kHead, "x"), "WinHttpQueryDataAvailable"},
};

template <typename Call>
std::string FailureOf(const Call& call) {
  try {
    call();
  } catch (const std::runtime_error& error) {
    return error.what();
  }
  return "(none)";
}

void AwaitRequest(ScriptedServer& server) {
  const auto end = std::chrono::steady_clock::now() + kPatience;
  while (server.Requests().empty() && std::chrono::steady_clock::now() < end) {
    std::this_thread::yield();
  }
}

// The outcome of `call` when it is stopped after the server has received its request.
template <typename Call>
auto StoppedMidway(ScriptedServer& server, std::stop_source& stop, Call call) {
  auto outcome = std::async(std::launch::async, call);
  AwaitRequest(server);
  stop.request_stop();
  EXPECT_EQ(outcome.wait_for(kPatience), std::future_status::ready) << "went on";
  return outcome.get();
}

TEST(HttpStop, EndsARequestAtAnyPoint) {
  for (const Row& row : kReplies) {
    ScriptedServer server(row.reply);
    std::stop_source stop;
    const std::string failure = StoppedMidway(server, stop, [&] {
      return FailureOf(
          [&] { SendJsonRequest(L"POST", server.Url(L"/x"), L"{}", stop.get_token()); });
    });
    EXPECT_EQ(failure, "The request was cancelled.") << row.name;
  }
}

TEST(HttpStop, EndsADownloadAtAnyPointAndKeepsTheEarlierFile) {
  const platform::ScratchFolder scratch;
  const std::wstring target = scratch.Path(L"update.exe");
  ASSERT_TRUE(platform::WriteFileBytes(target, "old"));
  for (const Row& row : kReplies) {
    ScriptedServer server(row.reply);
    std::stop_source stop;
    EXPECT_FALSE(StoppedMidway(server, stop, [&] {
      return DownloadFile(server.Url(L"/x"), target, stop.get_token());
    })) << row.name;
    EXPECT_EQ(platform::ReadFileBytes(target), "old") << row.name;
    EXPECT_FALSE(platform::IsFile(target + L".download")) << row.name;
  }
}

TEST(HttpStop, RequestedBeforeNothingIsSent) {
  ScriptedServer server({HttpReply("200 OK", "{}")});
  std::stop_source stop;
  stop.request_stop();
  const std::string failure = FailureOf(
      [&] { RealJsonRequester(stop.get_token())(L"POST", server.Url(L"/x"), L"{\"key\":1}"); });
  EXPECT_EQ(failure, "The request was cancelled.");
  EXPECT_FALSE(DownloadFile(server.Url(L"/x"), L"Z:\\nowhere\\update.exe", stop.get_token()));
  EXPECT_TRUE(server.Requests().empty());
}

TEST(HttpStop, OfAnotherSourceHasNoEffect) {
  ScriptedServer server({HttpReply("200 OK", "{\"a\":1}")});
  std::stop_source stop;
  EXPECT_EQ(RealJsonRequester(stop.get_token())(L"POST", server.Url(L"/x"), L"{}").body,
            L"{\"a\":1}");
}

TEST(HttpLimits, EndEachWaitForASlowServerAndNameTheCall) {
  for (const Row& row : kReplies) {
    ScriptedServer server(row.reply);
    HttpExchange exchange(L"POST", server.Url(L"/x"), milliseconds(10));
    const std::string failure = FailureOf([&] {
      exchange.Run("{}");
      for (std::string chunk = "x"; !chunk.empty();) chunk = exchange.ReadChunk();
    });
    EXPECT_TRUE(failure.starts_with(row.awaited)) << row.name << ": " << failure;
  }
}

TEST(HttpLimits, AreTheStatedOnes) {
  EXPECT_EQ(kReplyLimit, std::chrono::seconds(30));
  EXPECT_EQ(kDownloadLimit, std::chrono::seconds(120));
  EXPECT_EQ(kSendLimit, std::chrono::seconds(10 + 10 + 15));
  const struct {
    DWORD option;
    DWORD wantedMs;
  } rows[] = {
      {WINHTTP_OPTION_RESOLVE_TIMEOUT, 10'000},
      {WINHTTP_OPTION_CONNECT_TIMEOUT, 10'000},
      {WINHTTP_OPTION_SEND_TIMEOUT, 15'000},
      {WINHTTP_OPTION_RECEIVE_TIMEOUT, 120'000},
  };
  const platform::HttpHandle session = OpenHttpSession(kDownloadLimit);
  for (const auto& row : rows) {
    DWORD limitMs = 0;
    DWORD sizeBytes = sizeof(limitMs);
    EXPECT_TRUE(::WinHttpQueryOption(session.Get(), row.option, &limitMs, &sizeBytes));
    EXPECT_EQ(limitMs, row.wantedMs) << row.option;
  }
}

}  // namespace
}  // namespace service
