#pragma once

#include "settings/settings.h"

// When the connection request is repeated by itself. Pure.
namespace shell {

// The service has refused the last request for the time being, and no connection is held.
bool CallsForRetry(const settings::Settings& settings);

enum class RetryStep {
  Arm,     // set the timer and say so
  Keep,    // the timer is set already
  Disarm,  // no retry (any more)
};

// After a job's result, `settings` being what the job has left and `armed` whether the timer is
// set.
RetryStep DecideRetry(const settings::Settings& settings, bool armed);

}  // namespace shell
