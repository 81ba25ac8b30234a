#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

#include "platform/handles_win.h"

namespace service {

// One HTTP request and its reply over a session of its own.
//
// Threads: one caller; nothing is shared between exchanges, so any number may run at once.
// Owns:    the request, connection and session handles, closed in that order.
// Errors:  every member throws std::runtime_error "<function>: <system text>" when its call fails.
class HttpExchange {
 public:
  // Makes the request ready; nothing is sent yet. `receiveLimit` bounds each wait for the reply;
  // resolving and connecting may take 10 s each, sending 15 s.
  HttpExchange(const std::wstring& method, const std::wstring& url,
               std::chrono::milliseconds receiveLimit);

  // Sends `body` as UTF-8 JSON (an empty one without data and header) and waits for the reply's
  // headers. A failure of either bears the name WinHttpReceiveResponse.
  void Run(const std::string& body);

  // After Run(). 0 when the system cannot tell the status.
  [[nodiscard]] std::uint32_t Status() const;
  // The length that the reply names, if it names one.
  [[nodiscard]] std::optional<std::uint64_t> ContentLengthBytes() const;
  // The next bytes of the body, as many as have arrived; empty at its end.
  std::string ReadChunk();

 private:
  platform::HttpHandle session_;
  platform::HttpHandle connection_;
  platform::HttpHandle request_;
};

}  // namespace service
