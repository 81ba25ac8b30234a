// Every WinHTTP call of an exchange: its arguments, and the effect of its failure.
#include <gtest/gtest.h>

#include <cwchar>
#include <stdexcept>
#include <string>
#include <vector>

#include "platform/system_error.h"
#include "service/fake_http_win.h"
#include "service/http_call.h"
#include "service/http_exchange_win.h"
#include "service/http_transport.h"
#include "text/utf8.h"

namespace service {
namespace {

using namespace win32;

constexpr wchar_t kRequestUrl[] = L"http://host:8080/a?b=1";
constexpr wchar_t kJsonHeader[] = L"Content-Type: application/json; charset=utf-8\r\n";

// "<status> <body>" of the reply, or the message of the failure.
std::string Request(const std::wstring& url = kRequestUrl, const std::wstring& body = L"{}") {
  try {
    const HttpResponse response = SendJsonRequest(L"POST", url, body);
    return std::to_string(response.status) + " " + text::ToUtf8(response.body);
  } catch (const std::runtime_error& error) {
    return error.what();
  }
}

// The message of a failed call.
std::string Failed(const char* function, DWORD error) {
  return HttpFailureText(function, platform::SystemErrorText(error));
}

TEST(HttpExchangeCalls, SendARequestAndReadItsReply) {
  Calls calls;
  FakeHttp http(calls);
  http.pieces = {"[1]", "!"};
  EXPECT_EQ(Request(), "200 [1]!");
  EXPECT_TRUE(calls.Were({
      Said<Api::WinHttpCrackUrl>(kRequestUrl, 22, 0, Some{}),
      Said<Api::WinHttpOpen>(L"Velmarine.Native/0.2", WINHTTP_ACCESS_TYPE_DEFAULT_PROXY, nullptr,
                             nullptr, WINHTTP_FLAG_ASYNC),
      Said<Api::GetLastError>(),
      Said<Api::WinHttpSetTimeouts>(Handle{1}, 10000, 10000, 15000, 30000),
      Said<Api::WinHttpConnect>(Handle{1}, L"host", 8080, 0),
      Said<Api::GetLastError>(),
      Said<Api::WinHttpOpenRequest>(Handle{2}, L"POST", L"/a?b=1", nullptr, nullptr, nullptr, 0),
      Said<Api::GetLastError>(),
      Said<Api::WinHttpSetStatusCallback>(Handle{3}, Text{"function"},
                                          WINHTTP_CALLBACK_FLAG_ALL_COMPLETIONS |
                                              WINHTTP_CALLBACK_FLAG_SEND_REQUEST |
                                              WINHTTP_CALLBACK_FLAG_HANDLES,
                                          0),
      Said<Api::WinHttpSetOption>(Handle{3}, WINHTTP_OPTION_CONTEXT_VALUE, Some{}, 8),
      Said<Api::WinHttpSendRequest>(Handle{3}, kJsonHeader, 0xFFFFFFFF, "{}", 2, 2, http.Context()),
      Said<Api::WinHttpReceiveResponse>(Handle{3}, nullptr),
      Said<Api::WinHttpQueryHeaders>(Handle{3},
                                     WINHTTP_QUERY_STATUS_CODE | WINHTTP_QUERY_FLAG_NUMBER, nullptr,
                                     Some{}, Ref{4}, nullptr),
      Said<Api::WinHttpQueryDataAvailable>(Handle{3}, nullptr),
      Said<Api::WinHttpReadData>(Handle{3}, Some{}, 3, nullptr),
      Said<Api::WinHttpQueryDataAvailable>(Handle{3}, nullptr),
      Said<Api::WinHttpReadData>(Handle{3}, Some{}, 1, nullptr),
      Said<Api::WinHttpQueryDataAvailable>(Handle{3}, nullptr),
      Said<Api::WinHttpCloseHandle>(Handle{3}),
      Said<Api::WinHttpCloseHandle>(Handle{2}),
      Said<Api::WinHttpCloseHandle>(Handle{1}),
  }));
  EXPECT_EQ(calls.Unbalanced(), "");
  EXPECT_EQ(http.partings, 1);
}

TEST(HttpExchangeCalls, ReadTheDateOfTheReply) {
  Calls calls;
  const FakeHttp http(calls);
  HttpExchange exchange(L"GET", kRequestUrl, std::chrono::seconds(5));
  exchange.Run({});
  calls.AnswerWith<Api::WinHttpQueryHeaders>(
      [](HINTERNET, DWORD, const wchar_t*, void* value, DWORD* sizeBytes, DWORD*) {
        EXPECT_EQ(*sizeBytes, 126u) << "room for a terminator behind it";
        std::wcscpy(static_cast<wchar_t*>(value), L"Thu, 01 Jan 1970 00:00:00 GMT");
        return TRUE;
      });
  EXPECT_EQ(exchange.Date(), L"Thu, 01 Jan 1970 00:00:00 GMT");
  EXPECT_TRUE(calls.EachWas(Api::WinHttpQueryHeaders,
                            Said<Api::WinHttpQueryHeaders>(Handle{3}, WINHTTP_QUERY_DATE, nullptr,
                                                           Some{}, Ref{126}, nullptr)));
  calls.Fail(Api::WinHttpQueryHeaders, ERROR_WINHTTP_HEADER_NOT_FOUND);
  EXPECT_EQ(exchange.Date(), L"");
}

TEST(HttpExchangeCalls, SendNoHeaderAndNoDataWithoutABody) {
  Calls calls;
  const FakeHttp http(calls);
  EXPECT_EQ(Request(kRequestUrl, L""), "200 ");
  EXPECT_TRUE(calls.EachWas(
      Api::WinHttpSendRequest,
      Said<Api::WinHttpSendRequest>(Handle{3}, nullptr, 0, nullptr, 0, 0, http.Context())));
}

TEST(HttpExchangeCalls, RequestTlsForAnHttpsUrl) {
  Calls calls;
  const FakeHttp http(calls);
  EXPECT_EQ(Request(L"https://host"), "200 ");
  EXPECT_TRUE(
      calls.WereAmong({Api::WinHttpConnect, Api::WinHttpOpenRequest},
                      {Said<Api::WinHttpConnect>(Handle{1}, L"host", 443, 0),
                       Said<Api::WinHttpOpenRequest>(Handle{2}, L"POST", L"/", nullptr, nullptr,
                                                     nullptr, WINHTTP_FLAG_SECURE)}));
}

TEST(HttpExchangeCalls, GiveTheBodysLengthInBytes) {
  Calls calls;
  const FakeHttp http(calls);
  EXPECT_EQ(Request(kRequestUrl, L"泵"), "200 ");
  EXPECT_TRUE(calls.EachWas(Api::WinHttpSendRequest,
                            Said<Api::WinHttpSendRequest>(Handle{3}, kJsonHeader, 0xFFFFFFFF,
                                                          "\xE6\xB3\xB5", 3, 3, http.Context())));
}

struct FailureRow {
  Api api;
  std::string text;
};

TEST(HttpExchangeCalls, NameTheFailedCall) {
  const FailureRow rows[] = {
      {Api::WinHttpCrackUrl, Failed("WinHttpCrackUrl", 5)},
      {Api::WinHttpOpen, Failed("WinHttpOpen", 5)},
      {Api::WinHttpSetTimeouts, "200 [1]"},
      {Api::WinHttpConnect, Failed("WinHttpConnect", 5)},
      {Api::WinHttpOpenRequest, Failed("WinHttpOpenRequest", 5)},
      {Api::WinHttpSetStatusCallback, Failed("WinHttpSetStatusCallback", 5)},
      {Api::WinHttpSetOption, Failed("WinHttpSetOption", 5)},
      {Api::WinHttpSendRequest, Failed("WinHttpReceiveResponse", 5)},
      {Api::WinHttpReceiveResponse, Failed("WinHttpReceiveResponse", 5)},
      {Api::WinHttpQueryHeaders, "0 [1]"},
      {Api::WinHttpQueryDataAvailable, Failed("WinHttpQueryDataAvailable", 5)},
      {Api::WinHttpReadData, Failed("WinHttpReadData", 5)},
  };
  for (const FailureRow& row : rows) {
    Calls calls;
    FakeHttp http(calls);
    http.pieces = {"[1]"};
    calls.Fail(row.api, 5);
    EXPECT_EQ(Request(), row.text) << Of(row.api).name;
    EXPECT_TRUE(calls.EachWas(Api::GetLastError, Said<Api::GetLastError>()));
    EXPECT_EQ(calls.Unbalanced(), "") << Of(row.api).name;
  }
}

TEST(HttpExchangeCalls, NameTheCallWhoseFailureIsReportedLater) {
  const FailureRow rows[] = {
      {Api::WinHttpSendRequest, Failed("WinHttpReceiveResponse", 5)},
      {Api::WinHttpReceiveResponse, Failed("WinHttpReceiveResponse", 5)},
      {Api::WinHttpQueryDataAvailable, Failed("WinHttpQueryDataAvailable", 5)},
      {Api::WinHttpReadData, Failed("WinHttpReadData", 5)},
  };
  for (const FailureRow& row : rows) {
    Calls calls;
    FakeHttp http(calls);
    http.pieces = {"[1]"};
    http.failingLater[row.api] = 5;
    EXPECT_EQ(Request(), row.text) << Of(row.api).name;
    EXPECT_EQ(calls.Unbalanced(), "") << Of(row.api).name;
    EXPECT_EQ(http.partings, 1) << Of(row.api).name;
  }
}

// The outcome of an exchange with a very short limit.
std::string ShortExchange() {
  try {
    HttpExchange exchange(L"GET", kRequestUrl, std::chrono::milliseconds(1));
    exchange.Run({});
    exchange.ReadChunk();
  } catch (const std::runtime_error& error) {
    return error.what();
  }
  return "done";
}

// A request that was sent already waits for its reply, even if the send call has not ended.
TEST(HttpExchangeCalls, NameTheCallThatTakesTooLong) {
  const FailureRow rows[] = {
      {Api::WinHttpSendRequest, "WinHttpReceiveResponse"},
      {Api::WinHttpReceiveResponse, "WinHttpReceiveResponse"},
      {Api::WinHttpQueryDataAvailable, "WinHttpQueryDataAvailable"},
      {Api::WinHttpReadData, "WinHttpReadData"},
  };
  for (const FailureRow& row : rows) {
    Calls calls;
    FakeHttp http(calls);
    http.pieces = {"[1]"};
    http.silent = {row.api};
    EXPECT_EQ(ShortExchange(), Failed(row.text.c_str(), ERROR_WINHTTP_TIMEOUT));
    EXPECT_EQ(calls.Unbalanced(), "") << row.text;
    EXPECT_EQ(http.partings, 1) << row.text;
  }
}

TEST(HttpExchangeCalls, KeepOnlyTheBytesRead) {
  Calls calls;
  FakeHttp http(calls);
  http.pieces = {"[1]xx", "!xx"};
  http.unreadBytes = 2;
  EXPECT_EQ(Request(), "200 [1]!");
}

TEST(HttpExchangeCalls, DoNotBeginAfterAStop) {
  Calls calls;
  FakeHttp http(calls);
  std::stop_source stop;
  HttpExchange exchange(L"GET", kRequestUrl, std::chrono::seconds(30), stop.get_token());
  stop.request_stop();
  EXPECT_THROW(exchange.Run("{}"), std::runtime_error);
  EXPECT_THROW(exchange.ReadChunk(), std::runtime_error);
  EXPECT_EQ(calls.Count(Api::WinHttpSendRequest), 0);
  EXPECT_EQ(calls.Count(Api::WinHttpQueryDataAvailable), 0);
}

}  // namespace
}  // namespace service
