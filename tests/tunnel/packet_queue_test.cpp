#include "tunnel/packet_queue.h"

#include <gtest/gtest.h>

#include <thread>

#include "tunnel/bytes.h"

namespace tunnel {
namespace {

Packet Numbered(std::uint32_t number) {
  Packet packet(4);
  WriteU32Be(packet, 0, number);
  return packet;
}

std::uint32_t NumberOf(const std::optional<Packet>& packet) {
  return packet ? ReadU32Be(*packet, 0) : 0xFFFFFFFF;
}

TEST(PacketQueue, GivesTheOldestFirst) {
  PacketQueue queue;
  queue.Start();
  queue.EnqueueOutbound(Numbered(1));
  queue.EnqueueOutbound(Numbered(2));
  EXPECT_EQ(NumberOf(queue.Take()), 1U);
  EXPECT_EQ(NumberOf(queue.Take()), 2U);
  EXPECT_EQ(queue.Size(), 0U);
}

TEST(PacketQueue, DropsTheFirstForThe4097th) {
  PacketQueue queue;
  queue.Start();
  for (std::uint32_t number = 1; number <= 4096; ++number) queue.EnqueueOutbound(Numbered(number));
  EXPECT_EQ(queue.Size(), 4096U);
  queue.EnqueueOutbound(Numbered(4097));
  EXPECT_EQ(queue.Size(), 4096U);
  for (std::uint32_t number = 2; number <= 4097; ++number) {
    ASSERT_EQ(NumberOf(queue.Take()), number);
  }
}

TEST(PacketQueue, HoldsTheNewestOf10000InOrderAndNeverMoreThanItsCapacity) {
  constexpr std::uint32_t kCount = 10000;
  PacketQueue queue;
  queue.Start();
  for (std::uint32_t number = 0; number < kCount; ++number) {
    queue.EnqueueOutbound(Numbered(number));
    ASSERT_LE(queue.Size(), PacketQueue::kCapacity);
  }
  for (std::uint32_t number = kCount - PacketQueue::kCapacity; number < kCount; ++number) {
    ASSERT_EQ(NumberOf(queue.Take()), number);
  }
  EXPECT_EQ(queue.Size(), 0U);
}

TEST(PacketQueue, GivesNothingOnceStoppedUntilStartedAfresh) {
  PacketQueue queue;
  EXPECT_FALSE(queue.Take());  // not started yet
  queue.Start();
  queue.EnqueueOutbound(Numbered(1));
  queue.Stop();
  EXPECT_FALSE(queue.Take());
  queue.Start();
  EXPECT_EQ(queue.Size(), 0U);
  queue.EnqueueOutbound(Numbered(2));
  EXPECT_EQ(NumberOf(queue.Take()), 2U);
}

TEST(PacketQueue, ForgetsItsPacketsWhenCleared) {
  PacketQueue queue;
  queue.Start();
  queue.EnqueueOutbound(Numbered(1));
  queue.Clear();
  EXPECT_EQ(queue.Size(), 0U);
}

TEST(PacketQueue, StopWakesEveryWaitingConsumer) {
  PacketQueue queue;
  queue.Start();
  std::vector<std::jthread> consumers;
  for (int index = 0; index < 3; ++index) {
    consumers.emplace_back([&queue] { EXPECT_FALSE(queue.Take()); });
  }
  queue.Stop();
}

TEST(PacketQueue, HandsPacketsFromOneThreadToAnotherInOrder) {
  PacketQueue queue;
  queue.Start();
  constexpr std::uint32_t kLast = 20000;
  std::uint32_t received = 0;
  std::uint32_t previous = 0;
  std::jthread consumer([&] {
    while (const std::optional<Packet> packet = queue.Take()) {
      EXPECT_GT(NumberOf(packet), previous);
      previous = NumberOf(packet);
      ++received;
      if (previous == kLast) return;
    }
  });
  for (std::uint32_t number = 1; number <= kLast; ++number) queue.EnqueueOutbound(Numbered(number));
  consumer.join();
  EXPECT_EQ(previous, kLast);
  EXPECT_GT(received, 0U);
}

}  // namespace
}  // namespace tunnel
