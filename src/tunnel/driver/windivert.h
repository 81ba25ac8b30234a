#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>

namespace tunnel {

// The part of the packet driver's published interface (WinDivert 2.x) used by the tunnel.

// WINDIVERT_ADDRESS: 80 bytes, the same in every 2.x. Flags is one little-endian word: bits 0-7
// layer, 8-15 event, 16 sniffed, 17 outbound, 18 loopback, 19 impostor, 20 IPv6, 21-23 valid
// IP, TCP and UDP checksums.
struct WinDivertAddress {
  std::int64_t timestamp = 0;  // QueryPerformanceCounter ticks
  std::uint32_t flags = 0;
  std::uint32_t reserved = 0;
  std::uint32_t interfaceIndex = 0;     // IfIdx
  std::uint32_t subInterfaceIndex = 0;  // SubIfIdx
  std::uint8_t rest[56] = {};
};
static_assert(sizeof(WinDivertAddress) == 80);
static_assert(offsetof(WinDivertAddress, flags) == 8);
static_assert(offsetof(WinDivertAddress, interfaceIndex) == 16);
static_assert(offsetof(WinDivertAddress, subInterfaceIndex) == 20);

inline constexpr int kLayerNetwork = 0;
inline constexpr std::uint64_t kFlagSendOnly = 8;

using WinDivertHandle = void*;
// INVALID_HANDLE_VALUE; WinDivertOpen may also return null on failure.
inline WinDivertHandle InvalidDriverHandle() noexcept {
  // NOLINTNEXTLINE(performance-no-int-to-ptr): the value is the interface's own.
  return reinterpret_cast<WinDivertHandle>(static_cast<std::intptr_t>(-1));
}
inline bool IsValidDriverHandle(WinDivertHandle handle) noexcept {
  return handle != nullptr && handle != InvalidDriverHandle();
}

// The library and the five functions called by the tunnel. Destroying it unloads the library; close
// all handles first. int results are Windows' BOOL.
//
// Threads: the functions may run on one handle from several threads, each with its own buffers.
struct WinDivertApi {
  WinDivertHandle (*open)(const char* filter, int layer, std::int16_t priority,
                          std::uint64_t flags) = nullptr;
  int (*recv)(WinDivertHandle handle, void* packet, std::uint32_t lengthBytes,
              std::uint32_t* receivedBytes, WinDivertAddress* address) = nullptr;
  int (*send)(WinDivertHandle handle, const void* packet, std::uint32_t lengthBytes,
              std::uint32_t* sentBytes, const WinDivertAddress* address) = nullptr;
  int (*calcChecksums)(void* packet, std::uint32_t lengthBytes, WinDivertAddress* address,
                       std::uint64_t flags) = nullptr;
  int (*close)(WinDivertHandle handle) = nullptr;
  // The system's error code for the calling thread's last call.
  std::uint32_t (*lastError)() = nullptr;
  // Unloads the library; last, so that it is destroyed first.
  std::shared_ptr<void> module;
};

// Loads WinDivert.dll by its bare name (the runtime folder is on the library search path) and binds
// the five functions. Throws DriverError: "WinDivert.dll was not found in the runtime cache.", with
// the system's code, or "WinDivert.dll is missing required exports.". Windows only.
std::unique_ptr<WinDivertApi> LoadWinDivert();

// The packet driver could not be loaded or opened. what() is a fixed text, followed, if the system
// gave a code, by CRLF and a line with that code, its meaning and its cure.
class DriverError : public std::runtime_error {
 public:
  // `code`: from GetLastError(), or 0 for none.
  DriverError(const std::string& text, std::uint32_t code);
  [[nodiscard]] std::uint32_t Code() const noexcept { return code_; }

 private:
  std::uint32_t code_;
};

// The line for a code other than 0; uses the system's text for unknown codes.
std::wstring DescribeDriverError(std::uint32_t code);

// Whether the code points to a driver service left by another program, so that removing the service
// and trying again may help.
bool IsDriverLeftover(std::uint32_t code) noexcept;

// As platform::RunHidden: starts a command and waits for its end up to `wait`.
using HiddenRunner =
    std::function<bool(const std::wstring& commandLine, std::chrono::milliseconds wait)>;

// Stops and deletes the packet driver's kernel service, under the name of version 2.x and under
// that of repackaged builds. Ignores failures. Any thread.
void RemoveDriverService(const HiddenRunner& runHidden) noexcept;

}  // namespace tunnel
