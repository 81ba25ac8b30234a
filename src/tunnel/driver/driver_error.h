#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>

namespace tunnel {

// The packet driver could not be loaded or opened. what() is the failure's fixed text and, where
// the system gave a code, a line of its own (after CRLF) with that code, its meaning and its cure.
class DriverError : public std::runtime_error {
 public:
  // `code`: of GetLastError(); 0 when the system gave none.
  DriverError(const std::string& text, std::uint32_t code);
  [[nodiscard]] std::uint32_t Code() const noexcept { return code_; }

 private:
  std::uint32_t code_;
};

// The line for a code other than 0. Pure, but for the system's text of a code not known here.
std::wstring DescribeDriverError(std::uint32_t code);

// Whether the code says that what another use of the driver has left is in the way, so that
// stopping it and trying again may help.
bool IsDriverLeftover(std::uint32_t code) noexcept;

}  // namespace tunnel
