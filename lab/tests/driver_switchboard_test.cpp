#include "driver/switchboard.h"

#include <gtest/gtest.h>

#include "driver/checksums.h"
#include "driver/packet.h"
#include "tests/driver_packets.h"

namespace {

using driver::Address;
using driver::Captured;
using driver::Filter;
using driver::Packet;
using driver::PacketQueue;
using driver::Switchboard;

Packet Udp() {
  Packet packet = packets::Ip(17, packets::Udp(1, 2, packets::Payload(10)));
  driver::CalcChecksums(packet, nullptr, 0);
  return packet;
}

Address Outbound() {
  Address address;
  address.flags =
      driver::kAddressOutbound | driver::kAddressIpChecksum | driver::kAddressUdpChecksum;
  address.interfaceIndex = 3;
  return address;
}

std::shared_ptr<driver::Handle> Open(Switchboard& board, const char* filter, int priority,
                                     std::uint64_t flags = 0) {
  return board.Add(*Filter::Compile(filter), filter, priority, flags);
}

Captured Sized(std::size_t bytes, std::uint8_t mark = 0) {
  return {Packet(bytes, mark), {}};
}

TEST(PacketQueue, TheNewestDisplacesTheOldestAtTheLengthLimit) {
  PacketQueue queue;
  for (int i = 0; i < 4097; ++i) {
    queue.Push(Sized(20, static_cast<std::uint8_t>(i % 251)), 0);
  }
  EXPECT_EQ(queue.LostCount(), 1U);
  const auto oldest = queue.Pop(0);
  ASSERT_TRUE(oldest);
  EXPECT_EQ(oldest->bytes[0], 1);
}

TEST(PacketQueue, HoldsFourMegabytes) {
  PacketQueue queue;
  for (int i = 0; i < 64; ++i) queue.Push(Sized(65536), 0);
  EXPECT_EQ(queue.LostCount(), 0U);
  queue.Push(Sized(1), 0);
  EXPECT_EQ(queue.LostCount(), 1U);
  queue.Push(Sized(65536), 0);
  EXPECT_EQ(queue.LostCount(), 2U);
}

TEST(PacketQueue, DropsExpiredPackets) {
  PacketQueue queue;
  queue.Push(Sized(20, 1), 0);
  queue.Push(Sized(20, 2), 1);
  const auto left = queue.Pop(2001);
  ASSERT_TRUE(left);
  EXPECT_EQ(left->bytes[0], 2);
  EXPECT_FALSE(queue.Pop(2001));
  EXPECT_EQ(queue.LostCount(), 1U);
}

TEST(PacketQueue, AcceptsParametersWithinThePublishedLimits) {
  struct Row {
    PacketQueue::Param param;
    std::uint64_t standard, least, most;
  };
  for (const Row& row : {Row{PacketQueue::Param::Length, 4096, 32, 16384},
                         Row{PacketQueue::Param::TimeMs, 2000, 100, 16000},
                         Row{PacketQueue::Param::SizeBytes, 4194304, 65535, 33554432}}) {
    PacketQueue queue;
    EXPECT_EQ(queue.GetParam(row.param), row.standard);
    EXPECT_FALSE(queue.SetParam(row.param, row.least - 1));
    EXPECT_FALSE(queue.SetParam(row.param, row.most + 1));
    EXPECT_EQ(queue.GetParam(row.param), row.standard);
    EXPECT_TRUE(queue.SetParam(row.param, row.least));
    EXPECT_EQ(queue.GetParam(row.param), row.least);
    EXPECT_TRUE(queue.SetParam(row.param, row.most));
  }
  PacketQueue queue;
  EXPECT_FALSE(queue.SetParam(static_cast<PacketQueue::Param>(3), 100));
}

TEST(PacketQueue, AShorterLimitAppliesFromTheNextPacket) {
  PacketQueue queue;
  ASSERT_TRUE(queue.SetParam(PacketQueue::Param::Length, 32));
  for (int i = 0; i < 40; ++i) queue.Push(Sized(20), 0);
  EXPECT_EQ(queue.LostCount(), 8U);
}

TEST(Switchboard, TheHighestPriorityTakesThePacket) {
  Switchboard board;
  const auto low = Open(board, "true", -300);
  const auto high = Open(board, "true", 5);
  const auto offer = board.Show(Udp(), Outbound(), nullptr, 0);
  EXPECT_TRUE(offer.isTaken);
  EXPECT_FALSE(high->queue.IsEmpty());
  EXPECT_TRUE(low->queue.IsEmpty());
}

TEST(Switchboard, UnmatchedPacketsAreNotTaken) {
  Switchboard board;
  Open(board, "tcp", 0);
  Open(board, "false", -301, driver::kFlagSendOnly);
  const auto offer = board.Show(Udp(), Outbound(), nullptr, 0);
  EXPECT_FALSE(offer.isTaken);
  EXPECT_TRUE(offer.queued.empty());
}

TEST(Switchboard, SniffingCopiesAndDroppingSwallows) {
  Switchboard board;
  const auto sniffer = Open(board, "udp", 2, driver::kFlagSniff);
  const auto dropper = Open(board, "udp", 1, driver::kFlagDrop);
  const auto last = Open(board, "udp", 0);
  EXPECT_TRUE(board.Show(Udp(), Outbound(), nullptr, 0).isTaken);
  const auto copy = sniffer->queue.Pop(0);
  ASSERT_TRUE(copy);
  EXPECT_NE(copy->address.flags & driver::kAddressSniffed, 0U);
  EXPECT_TRUE(dropper->queue.IsEmpty());
  EXPECT_EQ(dropper->capturedCount, 1U);
  EXPECT_TRUE(last->queue.IsEmpty());
}

TEST(Switchboard, AnInjectionIsShownOnlyToHandlesBelowItsSender) {
  Switchboard board;
  const auto capture = Open(board, "true", -300);
  const auto sender = Open(board, "false", -301, driver::kFlagSendOnly);
  EXPECT_FALSE(board.Show(Udp(), Outbound(), sender.get(), 0).isTaken);
  EXPECT_FALSE(board.Show(Udp(), Outbound(), capture.get(), 0).isTaken);
  const auto below = Open(board, "true", -302);
  EXPECT_TRUE(board.Show(Udp(), Outbound(), sender.get(), 0).isTaken);
  EXPECT_FALSE(below->queue.IsEmpty());
  EXPECT_TRUE(capture->queue.IsEmpty());
}

TEST(Switchboard, EqualPrioritiesSeePacketsInOrderOfOpening) {
  Switchboard board;
  const auto first = Open(board, "true", 0);
  const auto second = Open(board, "true", 0);
  board.Show(Udp(), Outbound(), nullptr, 0);
  EXPECT_EQ(first->capturedCount, 1U);
  EXPECT_EQ(second->capturedCount, 0U);
}

TEST(Switchboard, DeliversPacketsWithoutChecksums) {
  Switchboard board;
  const auto handle = Open(board, "true", 0);
  board.Show(Udp(), Outbound(), nullptr, 0);
  const auto captured = handle->queue.Pop(0);
  ASSERT_TRUE(captured);
  EXPECT_EQ(packets::Word(captured->bytes, 10), 0);
  EXPECT_EQ(packets::Word(captured->bytes, 26), 0);
  EXPECT_EQ(captured->address.flags, driver::kAddressOutbound);
  EXPECT_EQ(captured->address.interfaceIndex, 3U);
}

TEST(Switchboard, PacketsWithAWrongLengthPassUnseen) {
  Switchboard board;
  const auto handle = Open(board, "true", 0);
  Packet longer = Udp();
  longer.push_back(0);
  Packet shorter = Udp();
  shorter.pop_back();
  EXPECT_FALSE(board.Show(longer, Outbound(), nullptr, 0).isTaken);
  EXPECT_FALSE(board.Show(shorter, Outbound(), nullptr, 0).isTaken);
  EXPECT_EQ(handle->capturedCount, 0U);
}

TEST(Switchboard, ForgetsRemovedHandlesAndShutOnesCaptureNothing) {
  Switchboard board;
  const auto handle = Open(board, "true", 0);
  handle->receivingEnded = true;
  EXPECT_FALSE(board.Show(Udp(), Outbound(), nullptr, 0).isTaken);
  const std::uint64_t id = handle->id;
  EXPECT_EQ(board.Find(id), handle);
  board.Remove(id);
  EXPECT_EQ(board.Find(id), nullptr);
  EXPECT_TRUE(board.IsEmpty());
  EXPECT_NE(Open(board, "true", 0)->id, id);
}

TEST(Injection, IsRefusedWithThePublishedCodes) {
  const Packet sane = Udp();
  Packet version = sane, noLength = sane, badHeader = sane;
  version[0] = 0x35;
  packets::SetWord(noLength, 2, 0);
  badHeader[0] = 0x44;
  Address inbound;
  inbound.interfaceIndex = 3;
  Address nowhere;
  struct Row {
    const char* name;
    Packet packet;
    Address address;
    std::uint32_t error;
  };
  const Row rows[] = {
      {"inbound", sane, inbound, 0},
      {"outbound without interface", sane, Outbound(), 0},
      {"empty", {}, inbound, 122},
      {"19 bytes", Packet(sane.begin(), sane.begin() + 19), inbound, 122},
      {"fewer than its length", Packet(sane.begin(), sane.end() - 1), inbound, 122},
      {"version 3", version, inbound, 87},
      {"length 0", noLength, inbound, 1450},
      {"header under 20", badHeader, inbound, 87},
      {"inbound without interface", sane, nowhere, 87},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(driver::CheckInjection(row.packet, row.address), row.error) << row.name;
  }
}

TEST(OpenArguments, AreWithinThePublishedLimits) {
  EXPECT_TRUE(driver::IsValidOpen(0, -300, 0));
  EXPECT_TRUE(driver::IsValidOpen(0, -301, driver::kFlagSendOnly));
  EXPECT_TRUE(driver::IsValidOpen(0, 30000, 0x3F & ~(2U | 8U)));
  EXPECT_TRUE(driver::IsValidOpen(0, -30000, 0));
  EXPECT_FALSE(driver::IsValidOpen(0, 30001, 0));
  EXPECT_FALSE(driver::IsValidOpen(0, -30001, 0));
  EXPECT_FALSE(driver::IsValidOpen(0, 0, 0x40));
  EXPECT_FALSE(driver::IsValidOpen(0, 0, driver::kFlagSniff | driver::kFlagDrop));
  EXPECT_FALSE(driver::IsValidOpen(0, 0, driver::kFlagRecvOnly | driver::kFlagSendOnly));
  EXPECT_FALSE(driver::IsValidOpen(5, 0, 0));
}

}  // namespace
