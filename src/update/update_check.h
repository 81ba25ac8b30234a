#pragma once

#include <string>

#include "settings/json.h"
#include "settings/settings.h"
#include "update/update_deps.h"

namespace update {

// The service's answer about newer programs. Missing members and those of another type are false or
// empty.
struct UpdateOffer {
  bool isAvailable = false;
  std::wstring version;
  std::wstring downloadUrl;  // absolute, or a path on the service
  bool isForced = false;
};

// Reads a reply's `data`, which may be of any type. Pure; any thread.
UpdateOffer ReadUpdateOffer(const settings::JsonValue& data);

// Asks the service for a newer version, once, and returns one line for the log. A forced update is
// installed at once and without asking: it is downloaded, the replacement process is started, and
// the running program ends abruptly, on this thread. Any failure leaves the program as it was. So
// does closing the program before the replacement process has started; the line is then discarded.
//
// The program never ends for an update that cannot succeed: its file must be replaceable, the
// download must be trusted, and the same version is tried only once a day (otherwise a file that
// reports an older version would end the program at every start). Throws std::runtime_error when
// the service cannot be reached or answers with malformed JSON. Blocks; any thread.
std::wstring CheckForUpdate(const settings::Settings& settings, UpdateDeps& deps);

// The URL that asks the service for a version newer than `version`. Pure.
std::wstring UpdateQuestion(const std::wstring& serverUrl, const std::wstring& version);

}  // namespace update
