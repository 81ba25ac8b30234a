#include "tunnel/driver/driver.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

#include "text/utf8.h"
#include "tunnel/driver/windivert.h"

namespace tunnel {
namespace {

// The driver shows an injected packet only to handles of lower priority than the sender's.
constexpr std::int16_t kCapturePriority = -300;
constexpr std::int16_t kInjectPriority = -301;

}  // namespace

Driver::~Driver() {
  Unload();
}

void Driver::Load(std::unique_ptr<WinDivertApi> api) {
  Unload();
  api_ = std::move(api);
}

void Driver::OpenCapture(const std::wstring& filter) {
  GatePointer gate;
  {
    const platform::MutexLock lock(driverLock_);
    gate.swap(capture_);
  }
  // Hidden first, so that no receive enters the handle that closes.
  CloseCapture(gate);
  gate = Open(filter, kCapturePriority, 0);
  const platform::MutexLock lock(driverLock_);
  capture_ = gate;
}

bool Driver::ReplaceCapture(const std::wstring& filter) {
  GatePointer old;
  {
    const platform::MutexLock lock(driverLock_);
    old = capture_;
  }
  if (old == nullptr) return false;
  // If this throws, the old filter stays in force.
  GatePointer gate = Open(filter, kCapturePriority, 0);
  bool isReplaced = false;
  {
    const platform::MutexLock lock(driverLock_);
    // If the old handle was closed in the meantime, the new one must not stay open either.
    isReplaced = capture_ == old;
    if (isReplaced) capture_.swap(gate);
  }
  CloseCapture(gate);
  return isReplaced;
}

void Driver::OpenInject() {
  GatePointer gate;
  {
    const platform::MutexLock lock(driverLock_);
    gate.swap(inject_);
    canInject_ = false;
  }
  CloseInject(gate);
  // Captures nothing, and therefore costs other packets nothing.
  gate = Open(L"false", kInjectPriority, kFlagSendOnly);
  const platform::MutexLock lock(driverLock_);
  inject_ = gate;
  canInject_ = true;
}

Driver::GatePointer Driver::Open(const std::wstring& filter, std::int16_t priority,
                                 std::uint64_t flags) const {
  const std::string narrow = text::ToUtf8(filter);
  auto gate = std::make_shared<Gate>();
  std::uint32_t error = 0;
  if (api_) {
    gate->handle = api_->open(narrow.c_str(), kLayerNetwork, priority, flags);
    // At once: any later call may change the code.
    error = api_->lastError();
    if (IsValidDriverHandle(gate->handle)) return gate;
  }
  throw DriverError("WinDivertOpen failed for filter: " + narrow, error);
}

Driver::GatePointer Driver::Enter(const GatePointer& gate) {
  if (gate != nullptr) ++gate->calls;
  return gate;
}

void Driver::Leave(Gate& gate) noexcept {
  const platform::MutexLock lock(driverLock_);
  --gate.calls;
  // Only a close waits for this; packets normally pass without waking anyone.
  if (closing_ > 0) left_.NotifyAll();
}

std::optional<std::size_t> Driver::Receive(std::span<std::byte> buffer, WinDivertAddress& address) {
  GatePointer gate;
  {
    const platform::MutexLock lock(driverLock_);
    gate = Enter(capture_);
  }
  if (gate == nullptr) return std::nullopt;
  std::uint32_t receivedBytes = 0;
  const auto sizeBytes = static_cast<std::uint32_t>(buffer.size());
  const int received = api_->recv(gate->handle, buffer.data(), sizeBytes, &receivedBytes, &address);
  Leave(*gate);
  if (received == 0) return std::nullopt;
  // A length that a faulty driver reports must not lead past the buffer.
  return std::min<std::size_t>(receivedBytes, buffer.size());
}

void Driver::Inject(std::span<const std::byte> packet, const WinDivertAddress& address) {
  GatePointer gate;
  {
    const platform::MutexLock lock(driverLock_);
    gate = Enter(inject_);
  }
  int sent = 0;
  if (gate != nullptr) {
    std::uint32_t sentBytes = 0;
    sent = api_->send(gate->handle, packet.data(), static_cast<std::uint32_t>(packet.size()),
                      &sentBytes, &address);
    Leave(*gate);
  }
  if (sent == 0) throw std::runtime_error("WinDivertSend failed.");
}

void Driver::RecalculateChecksums(std::span<std::byte> packet) const {
  // Flags 0 mean all sums. The driver itself would complete IP, TCP and UDP sums of an injected
  // packet, but never ICMP.
  if (!api_ ||
      !api_->calcChecksums(packet.data(), static_cast<std::uint32_t>(packet.size()), nullptr, 0)) {
    throw ChecksumError();
  }
}

// Closes first, because only that wakes a receive. Then waits, so that no handle opened later can
// get the number that a late receive still uses.
void Driver::CloseCapture(const GatePointer& gate) noexcept {
  if (gate == nullptr) return;
  BeginClosing();
  api_->close(gate->handle);
  {
    const platform::MutexLock lock(driverLock_);
    while (gate->calls > 0) left_.Wait(driverLock_);
  }
  EndClosing();
}

// Waits first, then closes: an injection ends by itself, and must not see its handle closed.
void Driver::CloseInject(const GatePointer& gate) noexcept {
  if (gate == nullptr) return;
  BeginClosing();
  {
    const platform::MutexLock lock(driverLock_);
    while (gate->calls > 0) left_.Wait(driverLock_);
  }
  api_->close(gate->handle);
  EndClosing();
}

void Driver::BeginClosing() noexcept {
  const platform::MutexLock lock(driverLock_);
  ++closing_;
}

void Driver::EndClosing() noexcept {
  {
    const platform::MutexLock lock(driverLock_);
    --closing_;
  }
  left_.NotifyAll();
}

void Driver::CloseHandles() noexcept {
  GatePointer capture;
  GatePointer inject;
  // Counted before the handles are hidden: a second caller finds none left and has to wait for this
  // one.
  BeginClosing();
  {
    const platform::MutexLock lock(driverLock_);
    capture.swap(capture_);
    inject.swap(inject_);
    canInject_ = false;
  }
  CloseCapture(capture);
  CloseInject(inject);
  EndClosing();
  // Another thread may still be closing; the library must not be unloaded underneath it.
  const platform::MutexLock lock(driverLock_);
  while (closing_ > 0) left_.Wait(driverLock_);
}

void Driver::Unload() noexcept {
  CloseHandles();
  api_.reset();
}

}  // namespace tunnel
