#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "platform/safe_files.h"

// Which file may replace this program. A build that names its signer's key accepts only programs
// signed with it, whoever controls the service or the network. A build that names none accepts
// every program that the service offers.
namespace update {

// This program, as named by its build.
struct ProgramIdentity {
  std::wstring version;              // "1.0.4"
  std::string signerKeySha256 = {};  // 64 lower-case hexadecimal digits, or empty: any signer
};

// The facts about an offered program.
struct OfferedProgram {
  std::uint32_t trustError = 0;  // both as in platform::Signature
  std::string signerKeySha256;
  std::wstring version;          // "1.0.5.0"; empty when the file has none
  bool isHigherVersion = false;  // than that of the running program
};

// Why `offered` may not replace `self`, as the end of a log line; empty when it may. Pure; any
// thread.
std::wstring WhyNotTrusted(const OfferedProgram& offered, const ProgramIdentity& self);

// The same for a file opened at `path`. Always empty when `self` names no signer. Windows only;
// blocks; any thread.
std::wstring WhyNotTrusted(const platform::HeldFile& file, const std::wstring& path,
                           const ProgramIdentity& self);

}  // namespace update
