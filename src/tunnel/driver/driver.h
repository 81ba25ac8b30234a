#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>

#include "platform/mutex.h"
#include "tunnel/driver/windivert.h"

namespace tunnel {

// "WinDivert checksum recalculation failed."
class ChecksumError : public std::runtime_error {
 public:
  ChecksumError() : std::runtime_error("WinDivert checksum recalculation failed.") {}
};

// The packet driver: the loaded library, the capturing handle and the injecting handle. Owns all
// three; no other code closes the handles.
//
// Threads: any; Load() and Unload() only while no thread of the tunnel runs. No lock is held during
//          a call into the driver, so neither direction blocks the other. A close waits for calls
//          in progress: for injections before it closes their handle, for receives afterwards,
//          because only the close wakes them. This is how the capture thread ends.
// Errors:  std::runtime_error with the texts below; opening throws DriverError, which adds the
//          system's explanation.
class Driver {
 public:
  Driver() = default;
  ~Driver();
  Driver(const Driver&) = delete;
  Driver& operator=(const Driver&) = delete;

  // Replaces the library; the previous one is freed.
  void Load(std::unique_ptr<WinDivertApi> api) EXCLUDES(driverLock_);

  // Opens the capturing handle for `filter`, priority -300. Throws
  // "WinDivertOpen failed for filter: " + filter.
  void OpenCapture(const std::wstring& filter) EXCLUDES(driverLock_);
  // Switches to another filter. The new handle opens before the old one closes, so that no packet
  // matched by both escapes; the driver offers packets waiting in the old handle to the new one.
  // Throws as OpenCapture, changing nothing. False if no capturing handle is open.
  bool ReplaceCapture(const std::wstring& filter) EXCLUDES(driverLock_);
  // Opens the injecting handle: filter "false", priority -301, below the capturing handle, so that
  // injected packets are not captured again. Throws "WinDivertOpen failed for filter: false".
  void OpenInject() EXCLUDES(driverLock_);

  // Whether the library is loaded and the injecting handle open.
  [[nodiscard]] bool CanInject() const noexcept { return canInject_; }

  // Waits for one packet and returns its length in bytes, at most the buffer's. Empty if the driver
  // fails or the capturing handle is or becomes closed.
  std::optional<std::size_t> Receive(std::span<std::byte> buffer, WinDivertAddress& address)
      EXCLUDES(driverLock_);

  // Passes the packet to the network stack. Throws "WinDivertSend failed.", also if the handle is
  // not open.
  void Inject(std::span<const std::byte> packet, const WinDivertAddress& address)
      EXCLUDES(driverLock_);

  // Writes the packet's checksums, IPv4 and above. The library may read kReadableBehindPacket bytes
  // behind the packet. Throws ChecksumError for a first fragment, whose checksum cannot be
  // computed, and if the library is not loaded.
  void RecalculateChecksums(std::span<std::byte> packet) const;

  // Closes the open handles and waits for every other close in progress.
  void CloseHandles() noexcept EXCLUDES(driverLock_);

  // Closes the handles and frees the library.
  void Unload() noexcept EXCLUDES(driverLock_);

 private:
  // An open handle and the number of calls inside it.
  struct Gate {
    WinDivertHandle handle = InvalidDriverHandle();
    std::size_t calls = 0;
  };
  using GatePointer = std::shared_ptr<Gate>;

  [[nodiscard]] GatePointer Open(const std::wstring& filter, std::int16_t priority,
                                 std::uint64_t flags) const;
  GatePointer Enter(const GatePointer& gate) REQUIRES(driverLock_);
  void Leave(Gate& gate) noexcept EXCLUDES(driverLock_);
  void CloseCapture(const GatePointer& gate) noexcept EXCLUDES(driverLock_);
  void CloseInject(const GatePointer& gate) noexcept EXCLUDES(driverLock_);
  void BeginClosing() noexcept EXCLUDES(driverLock_);
  void EndClosing() noexcept EXCLUDES(driverLock_);

  std::unique_ptr<WinDivertApi> api_;            // changes only while no thread of the tunnel runs
  mutable platform::Mutex driverLock_;           // innermost: nothing else is locked under it
  platform::Condition left_;                     // a call or a close has ended
  GatePointer capture_ GUARDED_BY(driverLock_);  // null if closed
  GatePointer inject_ GUARDED_BY(driverLock_);
  std::atomic<bool> canInject_{false};               // changes together with inject_
  std::size_t closing_ GUARDED_BY(driverLock_) = 0;  // closes in progress
};

}  // namespace tunnel
