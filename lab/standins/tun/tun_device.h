#pragma once

#include <string>
#include <string_view>

#include <unistd.h>

#include "platform/unique_handle.h"

// Shared by the lab's programs that use TUN devices. Errors: std::system_error or
// std::runtime_error with a text for the operator.
namespace tun {

struct FileTraits {
  using Raw = int;
  static Raw Invalid() noexcept { return -1; }
  static bool IsValid(Raw file) noexcept { return file >= 0; }
  static void Close(Raw file) noexcept { ::close(file); }
};
using File = platform::UniqueHandle<FileTraits>;

// Throws std::system_error for errno, with `what` as its text.
[[noreturn]] void Fail(const std::string& what);

// Throws unless `text` is a decimal number within `least`..`most`.
[[nodiscard]] int ParseInteger(std::string_view text, int least, int most);

// Creates the TUN device `name` in the calling thread's network namespace and brings it up, without
// an address. Each read or write is one packet and does not block. Closing the file removes the
// device.
[[nodiscard]] File OpenTun(const std::string& name, int mtu);

// A file that becomes readable on SIGTERM or SIGINT.
[[nodiscard]] File OpenSignals();

}  // namespace tun
