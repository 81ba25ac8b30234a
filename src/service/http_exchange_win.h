#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <stop_token>
#include <string>

#include "platform/handles_win.h"

namespace service {

class CallWait;
struct HttpCall;

// How long an exchange waits for its request to be sent, resolving and connecting included, and for
// each piece of the reply to it: of a request, of a download.
inline constexpr std::chrono::seconds kSendLimit{35};
inline constexpr std::chrono::seconds kReplyLimit{30};
inline constexpr std::chrono::seconds kDownloadLimit{120};

// The session of one exchange, asynchronous. Resolving and connecting may take 10 s each, sending
// 15 s, each wait for the reply `receiveLimit`. Throws as HttpExchange does.
platform::HttpHandle OpenHttpSession(std::chrono::milliseconds receiveLimit);

// One HTTP request and its reply over a session of its own.
//
// The calls are asynchronous, so that a requested stop ends each wait at once; the synchronous ones
// can be ended by nobody. It also bounds the waits where the system does not.
//
// Threads: one caller; nothing is shared between exchanges, so any number may run at once.
// Owns:    the request, connection and session handles, closed in that order. What a call under way
//          reads or writes belongs to the request handle and lives until the system lets go of it.
// Errors:  every member throws std::runtime_error "<function>: <system text>" when its call fails
//          or exceeds its limit, "The request was cancelled." after a stop. Both are final.
class HttpExchange {
 public:
  // Makes the request ready; nothing is sent yet.
  HttpExchange(const std::wstring& method, const std::wstring& url,
               std::chrono::milliseconds receiveLimit, std::stop_token stop = {});

  // Sends `body` as UTF-8 JSON (an empty one without data and header) and waits for the reply's
  // headers. A failure of either bears the name WinHttpReceiveResponse.
  void Run(std::string body);

  // After Run(). 0 when the system cannot tell the status.
  [[nodiscard]] std::uint32_t Status() const;
  // The length that the reply names, if it names one.
  [[nodiscard]] std::optional<std::uint64_t> ContentLengthBytes() const;
  // The moment at which the service says that it replied, as text (RFC 9110, section 6.6.1); empty
  // when it does not say so.
  [[nodiscard]] std::wstring Date() const;
  // The next bytes of the body, as many as have arrived; empty at its end.
  std::string ReadChunk();

 private:
  template <typename Call>
  void Begin(const char* function, const Call& call);
  std::uint32_t Await(const char* function, CallWait& wait, std::chrono::milliseconds limit);

  const std::chrono::milliseconds receiveLimit_;
  const std::stop_token stop_;
  const std::shared_ptr<HttpCall> call_;
  platform::HttpHandle session_;
  platform::HttpHandle connection_;
  platform::HttpHandle request_;
  std::uintptr_t context_ = 0;  // the request handle's
};

}  // namespace service
