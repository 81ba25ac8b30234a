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

// Whether every checksum that the packet carries is right: the IPv4 header's, and TCP's, UDP's or
// ICMP's over `packet`, which is as long as its IP header says. A UDP checksum of 0 is wrong here:
// the driver always writes one.
bool HasCorrectChecksums(const Packet& packet);

// Stands in for the packet driver behind its own function table: scripted packets come out of
// Receive, what is sent is recorded, checksums are really computed (by the plainest reading of RFC
// 1071, sharing nothing with the program), and any call can be made to fail.
//
// One at a time in a program, as the driver's functions have no context of their own. It must
// outlive every WinDivertApi it gave.
//
// Threads: all functions may be called from any thread.
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

  // A loaded library; while the result lives, LoadedLibraries() counts it.
  std::unique_ptr<WinDivertApi> Api();

  // What a capturing handle receives next, in order.
  void Capture(Packet packet, const WinDivertAddress& address) EXCLUDES(lock_);

  // Makes the `nth` call of that kind from now fail (1 = the next), and those that follow it,
  // `count` in all.
  void FailNth(Call call, int nth, int count = 1) EXCLUDES(lock_);
  void SetOpenFailure(OpenFailure failure) EXCLUDES(lock_);
  // The system's code for a failing open; 0 at first.
  void SetOpenError(std::uint32_t code) EXCLUDES(lock_);

  // Has the checksum function read behind each packet, as the real one does past a TCP header whose
  // length is wrong. Under the AddressSanitizer a buffer that ends there ends the test.
  void ReadBehindPackets() { readsBehind_ = true; }

  // Waits until that many packets were sent altogether; false after ten seconds.
  [[nodiscard]] bool WaitForSent(std::size_t count) EXCLUDES(lock_);
  // Waits until that many receives have begun or failed altogether; false after ten seconds.
  [[nodiscard]] bool WaitForReceives(std::size_t count) EXCLUDES(lock_);

  [[nodiscard]] std::vector<OpenCall> Opened() const EXCLUDES(lock_);
  [[nodiscard]] std::vector<Sent> SentPackets() const EXCLUDES(lock_);
  [[nodiscard]] std::size_t Receives() const EXCLUDES(lock_);
  [[nodiscard]] std::size_t OpenHandles() const EXCLUDES(lock_);
  [[nodiscard]] int LoadedLibraries() const { return loadedLibraries_; }
  // What no user of the driver may do, in words: sending on a handle that is closed or does not
  // send, closing twice, checksums of what is no packet, going on after the library is freed.
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
