// The calls of a verification and the signer read from it. tests/update has the signed programs.
#include "platform/signature.h"

#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <utility>

#include "win32/calls.h"

namespace platform {
namespace {

using namespace win32;

// Windows' state of an accepted verification: one signer with one certificate and a made-up key.
class VerifySignatureCalls : public testing::Test {
 protected:
  VerifySignatureCalls() {
    certificateInfo_.SubjectPublicKeyInfo.Algorithm.pszObjId = algorithm_.data();
    certificateInfo_.SubjectPublicKeyInfo.PublicKey = {static_cast<DWORD>(key_.size()), key_.data(),
                                                       0};
    context_.pCertInfo = &certificateInfo_;
    certificate_.pCert = &context_;
  }

  void Answer(Calls& calls) {
    calls.AnswerWith<Api::WinVerifyTrust>([this](HWND, GUID*, void* data) -> LONG {
      auto* trust = static_cast<WINTRUST_DATA*>(data);
      if (trust->dwStateAction == WTD_STATEACTION_CLOSE) return 0;
      asked_ = *trust;
      file_ = *trust->pFile;
      path_ = file_.pcwszFilePath;
      trust->hWVTStateData = this;
      return verdict_;
    });
    calls.AnswerWith<Api::WTHelperProvDataFromStateData>([this](HANDLE) { return &data_; });
    calls.AnswerWith<Api::WTHelperGetProvSignerFromChain>(
        [this](CRYPT_PROVIDER_DATA*, DWORD, BOOL, DWORD) { return &signer_; });
    calls.AnswerWith<Api::WTHelperGetProvCertFromChain>(
        [this](CRYPT_PROVIDER_SGNR*, DWORD) { return &certificate_; });
  }
  std::string Verify() {
    HeldFile file;
    file.handle = std::shared_ptr<void>(&data_, [](void*) {});
    const Signature signature = VerifySignature(file, L"C:\\new.exe");
    return std::to_string(signature.trustError) + " " + signature.signerKeySha256.substr(0, 4);
  }

  LONG verdict_ = 0;
  WINTRUST_DATA asked_{};
  WINTRUST_FILE_INFO file_{};
  std::wstring path_;
  std::array<char, 5> algorithm_ = {"1.2."};
  std::array<BYTE, 3> key_ = {1, 2, 3};
  CERT_INFO certificateInfo_{};
  CERT_CONTEXT context_{};
  CRYPT_PROVIDER_CERT certificate_{};
  CRYPT_PROVIDER_SGNR signer_{};
  CRYPT_PROVIDER_DATA data_{};
};

TEST_F(VerifySignatureCalls, VerifyTheHeldFileOnceWithoutAWindowAndRelease) {
  Calls calls;
  Answer(calls);
  std::strcpy(algorithm_.data(), "1.2");
  Verify();
  EXPECT_EQ(file_.hFile, &data_) << "not whatever lies at the path now";
  EXPECT_EQ(path_, L"C:\\new.exe");
  EXPECT_EQ(asked_.dwUIChoice, DWORD{WTD_UI_NONE});
  EXPECT_EQ(asked_.dwUnionChoice, DWORD{WTD_CHOICE_FILE});
  EXPECT_EQ(asked_.dwProvFlags, DWORD{WTD_REVOCATION_CHECK_NONE} | 0x2000);  // no MD2, no MD4
  const HWND noWindow = static_cast<HWND>(INVALID_HANDLE_VALUE);
  const std::string verify = Said<Api::WinVerifyTrust>(noWindow, Some{}, Some{});
  EXPECT_TRUE(
      calls.WereAmong({Api::WinVerifyTrust, Api::WTHelperProvDataFromStateData,
                       Api::WTHelperGetProvSignerFromChain, Api::WTHelperGetProvCertFromChain},
                      {verify, Said<Api::WTHelperProvDataFromStateData>(Some{}),
                       Said<Api::WTHelperGetProvSignerFromChain>(Handle{1}, 0, FALSE, 0),
                       Said<Api::WTHelperGetProvCertFromChain>(Handle{2}, 0), verify}));
}

TEST_F(VerifySignatureCalls, ReturnNoSignerUnlessWindowsAccepts) {
  verdict_ = static_cast<LONG>(0x800B0100);
  Calls calls;
  Answer(calls);
  EXPECT_EQ(Verify(), std::to_string(0x800B0100U) + " ");
  EXPECT_EQ(calls.Count(Api::WTHelperProvDataFromStateData), 0);
  EXPECT_EQ(calls.Count(Api::WinVerifyTrust), 2) << "it is let go all the same";
}

// An unreadable signer yields no key, so it matches no pin.
TEST_F(VerifySignatureCalls, ReturnNoUnreadableSigner) {
  std::strcpy(algorithm_.data(), "1.2");
  std::string whole;
  {
    Calls calls;
    Answer(calls);
    whole = Verify();
  }
  EXPECT_EQ(whole.size(), std::string("0 abcd").size());
  for (const auto& [api, nth] : {std::pair{Api::WTHelperProvDataFromStateData, 1},
                                 {Api::WTHelperGetProvSignerFromChain, 1},
                                 {Api::WTHelperGetProvCertFromChain, 1},
                                 {Api::CryptEncodeObject, 1},
                                 {Api::CryptEncodeObject, 2}}) {
    Calls calls;
    Answer(calls);
    calls.Fail(api, 1450, nth);
    EXPECT_EQ(Verify(), "0 ") << Of(api).name << " " << nth;
  }
}

}  // namespace
}  // namespace platform
