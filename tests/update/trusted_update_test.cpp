#include "update/trusted_update.h"

#include <gtest/gtest.h>

namespace update {
namespace {

const std::string kPinnedKey(64, 'a');
const ProgramIdentity kPinned{L"1.0.4", kPinnedKey};

OfferedProgram SignedUpdate() {
  return {0, kPinnedKey, L"1.0.5.0", true};
}

TEST(TrustedUpdate, AcceptsAHigherVersionOfThePinnedSigner) {
  EXPECT_EQ(WhyNotTrusted(SignedUpdate(), kPinned), L"");
}

TEST(TrustedUpdate, NamesTheReasonAgainstAnyOther) {
  OfferedProgram unsignedFile = SignedUpdate();
  unsignedFile.trustError = 0x800B0100;
  EXPECT_EQ(WhyNotTrusted(unsignedFile, kPinned),
            L"新程序没有有效的数字签名（错误码 0x800B0100）。");
  OfferedProgram stranger = SignedUpdate();
  stranger.signerKeySha256.back() = 'b';
  EXPECT_EQ(WhyNotTrusted(stranger, kPinned), L"新程序不是由指定的发布者签名。");
  OfferedProgram unknown = SignedUpdate();
  unknown.signerKeySha256.clear();
  EXPECT_EQ(WhyNotTrusted(unknown, kPinned), L"新程序不是由指定的发布者签名。");
  OfferedProgram nameless = SignedUpdate();
  nameless.version.clear();
  EXPECT_EQ(WhyNotTrusted(nameless, kPinned), L"新程序没有版本信息。");
  OfferedProgram older = SignedUpdate();
  older.version = L"1.0.4.0";
  older.isHigherVersion = false;
  EXPECT_EQ(WhyNotTrusted(older, kPinned), L"新程序的版本 1.0.4.0 不高于当前版本 1.0.4。");
}

TEST(TrustedUpdate, WithoutAPinAcceptsAnyOffer) {
  EXPECT_EQ(WhyNotTrusted({0x800B0100, "", L"", false}, {L"1.0.4", ""}), L"");
}

}  // namespace
}  // namespace update
