#pragma once

#include <string>

#include "service/http_transport.h"
#include "settings/settings.h"

namespace service {

// Asks the service which device the access key belongs to and which networks it shares, and takes
// the answer into the settings. True when the service knew the key; `text` is
// the line for the engineer's log either way. A refusal changes nothing. Throws std::runtime_error
// for transport failures and malformed replies, having changed nothing. Blocks; any thread.
bool ResolveDevice(settings::Settings& settings, const JsonRequester& sendJsonRequest,
                   std::wstring& text);

}  // namespace service
