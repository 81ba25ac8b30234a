// Uses programs signed by lab/standins/update. Wine compares a program with its signature but
// trusts every signer's authority, so that part of Windows' verification is not covered here.
#include <gtest/gtest.h>

#include <functional>

#include "platform/files.h"
#include "platform/scratch_folder.h"
#include "update/trusted_update.h"
#include "update/update_process_win.h"

namespace update {
namespace {

std::wstring LabFile(const std::wstring& name) {
  return LabUpdateFolder() + L"\\" + name;
}

std::string PublisherKey() {
  return platform::ReadFileBytes(LabFile(L"keys\\publisher.sha256")).value_or("").substr(0, 64);
}

class TrustedUpdateOnWindows : public testing::Test {
 protected:
  static std::wstring WhyNot(const std::wstring& path, const ProgramIdentity& self) {
    const platform::HeldFile held = platform::HoldFile(path);
    EXPECT_TRUE(held.result.succeeded) << held.result.errorCode;
    return WhyNotTrusted(held, path, self);
  }
  // A copy of the signed program with modified bytes.
  [[nodiscard]] std::wstring Changed(const std::function<void(std::string&)>& change) const {
    std::string bytes = platform::ReadFileBytes(LabFile(L"signed_next.exe")).value_or("");
    change(bytes);
    std::wstring path = scratch_.Path(L"changed.exe");
    EXPECT_TRUE(platform::WriteFileBytes(path, bytes));
    return path;
  }

  const platform::ScratchFolder scratch_;
  const ProgramIdentity self_{L"1.0.4", PublisherKey()};
};

constexpr wchar_t kNoSignature[] = L"新程序没有有效的数字签名（错误码 0x800B0100）。";
constexpr wchar_t kBadDigest[] = L"新程序没有有效的数字签名（错误码 0x80096010）。";

TEST_F(TrustedUpdateOnWindows, AcceptsAHigherVersionOfThePinnedPublisher) {
  EXPECT_EQ(self_.signerKeySha256.size(), 64u);
  EXPECT_EQ(WhyNot(LabFile(L"signed_next.exe"), self_), L"");
}

TEST_F(TrustedUpdateOnWindows, RefusesAnotherPublisherOfTheSameAuthority) {
  EXPECT_EQ(WhyNot(LabFile(L"stranger_next.exe"), self_), L"新程序不是由指定的发布者签名。");
}

TEST_F(TrustedUpdateOnWindows, RefusesAProgramWithoutASignature) {
  EXPECT_EQ(WhyNot(LabFile(L"Velmarine.Client.exe"), self_), kNoSignature);
}

TEST_F(TrustedUpdateOnWindows, RefusesAProgramWithASingleBitChanged) {
  for (const std::size_t place : {std::size_t{0x1000}, std::size_t{400'000}}) {
    EXPECT_EQ(WhyNot(Changed([place](std::string& bytes) { bytes.at(place) ^= 1; }), self_),
              kBadDigest)
        << place;
  }
}

TEST_F(TrustedUpdateOnWindows, RefusesATruncatedProgram) {
  for (const std::size_t cut : {std::size_t{1}, std::size_t{5000}, std::size_t{1'000'000}}) {
    const std::wstring path =
        Changed([cut](std::string& bytes) { bytes.resize(bytes.size() - cut); });
    EXPECT_EQ(WhyNot(path, self_).substr(0, 16), L"新程序没有有效的数字签名（错误码") << cut;
  }
  EXPECT_NE(WhyNot(Changed([](std::string& bytes) { bytes.clear(); }), self_), L"");
}

TEST_F(TrustedUpdateOnWindows, RefusesTheSameAndOlderVersions) {
  EXPECT_EQ(WhyNot(LabFile(L"signed_same.exe"), self_),
            L"新程序的版本 1.0.4.0 不高于当前版本 1.0.4。");
  EXPECT_EQ(WhyNot(LabFile(L"signed_next.exe"), {L"99.0", self_.signerKeySha256}),
            L"新程序的版本 2.0.0.0 不高于当前版本 99.0。");
}

// Windows refuses the signature; Wine does not check its authority, so the pin decides.
TEST_F(TrustedUpdateOnWindows, RefusesAPublisherWithoutATrustedAuthority) {
  EXPECT_NE(WhyNot(LabFile(L"unknown_next.exe"), self_), L"");
}

TEST_F(TrustedUpdateOnWindows, WithoutAPinAsksNothing) {
  EXPECT_EQ(WhyNot(LabFile(L"Velmarine.Client.exe"), {L"1.0.4", ""}), L"");
}

}  // namespace
}  // namespace update
