#include "service/http_exchange_win.h"

#include <stdexcept>

#include "platform/error_text_win.h"
#include "service/http_reply.h"
#include "service/http_transport.h"

// clang-format off
#include "platform/windows_sdk.h"
#include <winhttp.h>
// clang-format on

namespace service {
namespace {

constexpr wchar_t kUserAgent[] = L"Velmarine.Native/0.2";
constexpr wchar_t kJsonHeader[] = L"Content-Type: application/json; charset=utf-8\r\n";
constexpr int kResolveMs = 10000;
constexpr int kConnectMs = 10000;
constexpr int kSendMs = 15000;

[[noreturn]] void ThrowFailure(const char* function, DWORD error) {
  throw std::runtime_error(HttpFailureText(function, platform::SystemErrorText(error)));
}

// Takes what a call has just made, reading the last error before anything can change it.
platform::HttpHandle CheckedHandle(HINTERNET made, const char* function) {
  const DWORD error = ::GetLastError();
  platform::HttpHandle handle(made);
  if (!handle) ThrowFailure(function, error);
  return handle;
}

}  // namespace

ParsedUrl ParseUrl(const std::wstring& url) {
  ParsedUrl parts;
  if (!platform::CrackUrl(url, parts)) ThrowFailure("WinHttpCrackUrl", ::GetLastError());
  return parts;
}

HttpExchange::HttpExchange(const std::wstring& method, const std::wstring& url,
                           std::chrono::milliseconds receiveLimit) {
  const ParsedUrl parts = ParseUrl(url);
  session_ = CheckedHandle(::WinHttpOpen(kUserAgent, WINHTTP_ACCESS_TYPE_DEFAULT_PROXY,
                                         WINHTTP_NO_PROXY_NAME, WINHTTP_NO_PROXY_BYPASS, 0),
                           "WinHttpOpen");
  // Without them the system's own limits hold, which is no reason to give up.
  ::WinHttpSetTimeouts(session_.Get(), kResolveMs, kConnectMs, kSendMs,
                       static_cast<int>(receiveLimit.count()));
  connection_ = CheckedHandle(::WinHttpConnect(session_.Get(), parts.host.c_str(), parts.port, 0),
                              "WinHttpConnect");
  request_ =
      CheckedHandle(::WinHttpOpenRequest(connection_.Get(), method.c_str(), parts.path.c_str(),
                                         nullptr, WINHTTP_NO_REFERER, WINHTTP_DEFAULT_ACCEPT_TYPES,
                                         parts.secure ? WINHTTP_FLAG_SECURE : 0),
                    "WinHttpOpenRequest");
}

void HttpExchange::Run(const std::string& body) {
  const auto lengthBytes = static_cast<DWORD>(body.size());
  const wchar_t* header = body.empty() ? WINHTTP_NO_ADDITIONAL_HEADERS : kJsonHeader;
  const DWORD headerUnits = body.empty() ? 0 : static_cast<DWORD>(-1);  // up to its terminator
  // The system only reads the bytes; its parameter merely lacks the const.
  void* data = body.empty() ? WINHTTP_NO_REQUEST_DATA : const_cast<char*>(body.data());

  const bool received = ::WinHttpSendRequest(request_.Get(), header, headerUnits, data, lengthBytes,
                                             lengthBytes, 0) != FALSE &&
                        ::WinHttpReceiveResponse(request_.Get(), nullptr) != FALSE;
  const DWORD error = ::GetLastError();
  if (!received) ThrowFailure("WinHttpReceiveResponse", error);
}

std::uint32_t HttpExchange::Status() const {
  DWORD status = 0;
  DWORD sizeBytes = sizeof(status);
  ::WinHttpQueryHeaders(request_.Get(), WINHTTP_QUERY_STATUS_CODE | WINHTTP_QUERY_FLAG_NUMBER,
                        WINHTTP_HEADER_NAME_BY_INDEX, &status, &sizeBytes, WINHTTP_NO_HEADER_INDEX);
  return status;
}

std::optional<std::uint64_t> HttpExchange::ContentLengthBytes() const {
  wchar_t value[64] = {};  // as text: the system's number form ends at 4 GB
  DWORD sizeBytes = sizeof(value) - sizeof(wchar_t);
  if (::WinHttpQueryHeaders(request_.Get(), WINHTTP_QUERY_CONTENT_LENGTH,
                            WINHTTP_HEADER_NAME_BY_INDEX, value, &sizeBytes,
                            WINHTTP_NO_HEADER_INDEX) == FALSE) {
    return std::nullopt;
  }
  return ParseContentLength(value);
}

std::string HttpExchange::ReadChunk() {
  DWORD availableBytes = 0;
  if (::WinHttpQueryDataAvailable(request_.Get(), &availableBytes) == FALSE) {
    ThrowFailure("WinHttpQueryDataAvailable", ::GetLastError());
  }
  if (availableBytes == 0) return {};

  std::string chunk(availableBytes, '\0');
  DWORD readBytes = 0;
  if (::WinHttpReadData(request_.Get(), chunk.data(), availableBytes, &readBytes) == FALSE) {
    ThrowFailure("WinHttpReadData", ::GetLastError());
  }
  chunk.resize(readBytes);
  return chunk;
}

}  // namespace service
