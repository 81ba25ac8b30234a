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

// The packet driver as the tunnel holds it: the loaded library, the handle that captures and the
// handle that injects. It owns all three and is the only place that closes the handles.
//
// Threads: every function may be called from any thread. Load() and Unload() only while no thread
// of
//          the tunnel runs. No lock is held over a call into the driver, so that neither direction
//          waits for the other. A close waits for the calls inside: for injections before it closes
//          their handle, for receives after it, as only the close wakes them; that is how the
//          capture thread ends.
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
  [[nodiscard]] bool CanInject() const noexcept { return canInject_; }

  // Waits for one packet; its length in bytes, at most the buffer's. Nothing when the driver
  // reports a failure, or when the capturing handle is closed, before or meanwhile.
  std::optional<std::size_t> Receive(std::span<std::byte> buffer, WinDivertAddress& address)
      EXCLUDES(driverLock_);

  // Gives the packet to the network stack. Throws "WinDivertSend failed.", also when the handle is
  // not open.
  void Inject(std::span<const std::byte> packet, const WinDivertAddress& address)
      EXCLUDES(driverLock_);

  // Writes the packet's checksums, IPv4 and above. The library may read kReadableBehindPacket bytes
  // behind the packet. Throws ChecksumError: for the first fragment of a packet of ICMP, TCP or
  // UDP, whose checksum cannot be known, and when the library is not loaded.
  void RecalculateChecksums(std::span<std::byte> packet) const;

  // Closes both handles, as far as they are open, and waits for every other close under way.
  void CloseHandles() noexcept EXCLUDES(driverLock_);

  // Closes what is open and frees the library.
  void Unload() noexcept EXCLUDES(driverLock_);

 private:
  // An open handle and how many calls are inside it.
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
  GatePointer capture_ GUARDED_BY(driverLock_);  // null: closed
  GatePointer inject_ GUARDED_BY(driverLock_);
  std::atomic<bool> canInject_{false};               // changes together with inject_
  std::size_t closing_ GUARDED_BY(driverLock_) = 0;  // closes under way
};

}  // namespace tunnel
