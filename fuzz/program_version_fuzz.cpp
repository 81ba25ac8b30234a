// Any bytes as a downloaded program: its version must not depend on the memory after its end.

#include <span>
#include <vector>

#include "fuzz_input.h"
#include "update/versions.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t sizeBytes) {
  const auto bytes = std::as_bytes(std::span(data, sizeBytes));
  const auto version = update::ReadFileVersion(bytes);
  std::vector<std::byte> longer(bytes.begin(), bytes.end());
  longer.insert(longer.end(), 64, std::byte{0xFF});
  if (version) fuzz::Require(update::ReadFileVersion(longer) == version);
  return 0;
}
