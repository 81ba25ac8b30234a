#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "platform/safe_files.h"

// Who may replace this program. A deployment that names its signer's key takes no program signed by
// anybody else, whoever controls the service or the line to it; one that names none takes what the
// service offers.
namespace update {

// This program, as its build named it.
struct ProgramIdentity {
  std::wstring version;              // "1.0.4"
  std::string signerKeySha256 = {};  // 64 lower-case hexadecimal digits, or empty: any signer
};

// What was found out about an offered program.
struct OfferedProgram {
  std::uint32_t trustError = 0;  // as platform::Signature has them
  std::string signerKeySha256;
  std::wstring version;          // "1.0.5.0"; empty when the file names none
  bool isHigherVersion = false;  // than the running program's
};

// Why the program `offered` may not take the place of `self`, as the end of a log line; empty when
// it may. Pure; any thread.
std::wstring WhyNotTrusted(const OfferedProgram& offered, const ProgramIdentity& self);

// The same for a file that was opened at `path`. Always empty when `self` names no signer. Windows
// only; blocks; any thread.
std::wstring WhyNotTrusted(const platform::HeldFile& file, const std::wstring& path,
                           const ProgramIdentity& self);

}  // namespace update
