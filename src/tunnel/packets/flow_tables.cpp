#include "tunnel/packets/flow_tables.h"

#include <limits>

namespace tunnel {
namespace {

constexpr std::uint16_t kMaxPort = std::numeric_limits<std::uint16_t>::max();

}  // namespace

const BroadcastEntry* FlowTables::FindBroadcast(std::uint32_t source, std::uint16_t sourcePort,
                                                std::uint16_t destinationPort) const {
  // One look-up a network, in table order: the records of one network stand together.
  auto record = broadcasts_.begin();
  while (record != broadcasts_.end()) {
    const std::uint32_t network = record->first.realNetwork;
    const std::uint32_t prefix = record->first.realPrefix;
    if (Contains({network, prefix}, source)) {
      const auto found = broadcasts_.find({network, prefix, sourcePort, destinationPort});
      if (found != broadcasts_.end()) return &found->second;
    }
    record = broadcasts_.upper_bound({network, prefix, kMaxPort, kMaxPort});
  }
  return nullptr;
}

void FlowTables::Clear() noexcept {
  flows_.Clear();
  broadcasts_.clear();
}

}  // namespace tunnel
