#pragma once

#include <string>
#include <string_view>

#include <unistd.h>

#include "platform/unique_handle.h"

// What the lab's programs around TUN devices share. Errors: std::system_error or std::runtime_error
// with a text for the operator.
namespace tun {

struct FileTraits {
  using Raw = int;
  static Raw Invalid() noexcept { return -1; }
  static bool IsValid(Raw file) noexcept { return file >= 0; }
  static void Close(Raw file) noexcept { ::close(file); }
};
using File = platform::UniqueHandle<FileTraits>;

// Throws what errno says about `what`.
[[noreturn]] void Fail(const std::string& what);

// A decimal number; throws when it is none or not within `least`..`most`.
[[nodiscard]] int ParseInteger(std::string_view text, int least, int most);

// Creates the TUN device `name` in the calling thread's network namespace and brings it up, without
// an address. Each read or write is one packet, neither waits. The device goes with the file.
[[nodiscard]] File OpenTun(const std::string& name, int mtu);

// A file that becomes readable when the process is asked to end (SIGTERM, SIGINT).
[[nodiscard]] File OpenSignals();

}  // namespace tun
