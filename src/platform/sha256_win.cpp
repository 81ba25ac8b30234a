#include "platform/sha256.h"

#include <array>

#include "platform/unique_handle.h"
#include "platform/windows_sdk.h"
// After the SDK, which it needs.
#include <bcrypt.h>

namespace platform {
namespace {

struct AlgorithmTraits {
  using Raw = BCRYPT_ALG_HANDLE;
  static Raw Invalid() noexcept { return nullptr; }
  static bool IsValid(Raw algorithm) noexcept { return algorithm != nullptr; }
  static void Close(Raw algorithm) noexcept { ::BCryptCloseAlgorithmProvider(algorithm, 0); }
};
using Algorithm = UniqueHandle<AlgorithmTraits>;

struct HashTraits {
  using Raw = BCRYPT_HASH_HANDLE;
  static Raw Invalid() noexcept { return nullptr; }
  static bool IsValid(Raw hash) noexcept { return hash != nullptr; }
  static void Close(Raw hash) noexcept { ::BCryptDestroyHash(hash); }
};
using Hash = UniqueHandle<HashTraits>;

}  // namespace

std::string Sha256Hex(std::span<const std::byte> bytes) {
  BCRYPT_ALG_HANDLE opened = nullptr;
  if (::BCryptOpenAlgorithmProvider(&opened, BCRYPT_SHA256_ALGORITHM, nullptr, 0) != 0) return {};
  const Algorithm algorithm(opened);
  BCRYPT_HASH_HANDLE created = nullptr;
  if (::BCryptCreateHash(algorithm.Get(), &created, nullptr, 0, nullptr, 0, 0) != 0) return {};
  const Hash hash(created);

  // The interface promises not to write, but does not say const.
  auto* input = const_cast<UCHAR*>(reinterpret_cast<const UCHAR*>(bytes.data()));
  std::array<UCHAR, 32> digest{};
  if (::BCryptHashData(hash.Get(), input, static_cast<ULONG>(bytes.size()), 0) != 0 ||
      ::BCryptFinishHash(hash.Get(), digest.data(), static_cast<ULONG>(digest.size()), 0) != 0) {
    return {};
  }
  constexpr char kDigits[] = "0123456789abcdef";
  std::string hex;
  for (const UCHAR byte : digest) {
    hex += kDigits[byte >> 4];
    hex += kDigits[byte & 15];
  }
  return hex;
}

}  // namespace platform
