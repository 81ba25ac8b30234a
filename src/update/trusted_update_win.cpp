#include <span>

#include "platform/signature.h"
#include "update/program_version.h"
#include "update/trusted_update.h"

namespace update {

std::wstring WhyNotTrusted(const platform::HeldFile& file, const std::wstring& path,
                           const ProgramIdentity& self) {
  if (self.signerKeySha256.empty()) return {};
  const platform::Signature signature = platform::VerifySignature(file, path);
  OfferedProgram offered;
  offered.trustError = signature.trustError;
  offered.signerKeySha256 = signature.signerKeySha256;
  if (const auto version = ReadFileVersion(std::as_bytes(std::span(file.bytes)))) {
    offered.version = FileVersionText(*version);
    offered.isHigherVersion = IsHigher(*version, self.version);
  }
  return WhyNotTrusted(offered, self);
}

}  // namespace update
