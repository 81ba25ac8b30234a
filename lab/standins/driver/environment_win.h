#pragma once

#include <atomic>
#include <cstdint>
#include <string>

namespace driver {

// The lab's settings in the process environment; read at each Open.
struct Environment {
  std::uint16_t port = 7002;      // LAB_WINDIVERT_PORT: own UDP port
  std::uint16_t peerPort = 7001;  // LAB_WINDIVERT_PEER: the TUN bridge's
  // Faults; 0 = none. The n-th call since the library was loaded fails, once.
  std::uint32_t openError = 0;     // LAB_WINDIVERT_OPEN_ERROR: error code of Open
  std::uint64_t failOpen = 0;      // LAB_WINDIVERT_FAIL_OPEN: only this Open fails
  std::uint64_t failRecv = 0;      // LAB_WINDIVERT_FAIL_RECV
  std::uint64_t failSend = 0;      // LAB_WINDIVERT_FAIL_SEND
  std::uint64_t failChecksum = 0;  // LAB_WINDIVERT_FAIL_CHECKSUM
  std::wstring logFile;            // LAB_WINDIVERT_LOG: a Windows or a Linux path
};

Environment ReadEnvironment();

// Makes the n-th call fail, once. Any thread.
struct Fault {
  std::atomic<std::uint64_t> at{0};
  std::atomic<std::uint64_t> calls{0};
  bool IsNow() noexcept { return ++calls == at; }
  [[nodiscard]] std::uint64_t Count() const noexcept { return at != 0 && calls >= at ? 1 : 0; }
};

// Appends one line to `file` unless its name is empty. Failures are ignored.
void AppendLog(const std::wstring& file, const std::string& line);

}  // namespace driver
