#include "session_checks.h"

#include <algorithm>

#include "fuzz_input.h"
#include "tunnel/packets/packet.h"

namespace fuzz {
namespace {

const Answers* allowedAnswers = nullptr;
std::size_t openHandles = 0;
bool isDriverFailing = false;

int CheckInjected(tunnel::WinDivertHandle, const void* bytes, std::uint32_t length, std::uint32_t*,
                  const tunnel::WinDivertAddress* address) {
  const auto* const first = static_cast<const std::byte*>(bytes);
  tunnel::Bytes packet(first, first + length);
  const auto view = tunnel::ValidatePacket(packet);
  Require(view && view->Bytes().size() == length);
  Require(address->interfaceIndex == kInterface && address->flags == 0);
  Require(allowedAnswers->contains({view->SourceAddress(), view->DestinationAddress()}));
  return isDriverFailing ? 0 : 1;
}

}  // namespace

std::unique_ptr<tunnel::WinDivertApi> CheckingDriver(const Answers& answers) {
  allowedAnswers = &answers;
  openHandles = 0;
  isDriverFailing = false;
  auto api = std::make_unique<tunnel::WinDivertApi>();
  api->open = [](const char*, int, std::int16_t, std::uint64_t) -> tunnel::WinDivertHandle {
    if (isDriverFailing) return nullptr;
    ++openHandles;
    return &openHandles;
  };
  api->recv = [](tunnel::WinDivertHandle, void*, std::uint32_t, std::uint32_t*,
                 tunnel::WinDivertAddress*) { return 0; };
  api->send = CheckInjected;
  // Like the real one, it may read memory after the packet.
  api->calcChecksums = [](void* bytes, std::uint32_t length, tunnel::WinDivertAddress*,
                          std::uint64_t) {
    tunnel::TouchEach(
        std::span(static_cast<const std::byte*>(bytes), length + tunnel::kReadableBehindPacket));
    return 1;
  };
  api->close = [](tunnel::WinDivertHandle) {
    Require(openHandles-- > 0);
    return 1;
  };
  api->lastError = []() -> std::uint32_t { return 0; };
  return api;
}

std::size_t OpenDriverHandles() {
  return openHandles;
}

void SetDriverFailing(bool isFailing) {
  isDriverFailing = isFailing;
}

tunnel::Bytes CheckedPacket(std::span<const std::byte> packet, std::uint32_t tunnelAddress) {
  tunnel::Bytes copy(packet.begin(), packet.end());
  const auto view = tunnel::ValidatePacket(copy);
  Require(view && view->Bytes().size() == packet.size());
  Require(view->SourceAddress() == tunnelAddress);
  return copy;
}

void SentStream::Begin() {
  pending_.clear();
  isUpgraded_ = false;
}

void SentStream::Add(std::span<const std::byte> bytes) {
  tunnel::Append(pending_, bytes);
  if (!isUpgraded_ && !TakeRequest()) return;
  while (TakeFrame()) {
  }
}

bool SentStream::TakeRequest() {
  const tunnel::Bytes emptyLine = tunnel::BytesOf("\r\n\r\n");
  const auto end =
      std::search(pending_.begin(), pending_.end(), emptyLine.begin(), emptyLine.end());
  if (end == pending_.end()) return false;
  isUpgraded_ = true;
  Drop(static_cast<std::size_t>(end - pending_.begin()) + emptyLine.size());
  return true;
}

// RFC 6455, section 5.2; a client's frames are masked.
bool SentStream::TakeFrame() {
  if (pending_.size() < 2) return false;
  const std::uint8_t first = tunnel::ReadU8(pending_, 0);
  const bool isPacket = first == (0x80 | tunnel::kOpcodeBinary);
  Require(isPacket || first == (0x80 | tunnel::kOpcodePong));
  Require(tunnel::ReadU8(pending_, 1) >= 0x80);
  std::size_t length = tunnel::ReadU8(pending_, 1) & 0x7F;
  const std::size_t lengthBytes = length == 126 ? 2 : length == 127 ? 8 : 0;
  const std::size_t header = 2 + lengthBytes + 4;
  if (pending_.size() < header) return false;
  if (lengthBytes == 2) length = tunnel::ReadU16Be(pending_, 2);
  if (lengthBytes == 8) length = tunnel::ReadU64Be(pending_, 2);
  if (pending_.size() - header < length) return false;
  tunnel::Bytes payload(length);
  for (std::size_t i = 0; i < length; ++i) {
    payload[i] = pending_[header + i] ^ pending_[header - 4 + i % 4];
  }
  if (isPacket) onPacket_(payload);
  Drop(header + length);
  return true;
}

void SentStream::Drop(std::size_t bytes) {
  pending_.erase(pending_.begin(), pending_.begin() + static_cast<std::ptrdiff_t>(bytes));
}

}  // namespace fuzz
