#include "shell/retry.h"

#include "service/api_messages.h"

namespace shell {

bool CallsForRetry(const settings::Settings& settings) {
  return settings.connectionId.empty() && service::IsServiceRefusalCode(settings.heartbeatMessage);
}

RetryStep DecideRetry(const settings::Settings& settings, bool armed) {
  if (!CallsForRetry(settings)) return RetryStep::Disarm;
  return armed ? RetryStep::Keep : RetryStep::Arm;
}

}  // namespace shell
