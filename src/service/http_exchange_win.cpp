#include "service/http_exchange_win.h"

#include <stdexcept>
#include <utility>

#include "platform/system_error.h"
#include "service/http_call.h"
#include "service/http_transport.h"

// clang-format off
#include "platform/windows_sdk.h"
#include <winhttp.h>
// clang-format on

namespace service {
namespace {

constexpr char kCancelled[] = "The request was cancelled.";
constexpr wchar_t kUserAgent[] = L"Velmarine.Native/0.2";
constexpr wchar_t kJsonHeader[] = L"Content-Type: application/json; charset=utf-8\r\n";
constexpr int kResolveMs = 10000;
constexpr int kConnectMs = 10000;
constexpr int kSendMs = 15000;
static_assert(std::chrono::milliseconds(kResolveMs + kConnectMs + kSendMs) == kSendLimit);
constexpr DWORD kReported = WINHTTP_CALLBACK_FLAG_ALL_COMPLETIONS |
                            WINHTTP_CALLBACK_FLAG_SEND_REQUEST | WINHTTP_CALLBACK_FLAG_HANDLES;

[[noreturn]] void ThrowFailure(const char* function, DWORD error) {
  throw std::runtime_error(HttpFailureText(function, platform::SystemErrorText(error)));
}

// Wraps a new handle, or throws. Reads the last error before anything can change it.
platform::HttpHandle CheckedHandle(HINTERNET made, const char* function) {
  const DWORD error = ::GetLastError();
  platform::HttpHandle handle(made);
  if (!handle) ThrowFailure(function, error);
  return handle;
}

}  // namespace

// The buffers of one request's calls, and the waits for them.
struct HttpCall {
  void Finish(CallResult result) noexcept {
    sent.Finish(result);
    wait.Finish(result);
  }

