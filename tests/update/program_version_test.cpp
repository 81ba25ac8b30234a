#include "update/versions.h"

#include <gtest/gtest.h>

#include <string_view>
#include <vector>

namespace update {
namespace {

// A program with one section that contains only a version resource, built by hand according to
// Microsoft's "PE Format".
class Program {
 public:
  static constexpr std::size_t kCoff = 0x80;
  static constexpr std::size_t kOptional = kCoff + 24;
  static constexpr std::size_t kDirectories = kOptional + 112;
  static constexpr std::size_t kSection = kOptional + 240;
  static constexpr std::size_t kResources = 0x200;   // in the file
  static constexpr std::uint32_t kAddress = 0x1000;  // when loaded
  static constexpr std::size_t kInfo = kResources + 0x60;

  Program() : bytes_(kResources + 0x200) {
    Text(0, "MZ");
    U32(0x3C, kCoff);
    Text(kCoff, "PE");
    U16(kCoff + 6, 1);     // sections
    U16(kCoff + 20, 240);  // size of the optional header
    U16(kOptional, 0x20B);
    U32(kDirectories - 4, 16);
    U32(kDirectories + 16, kAddress);
    U32(kSection + 12, kAddress);
    U32(kSection + 16, 0x200);
    U32(kSection + 20, kResources);
    Folder(0, 16, 0x80000018);
    Folder(0x18, 1, 0x80000030);
    Folder(0x30, 2052, 0x48);
    U32(kResources + 0x48, kAddress + 0x60);
    U32(kResources + 0x4C, 92);
    U16(kInfo, 92);
    U16(kInfo + 2, 52);
    const std::u16string_view key = u"VS_VERSION_INFO";
    for (std::size_t i = 0; i < key.size(); ++i) U16(kInfo + 6 + i * 2, key[i]);
    U32(kInfo + 40, 0xFEEF04BD);
    U32(kInfo + 48, 2u << 16 | 7u);
    U32(kInfo + 52, 31u << 16 | 65535u);
  }

  void U16(std::size_t offset, std::uint32_t value) {
    for (std::size_t i = 0; i < 2; ++i) {
      bytes_.at(offset + i) = static_cast<std::byte>(value >> (8 * i));
    }
  }
  void U32(std::size_t offset, std::uint32_t value) {
    U16(offset, value & 0xFFFF);
    U16(offset + 2, value >> 16);
  }
  void Text(std::size_t offset, std::string_view text) {
    for (std::size_t i = 0; i < text.size(); ++i) {
      bytes_.at(offset + i) = static_cast<std::byte>(text[i]);
    }
  }
  // The first `count` bytes, in a buffer of exactly that size.
  [[nodiscard]] std::optional<FileVersion> Version(std::size_t count) const {
    const std::vector<std::byte> part(bytes_.begin(),
                                      bytes_.begin() + static_cast<std::ptrdiff_t>(count));
    return ReadFileVersion(part);
  }
  [[nodiscard]] std::optional<FileVersion> Version() const { return Version(bytes_.size()); }
  [[nodiscard]] std::size_t Size() const { return bytes_.size(); }

 private:
  void Folder(std::size_t offset, std::uint32_t id, std::uint32_t leadsTo) {
    U16(kResources + offset + 14, 1);
    U32(kResources + offset + 16, id);
    U32(kResources + offset + 20, leadsTo);
  }

  std::vector<std::byte> bytes_;
};

TEST(ReadFileVersion, ReadsTheFourNumbersOfTheResource) {
  EXPECT_EQ(Program().Version(), (FileVersion{2, 7, 31, 65535}));
  EXPECT_EQ(FileVersionText({2, 7, 31, 65535}), L"2.7.31.65535");
}

TEST(ReadFileVersion, EndsSafelyWhereverTheFileEnds) {
  const Program program;
  for (std::size_t count = 0; count < program.Size(); ++count) {
    const auto version = program.Version(count);
    if (version) {
      EXPECT_EQ(*version, (FileVersion{2, 7, 31, 65535})) << count;
    }
  }
  EXPECT_FALSE(program.Version(Program::kInfo + 91));
}

TEST(ReadFileVersion, IsEmptyForOtherFiles) {
  const struct {
    const char* name;
    std::size_t offset;
    std::uint32_t value;
  } rows[] = {
      {"no MZ", 0, 0x4D5A},
      {"headers past the end", 0x3C, 0xFFFFFFF0},
      {"no PE", Program::kCoff, 0x454E},
      {"no sections", Program::kCoff + 4, 0},
      {"an optional header of another kind", Program::kOptional, 0x107},
      {"two data directories", Program::kDirectories - 4, 2},
      {"no resources", Program::kDirectories + 16, 0},
      {"resources past the sections", Program::kDirectories + 16, 0x1200},
      {"a section past the end", Program::kSection + 20, 0xFFFFFF00},
      {"another type", Program::kResources + 16, 6},
      {"a type that is no folder", Program::kResources + 20, 0x18},
      {"an empty folder", Program::kResources + 0x18 + 12, 0},
      {"a language that is a folder", Program::kResources + 0x30 + 20, 0x80000048},
      {"a folder that is itself", Program::kResources + 0x30 + 20, 0x80000000},
      {"content past the end", Program::kResources + 0x48, 0xFFFFFFFF},
      {"content that is too long", Program::kResources + 0x4C, 0xFFFFFFFF},
      {"content that is too short", Program::kResources + 0x4C, 91},
      {"another key", Program::kInfo + 6, 'v'},
      {"another structure", Program::kInfo + 40, 0xFEEF04BC},
  };
  for (const auto& row : rows) {
    Program program;
    program.U32(row.offset, row.value);
    EXPECT_FALSE(program.Version()) << row.name;
  }
}

TEST(IsHigher, ComparesByNumbersAlone) {
  EXPECT_TRUE(IsHigher({1, 0, 5, 0}, L"1.0.4"));
  EXPECT_TRUE(IsHigher({1, 0, 4, 1}, L"1.0.4"));
  EXPECT_TRUE(IsHigher({2, 0, 0, 0}, L"1.65535.65535.65535"));
  EXPECT_FALSE(IsHigher({1, 0, 4, 0}, L"1.0.4")) << "the same";
  EXPECT_FALSE(IsHigher({1, 0, 3, 65535}, L"1.0.4"));
}

}  // namespace
}  // namespace update
