#pragma once

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

#include "service/fake_world.h"
#include "shell/hints.h"
#include "shell/job.h"

namespace shell {

// Finds the catalogue's cause for the texts of the program's own modules.
class HintsTest : public testing::Test {
 protected:
  static std::wstring Cause(const std::wstring& line, const HintFacts& facts = {}) {
    const Hint* const hint = FindHint(line, facts);
    return hint == nullptr ? std::wstring() : std::wstring(hint->cause);
  }

  // Returns the result of connecting when opening the tunnel calls `call`.
  template <typename Call>
  static std::wstring ConnectWith(Call call) {
    service::FakeWorld world;
    world.Answer(
        LR"({"success":true,"data":{"connectionId":"c1","assignedAddress":"10.8.0.2",)"
        LR"("routes":["192.168.1.0/24"]}})");
    world.Answer(LR"({"success":true})");
    world.onStart = call;
    return Connect(world);
  }
  static std::wstring Connect(service::FakeWorld& world, const std::wstring& heldConnection = L"") {
    settings::Settings settings;
    settings.serverUrl = L"http://192.0.2.10:31080";
    settings.connectionId = heldConnection;
    const std::wstring text = world.RunJob(
        settings, [&](settings::JobSettings& job) { return world.Jobs().Connect(job, world); });
    refusalCode_ = settings.heartbeatMessage;
    return text;
  }

  static inline std::wstring refusalCode_;  // left by the last Connect()
};

}  // namespace shell
