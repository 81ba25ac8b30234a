#include "update/trusted_update.h"

#include <array>
#include <cwchar>

namespace update {
namespace {

constexpr wchar_t kNoValidSignature[] = L"新程序没有有效的数字签名（错误码 ";
constexpr wchar_t kOtherSigner[] = L"新程序不是由指定的发布者签名。";
constexpr wchar_t kNoVersion[] = L"新程序没有版本信息。";
constexpr wchar_t kNotHigher[] = L"新程序的版本 ";
constexpr wchar_t kNotHigherThan[] = L" 不高于当前版本 ";

}  // namespace

std::wstring WhyNotTrusted(const OfferedProgram& offered, const ProgramIdentity& self) {
  if (self.signerKeySha256.empty()) return {};
  // First, because without a valid signature neither key nor version proves anything.
  if (offered.trustError != 0) {
    std::array<wchar_t, 16> code{};
    std::swprintf(code.data(), code.size(), L"0x%08X", offered.trustError);
    return kNoValidSignature + std::wstring(code.data()) + L"）。";
  }
  if (offered.signerKeySha256 != self.signerKeySha256) return kOtherSigner;
  if (offered.version.empty()) return kNoVersion;
  // An old program that was signed once must not return.
  if (!offered.isHigherVersion) {
    return kNotHigher + offered.version + kNotHigherThan + self.version + L"。";
  }
  return {};
}

}  // namespace update
