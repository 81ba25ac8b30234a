#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <stop_token>
#include <string>

#include "platform/handles_win.h"

namespace service {

class CallWait;
struct HttpCall;

// Time limits: for sending a request, including resolving and connecting, and for each piece of the
// reply to a request or download.
inline constexpr std::chrono::seconds kSendLimit{35};
inline constexpr std::chrono::seconds kReplyLimit{30};
inline constexpr std::chrono::seconds kDownloadLimit{120};

// Opens the asynchronous session of one exchange. Throws as HttpExchange does.
platform::HttpHandle OpenHttpSession(std::chrono::milliseconds receiveLimit);

// One HTTP request and its reply, over a session of its own.
//
// The calls are asynchronous because a synchronous one cannot be cancelled. A requested stop ends
// each wait at once. The waits are bounded here as well, for systems that do not bound them.
//
// Threads: one caller; exchanges share nothing, so any number may run at once.
// Owns:    the request, connection and session handles, closed in that order. The buffers of a
//          pending call belong to the request handle and live until the system releases them.
// Errors:  every member throws std::runtime_error "<function>: <system text>" when its call fails
//          or exceeds its limit, and "The request was cancelled." after a stop. Both are final.
class HttpExchange {
 public:
  // Prepares the request; nothing is sent yet.
  HttpExchange(const std::wstring& method, const std::wstring& url,
               std::chrono::milliseconds receiveLimit, std::stop_token stop = {});

  // Sends `body` as UTF-8 JSON (no data and no header when empty) and waits for the reply's
  // headers. Both failures are reported as WinHttpReceiveResponse.
  void Run(std::string body);

  // After Run(). 0 when the system does not know the status.
  [[nodiscard]] std::uint32_t Status() const;
  // The reply's Content-Length, if it has one.
  [[nodiscard]] std::optional<std::uint64_t> ContentLengthBytes() const;
  // The text of the reply's Date header (RFC 9110, section 6.6.1); empty when it has none.
  [[nodiscard]] std::wstring Date() const;
  // The next bytes of the body, as many as have arrived; empty at the end.
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

// Writes `bytes` with one call and returns how many of them the file took.
using FileWriter = std::function<std::size_t(HANDLE file, const std::string& bytes)>;

// The system's writer.
std::size_t WriteToFile(HANDLE file, const std::string& bytes);

// DownloadFile() with a writer of the caller's, so that tests can fill the disk.
bool DownloadFileWith(const FileWriter& write, const std::wstring& url,
                      const std::wstring& targetPath, const std::stop_token& stop);

}  // namespace service
