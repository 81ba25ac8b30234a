#include "platform/signature.h"

#include <array>
#include <vector>

#include "platform/unique_handle.h"
#include "platform/windows_sdk.h"
// After the SDK, which they need.
#include <bcrypt.h>
#include <softpub.h>
#include <wincrypt.h>
#include <wintrust.h>

namespace platform {
namespace {

struct AlgorithmTraits {
  using Raw = BCRYPT_ALG_HANDLE;
  static Raw Invalid() noexcept { return nullptr; }
  static bool IsValid(Raw algorithm) noexcept { return algorithm != nullptr; }
  static void Close(Raw algorithm) noexcept { ::BCryptCloseAlgorithmProvider(algorithm, 0); }
};
using Algorithm = UniqueHandle<AlgorithmTraits>;

struct HashTraits {
  using Raw = BCRYPT_HASH_HANDLE;
  static Raw Invalid() noexcept { return nullptr; }
  static bool IsValid(Raw hash) noexcept { return hash != nullptr; }
  static void Close(Raw hash) noexcept { ::BCryptDestroyHash(hash); }
};
using Hash = UniqueHandle<HashTraits>;

// Rejects digests that can be forged. Missing in mingw-w64's wintrust.h.
constexpr DWORD kDisableMd2Md4 = 0x2000;

std::string KeySha256(const CERT_CONTEXT& certificate) {
  constexpr DWORD kEncoding = X509_ASN_ENCODING | PKCS_7_ASN_ENCODING;
  // The key and not the certificate, because it survives a renewal.
  CERT_PUBLIC_KEY_INFO& key = certificate.pCertInfo->SubjectPublicKeyInfo;
  DWORD sizeBytes = 0;
  if (!::CryptEncodeObject(kEncoding, X509_PUBLIC_KEY_INFO, &key, nullptr, &sizeBytes)) return {};
  std::vector<BYTE> encoded(sizeBytes);
  if (!::CryptEncodeObject(kEncoding, X509_PUBLIC_KEY_INFO, &key, encoded.data(), &sizeBytes)) {
    return {};
  }
  return Sha256Hex(std::as_bytes(std::span(encoded.data(), sizeBytes)));
}

// The certificate of the first signature; borrowed from the verification's state.
const CERT_CONTEXT* SignerOf(HANDLE verification) {
  CRYPT_PROVIDER_DATA* data = ::WTHelperProvDataFromStateData(verification);
  if (data == nullptr) return nullptr;
  CRYPT_PROVIDER_SGNR* signer = ::WTHelperGetProvSignerFromChain(data, 0, FALSE, 0);
  if (signer == nullptr) return nullptr;
  CRYPT_PROVIDER_CERT* certificate = ::WTHelperGetProvCertFromChain(signer, 0);
  return certificate == nullptr ? nullptr : certificate->pCert;
}

}  // namespace

std::string Sha256Hex(std::span<const std::byte> bytes) {
  BCRYPT_ALG_HANDLE opened = nullptr;
  if (::BCryptOpenAlgorithmProvider(&opened, BCRYPT_SHA256_ALGORITHM, nullptr, 0) != 0) return {};
  const Algorithm algorithm(opened);
  BCRYPT_HASH_HANDLE created = nullptr;
  if (::BCryptCreateHash(algorithm.Get(), &created, nullptr, 0, nullptr, 0, 0) != 0) return {};
  const Hash hash(created);

  // BCryptHashData only reads, but its parameter is not const.
  auto* input = const_cast<UCHAR*>(reinterpret_cast<const UCHAR*>(bytes.data()));
  std::array<UCHAR, 32> digest{};
  if (::BCryptHashData(hash.Get(), input, static_cast<ULONG>(bytes.size()), 0) != 0 ||
      ::BCryptFinishHash(hash.Get(), digest.data(), static_cast<ULONG>(digest.size()), 0) != 0) {
    return {};
  }
  constexpr char kDigits[] = "0123456789abcdef";
  std::string hex;
  for (const UCHAR byte : digest) {
    hex += kDigits[byte >> 4];
    hex += kDigits[byte & 15];
  }
  return hex;
}

Signature VerifySignature(const HeldFile& file, const std::wstring& path) {
  WINTRUST_FILE_INFO subject{};
  subject.cbStruct = sizeof(subject);
  subject.pcwszFilePath = path.c_str();
  // Windows reads through the held handle; the path only names the file.
  subject.hFile = file.handle.get();

  WINTRUST_DATA data{};
  data.cbStruct = sizeof(data);
  data.dwUIChoice = WTD_UI_NONE;
  // Revocation is not checked: that needs a network, which may not be there.
  data.fdwRevocationChecks = WTD_REVOKE_NONE;
  data.dwUnionChoice = WTD_CHOICE_FILE;
  data.pFile = &subject;
  // Keeps the state of the verification, from which the signer is read below.
  data.dwStateAction = WTD_STATEACTION_VERIFY;
  data.dwProvFlags = WTD_REVOCATION_CHECK_NONE | kDisableMd2Md4;

  GUID action = WINTRUST_ACTION_GENERIC_VERIFY_V2;
  // Not nullptr, which means that there is a user to ask.
  auto* const noWindow = static_cast<HWND>(INVALID_HANDLE_VALUE);
  Signature signature;
  signature.trustError = static_cast<std::uint32_t>(::WinVerifyTrust(noWindow, &action, &data));
  if (signature.trustError == 0) {
    if (const CERT_CONTEXT* signer = SignerOf(data.hWVTStateData)) {
      signature.signerKeySha256 = KeySha256(*signer);
    }
  }
  // Frees the state, and with it the signer's certificate.
  data.dwStateAction = WTD_STATEACTION_CLOSE;
  ::WinVerifyTrust(noWindow, &action, &data);
  return signature;
}

}  // namespace platform
