#include <utility>

#include "service/http_exchange_win.h"
#include "service/http_transport.h"
#include "text/utf8.h"

namespace service {
HttpResponse SendJsonRequest(const std::wstring& method, const std::wstring& url,
                             const std::wstring& body, const std::stop_token& stop) {
  HttpExchange exchange(method, url, kReplyLimit, stop);
  exchange.Run(text::ToUtf8(body));

  HttpResponse response;
  response.status = exchange.Status();
  std::string bytes;
  for (std::string chunk = exchange.ReadChunk(); !chunk.empty(); chunk = exchange.ReadChunk()) {
    bytes += chunk;
  }
  response.body = text::FromUtf8(bytes);
  return response;
}

JsonRequester RealJsonRequester(std::stop_token stop) {
  return [stop = std::move(stop)](const std::wstring& method, const std::wstring& url,
                                  const std::wstring& body) {
    return SendJsonRequest(method, url, body, stop);
  };
}

Downloader RealDownloader(std::stop_token stop) {
  return [stop = std::move(stop)](const std::wstring& url, const std::wstring& targetPath) {
    return DownloadFile(url, targetPath, stop);
  };
}

}  // namespace service
