#pragma once

#include <cstdint>
#include <string>

#include "platform/held_file.h"

namespace platform {

// What Windows says of a program's signature.
struct Signature {
  // 0: the file is as it was signed, by a certificate whose chain ends at an authority this
  // computer trusts. Otherwise why not, an HRESULT such as TRUST_E_NOSIGNATURE or
  // CERT_E_UNTRUSTEDROOT.
  std::uint32_t trustError = 0;
  // The SHA-256 of the signing certificate's public key (its SubjectPublicKeyInfo in DER), as 64
  // lower-case hexadecimal digits. Empty when the signature was not accepted.
  std::string signerKeySha256;
};

// Windows' own verification of the held file, which was opened at `path`. A certificate that has
// run out is accepted when a timestamp shows that it was valid then. Whether it was revoked is not
// asked: that needs the network, and who may sign is the caller's to check. Asks nothing of the
// user. Blocks; any thread. Windows only.
Signature VerifySignature(const HeldFile& file, const std::wstring& path);

}  // namespace platform
