#include "tunnel/relay/websocket_relay.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "tunnel/packets/packet.h"
#include "tunnel/packets/test_random.h"
#include "tunnel/relay/test_frames.h"

namespace tunnel {
namespace {

void Arrive(ReceiveBuffer& buffer, std::span<const std::byte> bytes) {
  const std::span<std::byte> room = buffer.Room(bytes.size());
  ASSERT_GE(room.size(), bytes.size());
  std::ranges::copy(bytes, room.begin());
  buffer.Add(bytes.size());
}

TEST(ReceiveBuffer, KeepsTheStreamForAnySizesOfAddAndTake) {
  Random random(7);
  const Bytes stream = Pattern(3000000);
  ReceiveBuffer buffer;
  std::size_t arrived = 0;
  std::size_t read = 0;
  while (read < stream.size()) {
    const std::size_t more = std::min<std::size_t>(random() % 70000, stream.size() - arrived);
    Arrive(buffer, std::span(stream).subspan(arrived, more));
    arrived += more;
    const std::span<std::byte> unread = buffer.Unread();
    ASSERT_EQ(unread.size(), arrived - read);
    ASSERT_TRUE(std::ranges::equal(unread, std::span(stream).subspan(read, unread.size())));
    const bool isLast = arrived == stream.size();
    const std::size_t taken = isLast ? unread.size() : random() % (unread.size() + 1);
    buffer.Take(taken);
    read += taken;
  }
}

TEST(ReceiveBuffer, TakenBytesStayUntilTheNextRoom) {
  ReceiveBuffer buffer;
  Arrive(buffer, Pattern(1000));
  const std::span<std::byte> first = buffer.Unread().first(600);
  buffer.Take(600);
  EXPECT_TRUE(std::ranges::equal(first, Pattern(600)));
  EXPECT_EQ(buffer.Unread().data(), first.data() + 600);
}

// AddressSanitizer aborts if a byte is outside the buffer.
TEST(ReceiveBuffer, BytesAfterTheUnreadOnesAreReadable) {
  ReceiveBuffer buffer;
  for (int round = 0; round < 4; ++round) {
    const Bytes all = Pattern(buffer.Room(1).size());
    Arrive(buffer, all);
    std::byte sum{};
    const std::byte* const end = buffer.Unread().data() + buffer.Unread().size();
    for (std::size_t i = 0; i < kReadableBehindPacket; ++i) sum |= end[i];
    EXPECT_EQ(sum, std::byte{});
  }
}

TEST(ReceiveBuffer, FreesTheMemoryOfALongMessage) {
  ReceiveBuffer buffer;
  const std::size_t usual = buffer.Room(1).size();
  const Bytes all = Pattern(4194304);
  Arrive(buffer, all);
  buffer.Take(4194304 - 3);
  EXPECT_EQ(buffer.Room(65536).size(), usual - 3);
  EXPECT_TRUE(std::ranges::equal(buffer.Unread(), std::span(all).last(3)));
}

}  // namespace
}  // namespace tunnel