  CallWait sent;      // for the request to be sent
  CallWait wait;      // for the call to end
  std::string body;   // being sent
  std::string chunk;  // being read
};

namespace {

// The request handle's reference to its call, released by the handle's last report.
using HandleShare = std::shared_ptr<HttpCall>;

// Runs on the system's threads, or on the exchange's own thread during a call.
void CALLBACK OnReport(HINTERNET, DWORD_PTR context, DWORD status, void* information,
                       DWORD informationBytes) noexcept {
  auto* const share = reinterpret_cast<HandleShare*>(context);
  // Reports that precede the context have none.
  if (share == nullptr) return;
  HttpCall& call = **share;
  switch (status) {
    case WINHTTP_CALLBACK_STATUS_REQUEST_SENT:
      return call.sent.Finish({});
    case WINHTTP_CALLBACK_STATUS_SENDREQUEST_COMPLETE:
    case WINHTTP_CALLBACK_STATUS_HEADERS_AVAILABLE:
      return call.Finish({});
    case WINHTTP_CALLBACK_STATUS_DATA_AVAILABLE:
      return call.Finish({0, *static_cast<const DWORD*>(information)});
    case WINHTTP_CALLBACK_STATUS_READ_COMPLETE:
      return call.Finish({0, informationBytes});
    case WINHTTP_CALLBACK_STATUS_REQUEST_ERROR:
      return call.Finish({static_cast<const WINHTTP_ASYNC_RESULT*>(information)->dwError, 0});
    // The handle's last report: no buffer is in use any more.
    case WINHTTP_CALLBACK_STATUS_HANDLE_CLOSING:
      delete share;
      return;
    default:
      return;
  }
}

// Makes `request` report to `call`. Returns its context, which holds a reference to the call: the
// system may use the buffers after the exchange is gone, until it reports that the handle closes.
std::uintptr_t ReportTo(const std::shared_ptr<HttpCall>& call, HINTERNET request) {
  if (::WinHttpSetStatusCallback(request, OnReport, kReported, 0) ==
      WINHTTP_INVALID_STATUS_CALLBACK) {
    ThrowFailure("WinHttpSetStatusCallback", ::GetLastError());
  }
  auto share = std::make_unique<HandleShare>(call);
  auto context = reinterpret_cast<DWORD_PTR>(share.get());
  if (::WinHttpSetOption(request, WINHTTP_OPTION_CONTEXT_VALUE, &context, sizeof(context)) ==
      FALSE) {
    ThrowFailure("WinHttpSetOption", ::GetLastError());
  }
  // From here on the closing handle's report deletes it.
  return reinterpret_cast<std::uintptr_t>(share.release());
}

}  // namespace

ParsedUrl ParseUrl(const std::wstring& url) {
  ParsedUrl parts;
  if (!platform::CrackUrl(url, parts)) ThrowFailure("WinHttpCrackUrl", ::GetLastError());
  return parts;
}

platform::HttpHandle OpenHttpSession(std::chrono::milliseconds receiveLimit) {
  platform::HttpHandle session = CheckedHandle(
      ::WinHttpOpen(kUserAgent, WINHTTP_ACCESS_TYPE_DEFAULT_PROXY, WINHTTP_NO_PROXY_NAME,
                    WINHTTP_NO_PROXY_BYPASS, WINHTTP_FLAG_ASYNC),
      "WinHttpOpen");
  // A failure does not matter: the exchange enforces limits of its own.
  ::WinHttpSetTimeouts(session.Get(), kResolveMs, kConnectMs, kSendMs,
                       static_cast<int>(receiveLimit.count()));
  return session;
}

HttpExchange::HttpExchange(const std::wstring& method, const std::wstring& url,
                           std::chrono::milliseconds receiveLimit, std::stop_token stop)
    : receiveLimit_(receiveLimit), stop_(std::move(stop)), call_(std::make_shared<HttpCall>()) {
  const ParsedUrl parts = ParseUrl(url);
  session_ = OpenHttpSession(receiveLimit);
  connection_ = CheckedHandle(::WinHttpConnect(session_.Get(), parts.host.c_str(), parts.port, 0),
                              "WinHttpConnect");
  request_ =
      CheckedHandle(::WinHttpOpenRequest(connection_.Get(), method.c_str(), parts.path.c_str(),
                                         nullptr, WINHTTP_NO_REFERER, WINHTTP_DEFAULT_ACCEPT_TYPES,
                                         parts.secure ? WINHTTP_FLAG_SECURE : 0),
                    "WinHttpOpenRequest");
  context_ = ReportTo(call_, request_.Get());
}

// Makes `call`, which returns BOOL, unless a stop was requested.
template <typename Call>
void HttpExchange::Begin(const char* function, const Call& call) {
  if (stop_.stop_requested()) throw std::runtime_error(kCancelled);
  // Before the call, which may report its end before it returns.
  call_->sent.Begin();
  call_->wait.Begin();
  if (call() == FALSE) ThrowFailure(function, ::GetLastError());
}

// Waits for the call to end and returns the number of bytes that it reports.
std::uint32_t HttpExchange::Await(const char* function, CallWait& wait,
                                  std::chrono::milliseconds limit) {
  const std::optional<CallResult> result = wait.Await(limit, stop_);
  // A stop also explains a missing result, so it is tested first.
  if (stop_.stop_requested()) throw std::runtime_error(kCancelled);
  if (!result) ThrowFailure(function, ERROR_WINHTTP_TIMEOUT);
  if (result->error != 0) ThrowFailure(function, result->error);
  return result->bytes;
}

void HttpExchange::Run(std::string body) {
  constexpr char kName[] = "WinHttpReceiveResponse";  // for both calls
  // In the call, because the system reads it until the request is sent, even after this object is
  // gone.
  call_->body = std::move(body);
  std::string& sent = call_->body;
  Begin(kName, [&] {
    const auto lengthBytes = static_cast<DWORD>(sent.size());
    const wchar_t* header = sent.empty() ? WINHTTP_NO_ADDITIONAL_HEADERS : kJsonHeader;
    const DWORD headerUnits = sent.empty() ? 0 : static_cast<DWORD>(-1);  // up to its terminator
    void* data = sent.empty() ? WINHTTP_NO_REQUEST_DATA : sent.data();
    // The context is passed again: the argument may replace the one set on the handle.
    return ::WinHttpSendRequest(request_.Get(), header, headerUnits, data, lengthBytes, lengthBytes,
                                context_);
  });
  Await(kName, call_->sent, kSendLimit);
  // Some systems end the send call only when the reply begins, so this wait has the reply's limit.
  Await(kName, call_->wait, receiveLimit_);
  Begin(kName, [&] { return ::WinHttpReceiveResponse(request_.Get(), nullptr); });
  Await(kName, call_->wait, receiveLimit_);
}

std::uint32_t HttpExchange::Status() const {
  DWORD status = 0;
  DWORD sizeBytes = sizeof(status);
  ::WinHttpQueryHeaders(request_.Get(), WINHTTP_QUERY_STATUS_CODE | WINHTTP_QUERY_FLAG_NUMBER,
                        WINHTTP_HEADER_NAME_BY_INDEX, &status, &sizeBytes, WINHTTP_NO_HEADER_INDEX);
  return status;
}

std::optional<std::uint64_t> HttpExchange::ContentLengthBytes() const {
  wchar_t value[64] = {};  // as text: the system's numeric form is limited to 4 GB
  DWORD sizeBytes = sizeof(value) - sizeof(wchar_t);
  if (::WinHttpQueryHeaders(request_.Get(), WINHTTP_QUERY_CONTENT_LENGTH,
                            WINHTTP_HEADER_NAME_BY_INDEX, value, &sizeBytes,
                            WINHTTP_NO_HEADER_INDEX) == FALSE) {
    return std::nullopt;
  }
  return ParseContentLength(value);
}

std::wstring HttpExchange::Date() const {
  wchar_t value[64] = {};
  DWORD sizeBytes = sizeof(value) - sizeof(wchar_t);
  if (::WinHttpQueryHeaders(request_.Get(), WINHTTP_QUERY_DATE, WINHTTP_HEADER_NAME_BY_INDEX, value,
                            &sizeBytes, WINHTTP_NO_HEADER_INDEX) == FALSE) {
    return {};
  }
  return value;
}

std::string HttpExchange::ReadChunk() {
  constexpr char kQuery[] = "WinHttpQueryDataAvailable";
  constexpr char kRead[] = "WinHttpReadData";
  Begin(kQuery, [&] { return ::WinHttpQueryDataAvailable(request_.Get(), nullptr); });
  const DWORD availableBytes = Await(kQuery, call_->wait, receiveLimit_);
  if (availableBytes == 0) return {};

  std::string& chunk = call_->chunk;
  chunk.assign(availableBytes, '\0');
  Begin(kRead,
        [&] { return ::WinHttpReadData(request_.Get(), chunk.data(), availableBytes, nullptr); });
  // A read may end with fewer bytes than were available.
  chunk.resize(Await(kRead, call_->wait, receiveLimit_));
  return std::move(chunk);
}

}  // namespace service
