#pragma once

#include <chrono>
#include <vector>

#include "checks/finding.h"

namespace checks {

inline constexpr std::chrono::seconds kCheckLimit{10};

// Runs the checks, stage by stage, and returns a finding for each in their order. One that has not
// ended `limit` after its stage began is a fault that says so; its thread is left behind and what
// it finds later is dropped. Blocks for at most `limit` a stage; any thread.
std::vector<Finding> RunChecks(const std::vector<Check>& checks, std::chrono::milliseconds limit);

}  // namespace checks
