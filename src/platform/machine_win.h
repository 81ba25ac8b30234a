#pragma once

namespace platform {

// Whether this is Windows for ARM64 processors: it runs x64 programs, but none of their drivers.
// Any thread.
bool IsArm64Windows();

}  // namespace platform
