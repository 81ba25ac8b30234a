#include "tunnel/driver.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

#include "text/utf8.h"
#include "tunnel/driver_error.h"

namespace tunnel {
namespace {

constexpr std::int16_t kCapturePriority = -300;
constexpr std::int16_t kInjectPriority = -301;

}  // namespace

Driver::~Driver() {
  Unload();
}

void Driver::Load(std::unique_ptr<WinDivertApi> api) {
  Unload();
  const platform::MutexLock lock(driverLock_);
  api_ = std::move(api);
}

void Driver::OpenCapture(const std::wstring& filter) {
  const platform::MutexLock lock(driverLock_);
  CloseHandle(captureHandle_);
  captureHandle_ = Open(filter, kCapturePriority, 0);
}

bool Driver::ReplaceCapture(const std::wstring& filter) {
  const platform::MutexLock lock(driverLock_);
  if (!IsValidDriverHandle(captureHandle_)) return false;
  WinDivertHandle old = std::exchange(captureHandle_, Open(filter, kCapturePriority, 0));
  CloseHandle(old);
  return true;
}

void Driver::OpenInject() {
  const platform::MutexLock lock(driverLock_);
  CloseHandle(injectHandle_);
  injectHandle_ = Open(L"false", kInjectPriority, kFlagSendOnly);
}

WinDivertHandle Driver::Open(const std::wstring& filter, std::int16_t priority,
                             std::uint64_t flags) {
  const std::string narrow = text::ToUtf8(filter);
  std::uint32_t error = 0;
  if (api_) {
    const WinDivertHandle handle = api_->open(narrow.c_str(), kLayerNetwork, priority, flags);
    error = api_->lastError();
    if (IsValidDriverHandle(handle)) return handle;
  }
  throw DriverError("WinDivertOpen failed for filter: " + narrow, error);
}

bool Driver::CanInject() const {
  const platform::MutexLock lock(driverLock_);
  return api_ && IsValidDriverHandle(injectHandle_);
}

std::optional<std::size_t> Driver::Receive(std::span<std::byte> buffer, WinDivertAddress& address) {
  WinDivertHandle handle = InvalidDriverHandle();
  decltype(WinDivertApi::recv) recv = nullptr;
  {
    const platform::MutexLock lock(driverLock_);
    if (!api_ || !IsValidDriverHandle(captureHandle_)) return std::nullopt;
    handle = captureHandle_;
    recv = api_->recv;
  }
  // Outside the lock: it waits for a packet, and only closing the handle ends the wait.
  std::uint32_t receivedBytes = 0;
  const auto sizeBytes = static_cast<std::uint32_t>(buffer.size());
  if (!recv(handle, buffer.data(), sizeBytes, &receivedBytes, &address)) return std::nullopt;
  return std::min<std::size_t>(receivedBytes, buffer.size());
}

void Driver::Inject(std::span<const std::byte> packet, const WinDivertAddress& address) {
  // Inside the lock, so that the handle cannot be closed under it. The driver only takes a copy.
  const platform::MutexLock lock(driverLock_);
  std::uint32_t sentBytes = 0;
  if (!api_ || !IsValidDriverHandle(injectHandle_) ||
      !api_->send(injectHandle_, packet.data(), static_cast<std::uint32_t>(packet.size()),
                  &sentBytes, &address)) {
    throw std::runtime_error("WinDivertSend failed.");
  }
}

void Driver::RecalculateChecksums(std::span<std::byte> packet) {
  const platform::MutexLock lock(driverLock_);
  if (!api_ ||
      !api_->calcChecksums(packet.data(), static_cast<std::uint32_t>(packet.size()), nullptr, 0)) {
    throw std::runtime_error("WinDivert checksum recalculation failed.");
  }
}

void Driver::CloseHandle(WinDivertHandle& handle) noexcept {
  const WinDivertHandle old = std::exchange(handle, InvalidDriverHandle());
  if (IsValidDriverHandle(old)) api_->close(old);
}

void Driver::CloseHandles() noexcept {
  const platform::MutexLock lock(driverLock_);
  CloseHandle(captureHandle_);
  CloseHandle(injectHandle_);
}

void Driver::Unload() noexcept {
  const platform::MutexLock lock(driverLock_);
  CloseHandle(captureHandle_);
  CloseHandle(injectHandle_);
  api_.reset();
}

}  // namespace tunnel
