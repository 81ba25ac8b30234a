#include "shell/tab_strip.h"

namespace shell {

std::optional<int> FindTabAt(int x, int y) {
  if (y < 64 || y > 106) return std::nullopt;
  const bool first = x >= 360 && x <= 430;
  const bool second = x >= 448 && x <= 520;
  if (!first && !second) return std::nullopt;
  return second ? 1 : 0;
}

}  // namespace shell
