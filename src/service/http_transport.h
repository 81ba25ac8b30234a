#pragma once

#include <cstdint>
#include <functional>
#include <stop_token>
#include <string>

#include "platform/url.h"

// The two blocking operations behind all communication with the central service. Each uses a
// session of its own, so any number may run at once on any threads. A requested `stop` ends either
// of them at once, as a failure.
namespace service {

using ParsedUrl = platform::UrlParts;

struct HttpResponse {
  std::uint32_t status = 0;
  std::wstring body;  // decoded from UTF-8
};

// Splits an absolute address. Throws std::runtime_error, "WinHttpCrackUrl: " and the system's text.
ParsedUrl ParseUrl(const std::wstring& url);

// Sends `body` (JSON, perhaps empty) with the verb `method` and waits for the whole reply, whatever
// its status. Throws std::runtime_error "<function>: <system text>" (UTF-8) when no reply arrives;
// a failure to send is named "WinHttpReceiveResponse" as well. Time limits: resolve and connect
// 10 s each, send 15 s, receive 30 s.
HttpResponse SendJsonRequest(const std::wstring& method, const std::wstring& url,
                             const std::wstring& body, const std::stop_token& stop = {});

// Downloads `url` to `targetPath` by way of "<targetPath>.download" and creates the folder. True
// only when the file then holds the whole body of a 2xx reply. After a failure an earlier file is
// unchanged and no partial file remains. Throws for neither transport nor file failures. Time
// limits as above, but receive 120 s.
bool DownloadFile(const std::wstring& url, const std::wstring& targetPath,
                  const std::stop_token& stop = {});

// How jobs send a request: SendJsonRequest() in the program, a fake in their tests.
using JsonRequester = std::function<HttpResponse(
    const std::wstring& method, const std::wstring& url, const std::wstring& body)>;

// SendJsonRequest(), ended by `stop`. Windows only.
JsonRequester RealJsonRequester(std::stop_token stop);

}  // namespace service
