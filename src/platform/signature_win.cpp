#include "platform/signature.h"

#include <span>
#include <vector>

#include "platform/sha256.h"
#include "platform/windows_sdk.h"
// After the SDK, which they need.
#include <softpub.h>
#include <wincrypt.h>
#include <wintrust.h>

namespace platform {
namespace {

// Missing in mingw-w64's wintrust.h: digests that anybody can forge count as no signature.
constexpr DWORD kDisableMd2Md4 = 0x2000;

std::string KeySha256(const CERT_CONTEXT& certificate) {
  constexpr DWORD kEncoding = X509_ASN_ENCODING | PKCS_7_ASN_ENCODING;
  CERT_PUBLIC_KEY_INFO& key = certificate.pCertInfo->SubjectPublicKeyInfo;
  DWORD sizeBytes = 0;
  if (!::CryptEncodeObject(kEncoding, X509_PUBLIC_KEY_INFO, &key, nullptr, &sizeBytes)) return {};
  std::vector<BYTE> encoded(sizeBytes);
  if (!::CryptEncodeObject(kEncoding, X509_PUBLIC_KEY_INFO, &key, encoded.data(), &sizeBytes)) {
    return {};
  }
  return Sha256Hex(std::as_bytes(std::span(encoded.data(), sizeBytes)));
}

// The certificate that the first signature was made with; borrowed from the verification's state.
const CERT_CONTEXT* SignerOf(HANDLE verification) {
  CRYPT_PROVIDER_DATA* data = ::WTHelperProvDataFromStateData(verification);
  if (data == nullptr) return nullptr;
  CRYPT_PROVIDER_SGNR* signer = ::WTHelperGetProvSignerFromChain(data, 0, FALSE, 0);
  if (signer == nullptr) return nullptr;
  CRYPT_PROVIDER_CERT* certificate = ::WTHelperGetProvCertFromChain(signer, 0);
  return certificate == nullptr ? nullptr : certificate->pCert;
}

}  // namespace

Signature VerifySignature(const HeldFile& file, const std::wstring& path) {
  WINTRUST_FILE_INFO subject{};
  subject.cbStruct = sizeof(subject);
  subject.pcwszFilePath = path.c_str();
  subject.hFile = file.handle.get();

  WINTRUST_DATA data{};
  data.cbStruct = sizeof(data);
  data.dwUIChoice = WTD_UI_NONE;
  data.fdwRevocationChecks = WTD_REVOKE_NONE;
  data.dwUnionChoice = WTD_CHOICE_FILE;
  data.pFile = &subject;
  data.dwStateAction = WTD_STATEACTION_VERIFY;
  data.dwProvFlags = WTD_REVOCATION_CHECK_NONE | kDisableMd2Md4;

  GUID action = WINTRUST_ACTION_GENERIC_VERIFY_V2;
  auto* const noWindow = static_cast<HWND>(INVALID_HANDLE_VALUE);
  Signature signature;
  signature.trustError = static_cast<std::uint32_t>(::WinVerifyTrust(noWindow, &action, &data));
  if (signature.trustError == 0) {
    if (const CERT_CONTEXT* signer = SignerOf(data.hWVTStateData)) {
      signature.signerKeySha256 = KeySha256(*signer);
    }
  }
  data.dwStateAction = WTD_STATEACTION_CLOSE;
  ::WinVerifyTrust(noWindow, &action, &data);
  return signature;
}

}  // namespace platform
