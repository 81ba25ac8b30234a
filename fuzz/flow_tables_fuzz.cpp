// Records flows and broadcasts, singly and in long runs. Every look-up must return the same as one
// in plain maps.

#include <map>

#include "fuzz_input.h"
#include "tunnel/packets/flow_tables.h"

namespace tunnel {
namespace {

using fuzz::Require;

constexpr std::size_t kMaxFlows = 3000;

class Tables {
 public:
  explicit Tables(fuzz::Input input) : input_(input) {}

  void Run() {
    while (!input_.IsEmpty()) {
      Step(input_.Byte() % 8);
      Require(tables_.FlowCount() == flows_.size());
      Require(tables_.BroadcastCount() == broadcasts_.size());
    }
    for (const auto& [key, entry] : flows_) Require(*tables_.FindFlow(key) == entry);
  }

 private:
  void Step(int kind) {
    switch (kind) {
      case 0:
        return Record(Key());
      case 1:
      case 2:
        return RecordRun(kind == 1);
      case 3:
        return RecordBroadcast();
      case 4:
        return FindBroadcast();
      case 5:
        if (input_.Byte() == 0) Clear();
        return;
      default:
        return Find(Key());
    }
  }

  std::uint32_t Number() {
    const std::uint32_t high = input_.Byte();
    return high << 24 | input_.Byte();  // few distinct values, far apart
  }
  std::uint16_t Port() { return static_cast<std::uint16_t>(input_.Byte() * 257); }

  FlowKey Key() {
    constexpr std::uint8_t kProtocols[] = {1, 6, 17, 255};
    return {kProtocols[input_.Byte() % 4], Number(), Port(), Number(), Port()};
  }

  FlowEntry NextEntry() {
    ++entries_;
    return {entries_, ~entries_, entries_ * 3, entries_ * 5};
  }

  void Record(const FlowKey& key) {
    if (flows_.size() >= kMaxFlows) return;
    const FlowEntry entry = NextEntry();
    tables_.RecordFlow(key, entry);
    flows_[key] = entry;
    Find(key);
  }

  // Consecutive keys, ascending or descending, like a scan of ports or hosts.
  void RecordRun(bool isUpwards) {
    FlowKey key = Key();
    const std::size_t count = std::size_t{input_.Byte()} * 4;
    const std::uint32_t step = input_.Byte();
    const bool stepsPorts = input_.Byte() % 2 == 0;
    for (std::size_t i = 0; i < count; ++i) {
      Record(key);
      if (stepsPorts) {
        key.sourcePort =
            static_cast<std::uint16_t>(isUpwards ? key.sourcePort + step : key.sourcePort - step);
      } else {
        key.destination = isUpwards ? key.destination + step : key.destination - step;
      }
    }
  }

  void Find(const FlowKey& key) {
    const FlowEntry* const found = tables_.FindFlow(key);
    const auto wanted = flows_.find(key);
    Require((found != nullptr) == (wanted != flows_.end()));
    if (found != nullptr) Require(*found == wanted->second);
  }

  void RecordBroadcast() {
    const std::uint32_t prefix = input_.Byte() % 33;
    const BroadcastKey key{Number() & MaskOf(prefix), prefix, Port(), Port()};
    const BroadcastEntry entry = NextEntry();
    tables_.RecordBroadcast(key, entry);
    broadcasts_[key] = entry;
  }

  // Requires the first match in table order.
  void FindBroadcast() {
    const std::uint32_t source = Number();
    const std::uint16_t sourcePort = Port();
    const std::uint16_t destinationPort = Port();
    const BroadcastEntry* wanted = nullptr;
    for (const auto& [key, entry] : broadcasts_) {
      const bool matches = Contains({key.realNetwork, key.realPrefix}, source) &&
                           key.destinationPort == sourcePort && key.sourcePort == destinationPort;
      if (matches && wanted == nullptr) wanted = &entry;
    }
    const BroadcastEntry* const found = tables_.FindBroadcast(source, sourcePort, destinationPort);
    Require((found != nullptr) == (wanted != nullptr));
    if (found != nullptr) Require(*found == *wanted);
  }

  void Clear() {
    tables_.Clear();
    flows_.clear();
    broadcasts_.clear();
  }

  fuzz::Input input_;
  FlowTables tables_;
  std::map<FlowKey, FlowEntry> flows_;
  std::map<BroadcastKey, BroadcastEntry> broadcasts_;
  std::uint32_t entries_ = 0;
};

}  // namespace
}  // namespace tunnel

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t sizeBytes) {
  tunnel::Tables(fuzz::Input(data, sizeBytes)).Run();
  return 0;
}
