#include "tunnel/driver/fake_driver.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <span>
#include <utility>

#include "tunnel/patience.h"
#include "tunnel/relay/test_frames.h"

namespace tunnel {
namespace {

FakeDriver* current = nullptr;

constexpr std::uint64_t kSendOnly = 8;

std::uint32_t WordAt(const std::uint8_t* bytes, std::size_t index) {
  return static_cast<std::uint32_t>(bytes[index] * 256 + bytes[index + 1]);
}

// The one's complement sum of 16-bit words (RFC 1071), started from `sum`; an odd last byte is
// followed by a zero byte.
std::uint32_t AddWords(std::uint32_t sum, const std::uint8_t* bytes, std::size_t count) {
  for (std::size_t index = 0; index + 1 < count; index += 2) sum += WordAt(bytes, index);
  if (count % 2 == 1) sum += bytes[count - 1] * 256U;
  return sum;
}

std::uint16_t Fold(std::uint32_t sum) {
  while (sum > 0xFFFF) sum = sum % 0x10000 + sum / 0x10000;
  return static_cast<std::uint16_t>(sum);
}

// The checksum's offset within the transport header; 0 for a protocol without one.
std::size_t ChecksumOffset(std::uint8_t protocol) {
  if (protocol == 1) return 2;
  if (protocol == 6) return 16;
  return protocol == 17 ? 6 : 0;
}

struct Parts {
  std::size_t headerBytes = 0;
  std::size_t totalBytes = 0;
  std::uint8_t protocol = 0;
};

Parts PartsOf(const std::uint8_t* packet) {
  return {packet[0] % 16 * std::size_t{4}, WordAt(packet, 2), packet[9]};
}

// The folded sum over the transport bytes and, but for ICMP, the pseudo header (RFC 9293, section
// 3.1; RFC 768). 0xFFFF if the existing checksum is correct.
std::uint16_t TransportSum(const std::uint8_t* packet, const Parts& parts) {
  const std::size_t transportBytes = parts.totalBytes - parts.headerBytes;
  std::uint32_t sum = 0;
  if (parts.protocol != 1) {
    sum = AddWords(parts.protocol, packet + 12, 8) + static_cast<std::uint32_t>(transportBytes);
  }
  return Fold(AddWords(sum, packet + parts.headerBytes, transportBytes));
}

void PutWord(std::uint8_t* at, std::uint16_t value) {
  at[0] = static_cast<std::uint8_t>(value / 256);
  at[1] = static_cast<std::uint8_t>(value % 256);
}

bool IsPacket(const std::uint8_t* packet, std::size_t lengthBytes) {
  if (packet == nullptr || lengthBytes < 20 || packet[0] / 16 != 4) return false;
  const Parts parts = PartsOf(packet);
  return parts.headerBytes >= 20 && parts.totalBytes >= parts.headerBytes &&
         parts.totalBytes <= lengthBytes;
}

bool IsFirstFragment(const std::uint8_t* packet) {
  return packet[6] / 32 % 2 == 1 && WordAt(packet, 6) % 0x2000 == 0;
}
bool IsLaterFragment(const std::uint8_t* packet) {
  return WordAt(packet, 6) % 0x2000 != 0;
}

}  // namespace

bool HasCorrectChecksums(const Packet& packet) {
  const auto* bytes = reinterpret_cast<const std::uint8_t*>(packet.data());
  if (!IsPacket(bytes, packet.size())) return false;
  const Parts parts = PartsOf(bytes);
  if (Fold(AddWords(0, bytes, parts.headerBytes)) != 0xFFFF) return false;
  const std::size_t offset = ChecksumOffset(parts.protocol);
  if (offset == 0) return true;
  if (parts.protocol == 17 && WordAt(bytes, parts.headerBytes + offset) == 0) return false;
  return TransportSum(bytes, parts) == 0xFFFF;
}

FakeDriver::FakeDriver() {
  current = this;
}
FakeDriver::~FakeDriver() {
  current = nullptr;
}

std::unique_ptr<WinDivertApi> FakeDriver::Api() {
  auto api = std::make_unique<WinDivertApi>();
  api->open = &FakeDriver::Open;
  api->recv = &FakeDriver::Receive;
  api->send = &FakeDriver::Send;
  api->calcChecksums = &FakeDriver::CalcChecksums;
  api->close = &FakeDriver::Close;
  api->lastError = &FakeDriver::LastError;
  ++loadedLibraries_;
  api->module = std::shared_ptr<void>(this, [](void* self) {
    auto* driver = static_cast<FakeDriver*>(self);
    const platform::MutexLock lock(driver->lock_);
    --driver->loadedLibraries_;
    for (const Handle& handle : driver->handles_) {
      if (handle.isOpen) driver->Misuse("library freed while a handle was open");
    }
  });
  return api;
}

void FakeDriver::Capture(Packet packet, const WinDivertAddress& address) {
  {
    const platform::MutexLock lock(lock_);
    scripted_.push_back({std::move(packet), address});
  }
  changed_.NotifyAll();
}

void FakeDriver::FailNth(Call call, int nth, int count) {
  const platform::MutexLock lock(lock_);
  countdowns_[static_cast<int>(call)] = {nth, count};
}

void FakeDriver::SetOpenFailure(OpenFailure failure) {
  const platform::MutexLock lock(lock_);
  openFailure_ = failure;
}

void FakeDriver::SetOpenError(std::uint32_t code) {
  const platform::MutexLock lock(lock_);
  openError_ = code;
}

bool FakeDriver::WaitForSent(std::size_t count) {
  const auto deadline = std::chrono::steady_clock::now() + kPatience;
  const platform::MutexLock lock(lock_);
  while (sent_.size() < count) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    changed_.WaitFor(lock_, std::chrono::milliseconds(100));
  }
  return true;
}

