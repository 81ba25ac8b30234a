#pragma once

#include <cstdint>
#include <optional>

#include "checks/finding.h"

namespace checks {

// One setting of the active power plan; nothing where the system has none.
struct PowerSetting {
  std::optional<std::uint32_t> onMains;
  std::optional<std::uint32_t> onBattery;
};

struct PowerFacts {
  std::uint32_t error = 0;  // why the system does not tell its plan
  bool hasBattery = false;
  bool hasModernStandby = false;
  PowerSetting sleepSeconds;  // 0: never
  PowerSetting lidAction;     // 0: none, 1: sleep, 2: hibernate, 3: shut down
  PowerSetting usbSuspend;    // 1: ports may be switched off
  PowerSetting wifiSaving;    // 0: none ... 3: the most
};

// Which settings end a connection while nobody touches the computer. Pure.
Outcome JudgePower(const PowerFacts& facts);

// Of the active plan. Windows only.
PowerFacts ReadPowerFacts();

}  // namespace checks
