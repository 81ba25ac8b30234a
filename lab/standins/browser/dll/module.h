#pragma once

#include <windows.h>

namespace browser {

// This DLL's own module handle; never to be freed.
HINSTANCE OwnModule();

// Keeps the DLL loaded for the rest of the process, as the real runtime does: a loader may free its
// reference at once.
void StayLoaded();

}  // namespace browser