bool FakeDriver::WaitForReceives(std::size_t count) {
  const auto deadline = std::chrono::steady_clock::now() + kPatience;
  const platform::MutexLock lock(lock_);
  while (receives_ < count) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    changed_.WaitFor(lock_, std::chrono::milliseconds(100));
  }
  return true;
}

std::vector<FakeDriver::OpenCall> FakeDriver::Opened() const {
  const platform::MutexLock lock(lock_);
  return opened_;
}

std::vector<FakeDriver::Sent> FakeDriver::SentPackets() const {
  const platform::MutexLock lock(lock_);
  return sent_;
}

std::size_t FakeDriver::Receives() const {
  const platform::MutexLock lock(lock_);
  return receives_;
}

std::size_t FakeDriver::OpenHandles() const {
  const platform::MutexLock lock(lock_);
  return CountOpen();
}

std::size_t FakeDriver::CountOpen() const {
  return static_cast<std::size_t>(
      std::ranges::count_if(handles_, [](const Handle& handle) { return handle.isOpen; }));
}

std::vector<std::string> FakeDriver::Misuses() const {
  const platform::MutexLock lock(lock_);
  return misuses_;
}

bool FakeDriver::IsFailureDue(Call call) {
  Countdown& countdown = countdowns_[static_cast<int>(call)];
  if (countdown.untilFailure == 0 || --countdown.untilFailure > 0) return false;
  if (--countdown.failures > 0) countdown.untilFailure = 1;
  return true;
}

FakeDriver::Handle* FakeDriver::FindHandle(WinDivertHandle handle) {
  for (Handle& known : handles_) {
    if (&known == handle) return &known;
  }
  return nullptr;
}

void FakeDriver::Misuse(std::string what) {
  misuses_.push_back(std::move(what));
}

WinDivertHandle FakeDriver::Open(const char* filter, int layer, std::int16_t priority,
                                 std::uint64_t flags) {
  FakeDriver& driver = *current;
  const platform::MutexLock lock(driver.lock_);
  driver.opened_.push_back({filter, layer, priority, flags, driver.CountOpen()});
  if (driver.IsFailureDue(Call::Open)) {
    driver.lastError_ = driver.openError_;
    return driver.openFailure_ == OpenFailure::NullHandle ? nullptr : InvalidDriverHandle();
  }
  driver.handles_.push_back({true, (flags & kSendOnly) != 0});
  return &driver.handles_.back();
}

std::uint32_t FakeDriver::LastError() {
  return current->lastError_;
}

