#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <vector>

#include "platform/mutex.h"
#include "tunnel/driver/windivert.h"
#include "tunnel/packets/packet.h"

namespace tunnel {

// Whether all checksums of the packet are correct: the IPv4 header's, and TCP's, UDP's or ICMP's.
// `packet` must end with its total length. A UDP checksum of 0 is wrong here: the driver always
// writes one.
bool HasCorrectChecksums(const Packet& packet);

// A packet driver behind the real function table: Receive returns scripted packets, sent packets
// are recorded, checksums are computed (a plain RFC 1071 implementation that shares no code with
// the program), and any call can be made to fail.
//
// One per program at a time, because the driver's functions have no context argument. It must
// outlive every WinDivertApi made by it.
//
// Threads: any.
class FakeDriver {
 public:
  struct OpenCall {
    std::string filter;
    int layer = 0;
    std::int16_t priority = 0;
    std::uint64_t flags = 0;
    std::size_t openBefore = 0;  // handles that were open then
  };
  struct Sent {
    Packet packet;
    WinDivertAddress address;
  };
  enum class Call { Open, Receive, Send, Checksums };
  enum class OpenFailure { InvalidHandle, NullHandle };

  FakeDriver();
  ~FakeDriver();
  FakeDriver(const FakeDriver&) = delete;
  FakeDriver& operator=(const FakeDriver&) = delete;

  // A loaded library, counted by LoadedLibraries() as long as the result exists.
  std::unique_ptr<WinDivertApi> Api();

  // Queues a packet for the capturing handle.
  void Capture(Packet packet, const WinDivertAddress& address) EXCLUDES(lock_);

  // Makes `count` calls of that kind fail, starting with the `nth` from now (1 = the next).
  void FailNth(Call call, int nth, int count = 1) EXCLUDES(lock_);
  void SetOpenFailure(OpenFailure failure) EXCLUDES(lock_);
  // The system's code for a failing open; initially 0.
  void SetOpenError(std::uint32_t code) EXCLUDES(lock_);

  // Makes the checksum function read behind each packet, as the real one does after a TCP header
  // with a wrong length. The AddressSanitizer then aborts on buffers without those bytes.
  void ReadBehindPackets() { readsBehind_ = true; }

  // Waits until `count` packets in total have been sent; false after ten seconds.
  [[nodiscard]] bool WaitForSent(std::size_t count) EXCLUDES(lock_);
  // Waits until `count` receives in total have started or failed; false after ten seconds.
  [[nodiscard]] bool WaitForReceives(std::size_t count) EXCLUDES(lock_);

  [[nodiscard]] std::vector<OpenCall> Opened() const EXCLUDES(lock_);
  [[nodiscard]] std::vector<Sent> SentPackets() const EXCLUDES(lock_);
  [[nodiscard]] std::size_t Receives() const EXCLUDES(lock_);
  [[nodiscard]] std::size_t OpenHandles() const EXCLUDES(lock_);
  [[nodiscard]] int LoadedLibraries() const { return loadedLibraries_; }
  // Descriptions of illegal calls: sending on a closed or capturing handle, closing twice,
  // checksums of an invalid packet, calls after the library was freed.
  [[nodiscard]] std::vector<std::string> Misuses() const EXCLUDES(lock_);

 private:
  struct Handle {
    bool isOpen = true;
    bool isSendOnly = false;
  };
  struct Countdown {
    int untilFailure = 0;  // 0 = none due
    int failures = 0;      // that follow
  };

  static WinDivertHandle Open(const char* filter, int layer, std::int16_t priority,
                              std::uint64_t flags);
  static int Receive(WinDivertHandle handle, void* packet, std::uint32_t lengthBytes,
                     std::uint32_t* receivedBytes, WinDivertAddress* address);
  static int Send(WinDivertHandle handle, const void* packet, std::uint32_t lengthBytes,
                  std::uint32_t* sentBytes, const WinDivertAddress* address);
  static int CalcChecksums(void* packet, std::uint32_t lengthBytes, WinDivertAddress* address,
                           std::uint64_t flags);
  static int Close(WinDivertHandle handle);
  static std::uint32_t LastError();

  std::size_t CountOpen() const REQUIRES(lock_);
  bool IsFailureDue(Call call) REQUIRES(lock_);
  Handle* FindHandle(WinDivertHandle handle) REQUIRES(lock_);
  void Misuse(std::string what) REQUIRES(lock_);

  mutable platform::Mutex lock_;
  platform::Condition changed_;
  std::deque<Handle> handles_ GUARDED_BY(lock_);  // never shrinks: an address names one handle
  std::deque<Sent> scripted_ GUARDED_BY(lock_);
  std::vector<OpenCall> opened_ GUARDED_BY(lock_);
  std::vector<Sent> sent_ GUARDED_BY(lock_);
  std::vector<std::string> misuses_ GUARDED_BY(lock_);
  Countdown countdowns_[4] GUARDED_BY(lock_);
  OpenFailure openFailure_ GUARDED_BY(lock_) = OpenFailure::InvalidHandle;
  std::uint32_t openError_ GUARDED_BY(lock_) = 0;
  std::atomic<std::uint32_t> lastError_{0};
  std::size_t receives_ GUARDED_BY(lock_) = 0;
  std::atomic<int> loadedLibraries_{0};
  std::atomic<bool> readsBehind_{false};
};

}  // namespace tunnel
