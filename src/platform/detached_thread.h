#pragma once

#include <functional>

namespace platform {

// Runs `body` on a thread that nobody waits for; what it throws ends the program. Throws
// std::system_error when no thread can be made. Any thread.
//
// The body begins when the thread has been let go of: mingw-w64's thread library can hang a thread
// that ends in the very moment of being detached.
void StartDetached(std::function<void()> body);

}  // namespace platform
