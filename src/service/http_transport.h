#pragma once

#include <cstdint>
#include <functional>
#include <stop_token>
#include <string>

#include "platform/url.h"

// The two blocking operations through which all talk with the central service goes. Each opens and
// closes a session of its own; nothing is shared, so any number may run at once on any threads. A
// requested `stop` ends either at once, wherever it is, as a failure.
namespace service {

using ParsedUrl = platform::UrlParts;

struct HttpResponse {
  std::uint32_t status = 0;
  std::wstring body;  // decoded from UTF-8
};

// Splits an absolute address. Throws std::runtime_error, "WinHttpCrackUrl: " and the system's text.
ParsedUrl ParseUrl(const std::wstring& url);

// Sends `body` (JSON, perhaps empty) with the verb `method` and waits for the whole reply. The
// status is not judged. Throws std::runtime_error "<function>: <system text>" (UTF-8) when no reply
// comes, whether it was sending or receiving that failed as "WinHttpReceiveResponse". Time-outs:
// resolve and connect 10 s each, send 15 s, receive 30 s.
HttpResponse SendJsonRequest(const std::wstring& method, const std::wstring& url,
                             const std::wstring& body, const std::stop_token& stop = {});

// Streams `url` into `targetPath` by way of "<targetPath>.download", making the folder. True only
// when the file now holds the whole body of a 2xx reply; on failure an earlier file stays as it was
// and no partial file is left. Throws for neither transport nor file failures. Time-outs as above,
// but receive 120 s.
bool DownloadFile(const std::wstring& url, const std::wstring& targetPath,
                  const std::stop_token& stop = {});

// How the jobs reach the service: the two above in the program, fakes in their tests.
using JsonRequester = std::function<HttpResponse(
    const std::wstring& method, const std::wstring& url, const std::wstring& body)>;
using Downloader = std::function<bool(const std::wstring& url, const std::wstring& targetPath)>;

// The two above, ended by `stop`. Windows only.
JsonRequester RealJsonRequester(std::stop_token stop);
Downloader RealDownloader(std::stop_token stop);

}  // namespace service