int FakeDriver::Receive(WinDivertHandle handle, void* packet, std::uint32_t lengthBytes,
                        std::uint32_t* receivedBytes, WinDivertAddress* address) {
  FakeDriver& driver = *current;
  const platform::MutexLock lock(driver.lock_);
  ++driver.receives_;
  driver.changed_.NotifyAll();
  if (driver.IsFailureDue(Call::Receive)) return 0;
  const Handle* known = driver.FindHandle(handle);
  if (known == nullptr || known->isSendOnly) {
    driver.Misuse("receive on a handle that does not capture");
    return 0;
  }
  // A receive on a handle that has just been closed fails, as with the real driver.
  while (known->isOpen && driver.scripted_.empty()) driver.changed_.Wait(driver.lock_);
  if (!known->isOpen) return 0;
  const Sent captured = std::move(driver.scripted_.front());
  driver.scripted_.pop_front();
  const std::size_t count = std::min<std::size_t>(lengthBytes, captured.packet.size());
  if (count > 0) std::memcpy(packet, captured.packet.data(), count);
  if (count < captured.packet.size()) return 0;  // too large: the packet is lost
  *receivedBytes = static_cast<std::uint32_t>(count);
  *address = captured.address;
  return 1;
}

int FakeDriver::Send(WinDivertHandle handle, const void* packet, std::uint32_t lengthBytes,
                     std::uint32_t* sentBytes, const WinDivertAddress* address) {
  FakeDriver& driver = *current;
  const platform::MutexLock lock(driver.lock_);
  const Handle* known = driver.FindHandle(handle);
  if (known == nullptr || !known->isOpen || !known->isSendOnly) {
    driver.Misuse("send on a handle that is closed or does not send");
    return 0;
  }
  if (driver.IsFailureDue(Call::Send)) return 0;
  const auto* bytes = static_cast<const std::byte*>(packet);
  driver.sent_.push_back({Packet(bytes, bytes + lengthBytes), *address});
  if (sentBytes != nullptr) *sentBytes = lengthBytes;
  driver.changed_.NotifyAll();
  return 1;
}

int FakeDriver::CalcChecksums(void* packet, std::uint32_t lengthBytes, WinDivertAddress* address,
                              std::uint64_t flags) {
  FakeDriver& driver = *current;
  auto* bytes = static_cast<std::uint8_t*>(packet);
  {
    const platform::MutexLock lock(driver.lock_);
    if (flags != 0 || address != nullptr) driver.Misuse("checksums with flags or an address");
    if (driver.IsFailureDue(Call::Checksums)) return 0;
    if (!IsPacket(bytes, lengthBytes)) {
      driver.Misuse("checksums of what is no packet");
      return 0;
    }
  }
  if (driver.readsBehind_) {
    const std::span behind(static_cast<std::byte*>(packet) + lengthBytes, kReadableBehindPacket);
    TouchEach(behind);
  }
  const Parts parts = PartsOf(bytes);
  PutWord(bytes + 10, 0);
  PutWord(bytes + 10, static_cast<std::uint16_t>(~Fold(AddWords(0, bytes, parts.headerBytes))));
  if (IsFirstFragment(bytes)) return 0;  // as the real library answers
  const std::size_t offset = ChecksumOffset(parts.protocol);
  if (offset == 0 || IsLaterFragment(bytes)) return 1;
  if (parts.headerBytes + offset + 2 > parts.totalBytes) return 1;
  std::uint8_t* field = bytes + parts.headerBytes + offset;
  PutWord(field, 0);
  auto sum = static_cast<std::uint16_t>(~TransportSum(bytes, parts));
  if (parts.protocol == 17 && sum == 0) sum = 0xFFFF;
  PutWord(field, sum);
  return 1;
}

int FakeDriver::Close(WinDivertHandle handle) {
  FakeDriver& driver = *current;
  {
    const platform::MutexLock lock(driver.lock_);
    Handle* known = driver.FindHandle(handle);
    if (known == nullptr || !known->isOpen) {
      driver.Misuse("close of a handle that is not open");
      return 0;
    }
    known->isOpen = false;
  }
  driver.changed_.NotifyAll();
  return 1;
}

}  // namespace tunnel
