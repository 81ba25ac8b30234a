#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

#include "platform/safe_files.h"

// Sums and signatures of files. Any thread. Windows only.
namespace platform {

// The SHA-256 of `bytes` as 64 lower-case hexadecimal digits; empty when the system cannot compute
// it.
std::string Sha256Hex(std::span<const std::byte> bytes);

// Windows' verdict on a program's signature.
struct Signature {
  // 0: the file is unchanged since it was signed by a certificate whose chain ends at an authority
  // this computer trusts. Otherwise an HRESULT such as TRUST_E_NOSIGNATURE or CERT_E_UNTRUSTEDROOT.
  std::uint32_t trustError = 0;
  // The SHA-256 of the signing certificate's public key (its SubjectPublicKeyInfo in DER), as 64
  // lower-case hexadecimal digits. Empty when the signature was not accepted.
  std::string signerKeySha256;
};

// Lets Windows verify the held file, which was opened at `path`. Accepts an expired certificate
// when a timestamp shows that it was valid at signing. Does not check for revocation, which needs
// the network; the caller decides which signers to accept. Blocks; shows no window.
Signature VerifySignature(const HeldFile& file, const std::wstring& path);

}  // namespace platform
