#pragma once

#include <functional>
#include <string>

#include "service/http_transport.h"
#include "settings/settings.h"

namespace service {

// What resolving acts through: the program's own operations, or fakes in tests.
struct ResolvePorts {
  JsonRequester sendJsonRequest;
  std::function<void(const settings::Settings&)> saveSettings;
};

// The program's own: WinHTTP and the settings file. Windows only.
ResolvePorts RealResolvePorts();

// Asks the service which device the access key belongs to and which networks it shares, and takes
// the answer into the settings, which are then saved. True when the service knew the key; `text` is
// the line for the engineer's log either way. A refusal changes nothing. Throws std::runtime_error
// for transport failures and malformed replies, having changed nothing. Blocks; any thread.
bool ResolveDevice(settings::Settings& settings, const ResolvePorts& ports, std::wstring& text);

}  // namespace service
