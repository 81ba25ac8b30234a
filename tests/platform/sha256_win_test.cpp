#include "platform/signature.h"

#include <gtest/gtest.h>

#include <string_view>

#include "win32/calls.h"

namespace platform {
namespace {

using namespace win32;

std::string HexOf(std::string_view text) {
  return Sha256Hex(std::as_bytes(std::span(text.data(), text.size())));
}

// The examples of FIPS 180-2.
TEST(Sha256, MatchesThePublishedExamples) {
  EXPECT_EQ(HexOf(""), "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
  EXPECT_EQ(HexOf("abc"), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
  EXPECT_EQ(HexOf(std::string(1'000'000, 'a')),
            "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0");
}

TEST(Sha256, IsAbsentWhenTheSystemCannotComputeIt) {
  EXPECT_EQ(EachFailure([] { return HexOf("abc").substr(0, 4); }),
            "all well: ba78\n"
            "BCryptOpenAlgorithmProvider: \n"
            "BCryptCreateHash: \n"
            "BCryptHashData: \n"
            "BCryptFinishHash: \n"
            "BCryptDestroyHash: ba78\n"
            "BCryptCloseAlgorithmProvider: ba78\n");
}

}  // namespace
}  // namespace platform
