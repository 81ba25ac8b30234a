#include "shell/initial_settings.h"

namespace shell {

settings::Settings InitialSettings() {
  settings::Settings settings;
  settings.sharedNetworksText = L"192.168.1.0/24";
  settings.targetNetwork = L"192.168.1.0/24";
  settings.latencyText = L"未测试";
  return settings;
}

}  // namespace shell
