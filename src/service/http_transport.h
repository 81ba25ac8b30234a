#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "platform/url.h"

// The two blocking operations through which all talk with the central service goes.
namespace service {

using ParsedUrl = platform::UrlParts;

struct HttpResponse {
  std::uint32_t status = 0;
  std::wstring body;  // decoded from UTF-8
};

// Splits an absolute address. Throws std::runtime_error, "WinHttpCrackUrl: " and the system's text.
ParsedUrl ParseUrl(const std::wstring& url);

// Sends `body` (JSON, perhaps empty) with the verb `method` and waits for the whole reply. The
// status is not judged. Throws std::runtime_error "<function>: <system text>" when no reply comes.
// Time-outs: resolve and connect 10 s each, send 15 s, receive 30 s. Any thread.
HttpResponse SendJsonRequest(const std::wstring& method, const std::wstring& url,
                             const std::wstring& body);

// Streams `url` into `targetPath` by way of "<targetPath>.download". True only when the file now
// holds the whole body of a 2xx reply; on failure an earlier file stays as it was. Any thread.
bool DownloadFile(const std::wstring& url, const std::wstring& targetPath);

// How the jobs reach the service: SendJsonRequest in the program, a fake in their tests.
using JsonRequester = std::function<HttpResponse(const std::wstring& method,
                                                 const std::wstring& url, const std::wstring& body)>;

}  // namespace service
