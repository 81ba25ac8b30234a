#include "tunnel/adapter_list.h"

#include <gtest/gtest.h>

namespace tunnel {
namespace {

TEST(LocalNetworks, CountsAddressesOfAdaptersThatAreUp) {
  const std::vector<AdapterAddress> addresses{
      {true, 0xC0A80132, 24},   // 192.168.1.50/24
      {false, 0x0A000001, 8},   // of an adapter that is down
      {true, 0x7F000001, 8},    // loopback
      {true, 0x7FFFFFFF, 32},   // loopback
      {true, 0xA9FE0102, 16},   // link-local
      {true, 0xA9FD0102, 16},   // 169.253.1.2, an ordinary one
      {true, 0x80000001, 32},   // 128.0.0.1
      {true, 0xAC1F0001, 16},   // 172.31.0.1
      {true, 0xE0000001, 4},    // reserved ranges count
      {true, 0x0A000001, 255},  // the system does not know the prefix
      {true, 0x01020304, 0},
  };
  EXPECT_EQ(SelectLocalNetworks(addresses), (std::vector<Ipv4Network>{{0xC0A80100, 24},
                                                                      {0xA9FD0000, 16},
                                                                      {0x80000001, 32},
                                                                      {0xAC1F0000, 16},
                                                                      {0xE0000000, 4},
                                                                      {0x0A000001, 32},
                                                                      {0, 0}}));
  EXPECT_TRUE(SelectLocalNetworks({}).empty());
}

// A system whose list has `sizes[i]` bytes at call i; records the calls.
class GrowingList {
 public:
  explicit GrowingList(std::vector<std::uint32_t> sizes) : sizes_(std::move(sizes)) {}

  std::uint32_t Read(std::byte* buffer, std::uint32_t& sizeBytes) {
    asked.push_back(sizeBytes);
    const std::uint32_t has = sizes_.at(asked.size() - 1);
    const bool fits = sizeBytes >= has;
    if (fits) buffer[has - 1] = std::byte{7};
    sizeBytes = has;
    return fits ? 0 : kListTooLarge;
  }

  std::vector<std::uint32_t> asked;

 private:
  const std::vector<std::uint32_t> sizes_;
};

TEST(SystemList, IsRereadAtMostThreeTimesWhenItGrows) {
  using Sizes = std::vector<std::uint32_t>;
  const auto read = [](GrowingList& list) {
    return ReadSystemList([&list](std::byte* buffer, std::uint32_t& sizeBytes) {
      return list.Read(buffer, sizeBytes);
    });
  };
  GrowingList steady({40, 40});
  EXPECT_EQ(read(steady).bytes.size(), 40U);
  EXPECT_EQ(steady.asked, (Sizes{0, 40}));

  GrowingList growing({40, 50, 60, 60});
  const SystemList list = read(growing);
  EXPECT_EQ(list.error, 0U);
  ASSERT_EQ(list.bytes.size(), 60U);
  EXPECT_EQ(list.bytes[59], std::byte{7});
  EXPECT_EQ(list.bytes[0], std::byte{0});
  EXPECT_EQ(growing.asked, (Sizes{0, 40, 50, 60}));

  GrowingList endless({40, 50, 60, 70});
  EXPECT_EQ(read(endless).error, kListTooLarge);
  EXPECT_EQ(endless.asked, (Sizes{0, 40, 50, 60}));
}

TEST(SystemList, ReportsWhyItIsMissing) {
  for (const std::uint32_t error : {5U, 8U, 87U}) {
    const SystemList list = ReadSystemList([error](std::byte*, std::uint32_t&) { return error; });
    EXPECT_EQ(list.error, error);
    EXPECT_TRUE(list.bytes.empty());
  }
  const SystemList nothing = ReadSystemList([](std::byte*, std::uint32_t&) { return 232U; });
  EXPECT_EQ(nothing.error, 0U);  // a computer without addresses has no list; that is not an error
  EXPECT_TRUE(nothing.bytes.empty());
  int calls = 0;
  const SystemList spoiled = ReadSystemList([&calls](std::byte*, std::uint32_t& sizeBytes) {
    sizeBytes = 40;
    return ++calls == 1 ? kListTooLarge : 5U;
  });
  EXPECT_EQ(spoiled.error, 5U);
  EXPECT_TRUE(spoiled.bytes.empty());
}

}  // namespace
}  // namespace tunnel
