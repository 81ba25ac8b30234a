#pragma once

#include "settings/settings.h"

namespace settings {

// What becomes of a record that window and job have changed side by side. `base` is the record as
// it was when the job began; `window` what the window has made of it since, `job` what the job has
// made of its copy. A field that only one of them has changed has that one's value. Of a field that
// both have changed:
//
// - form, profiles and discovery mode are the window's, for that is what the engineer did last;
// - connection, identity, remote desktop, latency and heartbeat are the job's;
// - number, name and networks of the device are the job's, too.
//
// Once the window has put another access key into the form, number, name and networks stay the
// window's in any case: what the job brought describes the device of the earlier key.
//
// Pure; any thread.
Settings MergeSettings(const Settings& base, const Settings& window, const Settings& job);

}  // namespace settings
