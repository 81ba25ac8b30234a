#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>

#include "platform/mutex.h"
#include "tunnel/windivert_api.h"

namespace tunnel {

// The packet driver as the tunnel holds it: the loaded library, the handle that captures and the
// handle that injects. It owns all three and is the only place that closes the handles.
//
// Threads: every function may be called from any thread. Closing waits for a running Inject(), and
//          none uses the handle afterwards. A Receive() waiting in the driver is woken by the
//          close, which is how the capture thread ends. Load() and Unload() only while no thread of
//          the tunnel runs: a Receive() may still be inside the library.
// Errors:  std::runtime_error with the texts given below; opening throws DriverError, which adds
//          what the system says.
class Driver {
 public:
  Driver() = default;
  ~Driver();
  Driver(const Driver&) = delete;
  Driver& operator=(const Driver&) = delete;

  // Takes the library in place of the one held before, which is freed.
  void Load(std::unique_ptr<WinDivertApi> api) EXCLUDES(driverLock_);

  // Opens the handle that captures what `filter` matches, priority -300. Throws
  // "WinDivertOpen failed for filter: " + filter.
  void OpenCapture(const std::wstring& filter) EXCLUDES(driverLock_);
  // Captures by another filter from now on. The new handle is open before the old one closes, so
  // that no packet which both want gets away; what waits in the old one is offered to the new one
  // by the driver. Throws as OpenCapture, and then all stays as it was. False, with nothing done,
  // when no capturing handle is open.
  bool ReplaceCapture(const std::wstring& filter) EXCLUDES(driverLock_);
  // Opens the handle that only injects: filter "false", priority -301, below the capture handle, so
  // that what is injected is not captured again. Throws "WinDivertOpen failed for filter: false".
  void OpenInject() EXCLUDES(driverLock_);

  // Whether the library is loaded and the injecting handle open.
  [[nodiscard]] bool CanInject() const EXCLUDES(driverLock_);

  // Waits for one packet; its length in bytes, at most the buffer's. Nothing when the driver
  // reports a failure, or when the capturing handle is closed, before or meanwhile.
  std::optional<std::size_t> Receive(std::span<std::byte> buffer, WinDivertAddress& address)
      EXCLUDES(driverLock_);

  // Gives the packet to the network stack. Throws "WinDivertSend failed.", also when the handle is
  // not open.
  void Inject(std::span<const std::byte> packet, const WinDivertAddress& address)
      EXCLUDES(driverLock_);

  // Writes the packet's checksums, IPv4 and above. Throws "WinDivert checksum recalculation
  // failed.", also when the library is not loaded.
  void RecalculateChecksums(std::span<std::byte> packet) EXCLUDES(driverLock_);

  // Closes both handles, as far as they are open.
  void CloseHandles() noexcept EXCLUDES(driverLock_);

  // Closes what is open and frees the library.
  void Unload() noexcept EXCLUDES(driverLock_);

 private:
  WinDivertHandle Open(const std::wstring& filter, std::int16_t priority, std::uint64_t flags)
      REQUIRES(driverLock_);
  void CloseHandle(WinDivertHandle& handle) noexcept REQUIRES(driverLock_);

  mutable platform::Mutex driverLock_;  // innermost: nothing else is locked under it
  std::unique_ptr<WinDivertApi> api_ GUARDED_BY(driverLock_);
  WinDivertHandle captureHandle_ GUARDED_BY(driverLock_) = InvalidDriverHandle();
  WinDivertHandle injectHandle_ GUARDED_BY(driverLock_) = InvalidDriverHandle();
};

}  // namespace tunnel
