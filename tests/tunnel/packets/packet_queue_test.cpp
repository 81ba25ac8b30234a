#include "tunnel/packets/packet_queue.h"

#include <gtest/gtest.h>

#include <thread>

#include "tunnel/packets/bytes.h"
#include "tunnel/packets/queue_reader.h"

namespace tunnel {
namespace {

Packet Numbered(std::uint32_t number) {
  Packet packet(4);
  WriteU32Be(packet, 0, number);
  return packet;
}

std::uint32_t NumberOf(std::span<const std::byte> packet) {
  return ReadU32Be(packet, 0);
}

// Waits for a batch and returns its numbers.
std::vector<std::uint32_t> TakeNumbers(PacketQueue& queue) {
  std::vector<Packet> batch;
  std::vector<std::uint32_t> numbers;
  EXPECT_TRUE(queue.Take(batch));
  for (const Packet& packet : batch) numbers.push_back(NumberOf(packet));
  return numbers;
}

TEST(PacketQueue, ReturnsAllWaitingPacketsOldestFirst) {
  PacketQueue queue;
  queue.Start();
  for (const std::uint32_t number : {1U, 2U, 3U}) queue.EnqueueOutbound(Numbered(number));
  EXPECT_EQ(TakeNumbers(queue), (std::vector<std::uint32_t>{1, 2, 3}));
  EXPECT_EQ(queue.Size(), 0U);
  queue.EnqueueOutbound(Numbered(4));
  EXPECT_EQ(TakeNumbers(queue), std::vector<std::uint32_t>{4});
}

TEST(PacketQueue, LimitsABatchToOneSend) {
  const struct {
    std::size_t packetBytes;
    std::size_t packets;
  } rows[] = {{56, 1024}, {57, 1008}, {1320, 49}, {40000, 1}, {65528, 1}, {65529, 1}, {70000, 1}};
  for (const auto& row : rows) {
    PacketQueue queue;
    queue.Start();
    for (int index = 0; index < 2000; ++index) queue.EnqueueOutbound(Packet(row.packetBytes));
    std::vector<Packet> batch;
    ASSERT_TRUE(queue.Take(batch));
    EXPECT_EQ(batch.size(), row.packets) << row.packetBytes;
    EXPECT_EQ(queue.Size(), 2000 - row.packets);
  }
}

TEST(PacketQueue, RecyclesTheMemoryOfABatch) {
  PacketQueue queue;
  queue.Start();
  std::vector<Packet> batch;
  queue.EnqueueOutbound(Packet(1000));
  ASSERT_TRUE(queue.Take(batch));
  const std::byte* const memory = batch.at(0).data();
  queue.EnqueueOutbound(Packet(100));
  ASSERT_TRUE(queue.Take(batch));
  queue.EnqueueOutbound(Packet(900));
  ASSERT_TRUE(queue.Take(batch));
  EXPECT_EQ(batch.at(0).data(), memory);
  EXPECT_EQ(batch.at(0), Packet(900));
}

TEST(PacketQueue, KeepsTheMemoryOfAFewLongPacketsOnly) {
  PacketQueue queue;
  queue.Start();
  std::vector<Packet> batch;
  for (int index = 0; index < 1000; ++index) queue.EnqueueOutbound(Packet(60000));
  while (queue.Size() > 0) ASSERT_TRUE(queue.Take(batch));
  std::size_t kept = 0;
  for (int index = 0; index < 1000; ++index) queue.EnqueueOutbound(Packet(1));
  while (queue.Size() > 0) {
    ASSERT_TRUE(queue.Take(batch));
    for (const Packet& packet : batch) kept += packet.capacity();
  }
  EXPECT_LT(kept, 5000000U);
}

TEST(PacketQueue, DropsTheOldestForThe4097th) {
  PacketQueue queue;
  queue.Start();
  for (std::uint32_t number = 1; number <= 4096; ++number) queue.EnqueueOutbound(Numbered(number));
  EXPECT_EQ(queue.Size(), 4096U);
  queue.EnqueueOutbound(Numbered(4097));
  EXPECT_EQ(queue.Size(), 4096U);
  QueueReader reader(queue);
  for (std::uint32_t number = 2; number <= 4097; ++number) {
    ASSERT_EQ(NumberOf(reader.Next().value()), number);
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
  QueueReader reader(queue);
  for (std::uint32_t number = kCount - PacketQueue::kCapacity; number < kCount; ++number) {
    ASSERT_EQ(NumberOf(reader.Next().value()), number);
  }
  EXPECT_EQ(queue.Size(), 0U);
}

TEST(PacketQueue, ReturnsNothingFromStopUntilStart) {
  PacketQueue queue;
  std::vector<Packet> batch(1);
  EXPECT_FALSE(queue.Take(batch));  // not started yet
  EXPECT_TRUE(batch.empty());
  queue.Start();
  queue.EnqueueOutbound(Numbered(1));
  queue.Stop();
  EXPECT_FALSE(queue.Take(batch));
  queue.Start();
  EXPECT_EQ(queue.Size(), 0U);
  queue.EnqueueOutbound(Numbered(2));
  EXPECT_EQ(TakeNumbers(queue), std::vector<std::uint32_t>{2});
}

TEST(PacketQueue, ForgetsItsPacketsWhenCleared) {
  PacketQueue queue;
  queue.Start();
  queue.EnqueueOutbound(Numbered(1));
  queue.Clear();
  EXPECT_EQ(queue.Size(), 0U);
  queue.EnqueueOutbound(Numbered(2));
  EXPECT_EQ(TakeNumbers(queue), std::vector<std::uint32_t>{2});
}

TEST(PacketQueue, StopWakesEveryWaitingConsumer) {
  PacketQueue queue;
  queue.Start();
  std::vector<std::jthread> consumers;
  for (int index = 0; index < 3; ++index) {
    consumers.emplace_back([&queue] {
      std::vector<Packet> batch;
      EXPECT_FALSE(queue.Take(batch));
    });
  }
  queue.Stop();
}

TEST(PacketQueue, PassesPacketsBetweenThreadsInOrder) {
  PacketQueue queue;
  queue.Start();
  constexpr std::uint32_t kLast = 20000;
  std::uint32_t received = 0;
  std::uint32_t previous = 0;
  std::jthread consumer([&] {
    QueueReader reader(queue);
    while (const std::optional<Packet> packet = reader.Next()) {
      EXPECT_GT(NumberOf(*packet), previous);
      previous = NumberOf(*packet);
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
