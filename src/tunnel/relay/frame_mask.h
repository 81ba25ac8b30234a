#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace tunnel {

// Writes `from`, masked or unmasked with the key (RFC 6455, section 5.3), to the start of `to`,
// which must have room for it. Both may begin at the same byte, but not overlap otherwise. The
// key's most significant byte is the first on the wire. Pure, any thread.
void CopyMasked(std::span<std::byte> to, std::span<const std::byte> from,
                std::uint32_t key) noexcept;

}  // namespace tunnel
