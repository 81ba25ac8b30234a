#pragma once

#include <cstdint>
#include <string>

namespace driver {

// What the lab tells the stand-in through the process' environment; read at each Open.
struct Environment {
  std::uint16_t port = 7002;      // LAB_WINDIVERT_PORT: own UDP port
  std::uint16_t peerPort = 7001;  // LAB_WINDIVERT_PEER: the TUN bridge's
  // Faults; 0 = none. The n-th call since the library was loaded fails, once.
  std::uint32_t openError = 0;     // LAB_WINDIVERT_OPEN_ERROR: error code of Open
  std::uint64_t failOpen = 0;      // LAB_WINDIVERT_FAIL_OPEN: only this Open fails
  std::uint64_t failRecv = 0;      // LAB_WINDIVERT_FAIL_RECV
  std::uint64_t failSend = 0;      // LAB_WINDIVERT_FAIL_SEND
  std::uint64_t failChecksum = 0;  // LAB_WINDIVERT_FAIL_CHECKSUM
  std::wstring logFile;            // LAB_WINDIVERT_LOG: path of this machine or of Windows
};

Environment ReadEnvironment();

// Appends one line to `file`; does nothing without a file, and ignores failures.
void AppendLog(const std::wstring& file, const std::string& line);

}  // namespace driver
