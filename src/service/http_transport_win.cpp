#include <chrono>

#include "service/http_exchange_win.h"
#include "service/http_transport.h"
#include "text/utf8.h"

namespace service {
namespace {

constexpr std::chrono::milliseconds kReplyLimit{30000};

}  // namespace

HttpResponse SendJsonRequest(const std::wstring& method, const std::wstring& url,
                             const std::wstring& body) {
  HttpExchange exchange(method, url, kReplyLimit);
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

}  // namespace service
