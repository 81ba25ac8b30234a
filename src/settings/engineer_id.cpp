#include "settings/engineer_id.h"

#include <random>

namespace settings {

std::wstring MakeEngineerId() {
  std::random_device seed;
  std::mt19937 generator(seed());
  return MakeEngineerId([&generator] { return static_cast<std::uint32_t>(generator()); });
}

std::wstring MakeEngineerId(const std::function<std::uint32_t()>& random) {
  constexpr std::uint32_t kFirst = 10'000'000;
  constexpr std::uint32_t kCount = 90'000'000;
  // 2^32 mod kCount: products whose lower half is smaller would make some numbers likelier.
  constexpr std::uint32_t kRejectBelow = (0 - kCount) % kCount;
  std::uint64_t product = 0;
  do {
    product = std::uint64_t{random()} * kCount;
  } while (static_cast<std::uint32_t>(product) < kRejectBelow);
  return L"ENG-" + std::to_wstring(kFirst + static_cast<std::uint32_t>(product >> 32));
}

}  // namespace settings
