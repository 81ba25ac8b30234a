#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <future>
#include <thread>

#include "tests/driver_fixture.h"

using driver_test::Answer;
using driver_test::DriverLibrary;
using driver_test::kRecvOnly;
using driver_test::kSendOnly;
using driver_test::OpenHandle;
using packets::Bytes;

namespace {

TEST_F(DriverLibrary, CapturesWithThePublishedRecordLayout) {
  const OpenHandle handle(library_, "outbound and ip and udp");
  const Bytes sent =
      packets::Ip(17, packets::Udp(5000, 53, packets::Payload(40), 0xBEEF), own_.address);
  FromTun(sent);
  std::uint8_t raw[80];
  std::memset(raw, 0xEE, sizeof(raw));
  Bytes packet(65535);
  UINT bytes = 0;
  ASSERT_TRUE(
      library_.recv(handle.Get(), packet.data(), 65535, &bytes, reinterpret_cast<Record*>(raw)));
  ASSERT_EQ(bytes, sent.size());
  EXPECT_EQ(raw[8], 0);                // layer
  EXPECT_EQ(raw[9], 0);                // event
  EXPECT_EQ(raw[10] & ~0x04U, 0x02U);  // outbound; loopback only without a network
  EXPECT_EQ(raw[11], 0);
  std::uint32_t index = 0, subIndex = 1;
  std::int64_t ticks = 0;
  std::memcpy(&index, raw + 16, 4);
  std::memcpy(&subIndex, raw + 20, 4);
  std::memcpy(&ticks, raw, 8);
  EXPECT_EQ(index, own_.index);
  EXPECT_EQ(subIndex, 0U);
  LARGE_INTEGER now;
  ::QueryPerformanceCounter(&now);
  EXPECT_GT(ticks, 0);
  EXPECT_LE(ticks, now.QuadPart);
  // Zeroed as with checksum offload; the rest is unchanged.
  packet.resize(bytes);
  Bytes expected = sent;
  packets::SetWord(expected, 26, 0);
  EXPECT_EQ(packet, expected);
}

TEST_F(DriverLibrary, IgnoresUnmatchedPackets) {
  const OpenHandle handle(library_, "udp.DstPort == 2");
  FromTun(packets::Ip(17, packets::Udp(1, 3, {})));
  FromTun({0x60, 0, 0, 0, 0, 0, 58, 255});
  FromTun(packets::Ip(17, packets::Udp(1, 2, {})));
  const Answer answer = Recv(handle.Get());
  ASSERT_TRUE(answer.succeeded);
  EXPECT_EQ(packets::Word(answer.packet, 22), 2);
}

TEST_F(DriverLibrary, IgnoresPacketsWithAWrongLength) {
  const OpenHandle handle(library_, "true");
  Bytes longer = packets::Ip(17, packets::Udp(1, 3, packets::Payload(4)));
  Bytes shorter = longer;
  longer.push_back(0);
  shorter.pop_back();
  FromTun(longer);
  FromTun(shorter);
  FromTun(packets::Ip(17, packets::Udp(1, 2, {})));
  const Answer answer = Recv(handle.Get());
  ASSERT_TRUE(answer.succeeded);
  EXPECT_EQ(packets::Word(answer.packet, 22), 2);
}

TEST_F(DriverLibrary, APacketTooLargeForTheBufferIsLost) {
  const OpenHandle handle(library_, "true");
  const Bytes large = packets::Ip(17, packets::Udp(1, 2, packets::Payload(100)));
  FromTun(large);
  FromTun(packets::Ip(17, packets::Udp(1, 7, {})));
  const Answer cut = Recv(handle.Get(), 64);
  EXPECT_FALSE(cut.succeeded);
  EXPECT_EQ(cut.error, 122U);
  EXPECT_EQ(cut.bytes, 0xABCDU);
  EXPECT_EQ(cut.packet[19], large[19]);
  const Answer next = Recv(handle.Get());
  ASSERT_TRUE(next.succeeded);
  EXPECT_EQ(packets::Word(next.packet, 22), 7);
}

TEST_F(DriverLibrary, SendOnlyHandlesDoNotReceiveAndViceVersa) {
  const OpenHandle sender(library_, "false", -301, kSendOnly);
  const Answer received = Recv(sender.Get());
  EXPECT_FALSE(received.succeeded);
  EXPECT_EQ(received.error, 87U);
  const OpenHandle receiver(library_, "true", 0, kRecvOnly);
  EXPECT_EQ(Send(receiver.Get(), Reply(), InboundRecord()).error, 87U);
}

TEST_F(DriverLibrary, CloseWakesAPendingRecv) {
  int abortedCount = 0;
  for (int round = 0; round < 100; ++round) {
    OpenHandle handle(library_, "true");
    std::promise<void> started;
    auto pending = std::async(std::launch::async, [&, raw = handle.Get()] {
      started.set_value();
      return Recv(raw);
    });
    started.get_future().wait();
    std::this_thread::yield();
    handle.Close();
    ASSERT_EQ(pending.wait_for(std::chrono::seconds(5)), std::future_status::ready);
    const Answer answer = pending.get();
    EXPECT_FALSE(answer.succeeded);
    // 6 if the handle was closed before the call.
    ASSERT_TRUE(answer.error == 995U || answer.error == 6U) << answer.error;
    if (answer.error == 995U) ++abortedCount;
  }
  EXPECT_GT(abortedCount, 0);
}

TEST_F(DriverLibrary, ShutdownStillDeliversTheQueue) {
  const OpenHandle handle(library_, "true");
  FromTun(packets::Ip(17, packets::Udp(1, 1, {})));
  FromTun(packets::Ip(17, packets::Udp(1, 2, {})));
  FromTun(packets::Ip(17, packets::Udp(1, 3, {})));
  ASSERT_TRUE(Recv(handle.Get()).succeeded);
  WaitForQueued(library_, wire_, dllPort_);
  EXPECT_FALSE(library_.shutdown(handle.Get(), 4));
  EXPECT_EQ(::GetLastError(), 87U);
  ASSERT_TRUE(library_.shutdown(handle.Get(), 1));
  EXPECT_TRUE(Recv(handle.Get()).succeeded);
  EXPECT_TRUE(Recv(handle.Get()).succeeded);
  EXPECT_EQ(Recv(handle.Get()).error, 232U);
  EXPECT_TRUE(Send(handle.Get(), Reply(), InboundRecord()).succeeded);
  ASSERT_TRUE(library_.shutdown(handle.Get(), 2));
  EXPECT_EQ(Send(handle.Get(), Reply(), InboundRecord()).error, 22U);
}

TEST_F(DriverLibrary, InboundInjectionsReachTheTun) {
  const OpenHandle sender(library_, "false", -301, kSendOnly);
  const Bytes reply = Reply();
  const Answer answer = Send(sender.Get(), reply, InboundRecord());
  ASSERT_TRUE(answer.succeeded) << answer.error;
  EXPECT_EQ(answer.bytes, reply.size());
  EXPECT_EQ(wire_.Receive(), reply);
}

TEST_F(DriverLibrary, RefusesInjectionsWithThePublishedCodes) {
  const OpenHandle sender(library_, "false", -301, kSendOnly);
  const Bytes reply = Reply();
  EXPECT_EQ(Send(sender.Get(), reply, Record{}).error, 87U);
  Record unknown = InboundRecord();
  unknown.interfaceIndex = 0x7FFFFFF;
  EXPECT_EQ(Send(sender.Get(), reply, unknown).error, 87U);
  EXPECT_EQ(Send(sender.Get(), Bytes(reply.begin(), reply.begin() + 19), InboundRecord()).error,
            122U);
  EXPECT_EQ(Send(sender.Get(), Bytes(reply.begin(), reply.end() - 1), InboundRecord()).error, 122U);
  EXPECT_FALSE(
      library_.send(sender.Get(), reply.data(), static_cast<UINT>(reply.size()), nullptr, nullptr));
  EXPECT_EQ(::GetLastError(), 87U);
}

TEST_F(DriverLibrary, DropsInboundPacketsWithWrongChecksumsOrForOtherHosts) {
  const OpenHandle sender(library_, "false", -301, kSendOnly);
  const Bytes reply = Reply();
  for (const std::size_t at : {10U, 26U, 40U}) {
    Bytes damaged = reply;
    damaged[at] ^= 0x01U;
    EXPECT_TRUE(Send(sender.Get(), damaged, InboundRecord()).succeeded);
  }
  Bytes elsewhere = packets::Ip(17, packets::Udp(53, 5000, {}), packets::kDestination, 0x01020304);
  library_.calc(elsewhere.data(), static_cast<UINT>(elsewhere.size()), nullptr, 0);
  EXPECT_TRUE(Send(sender.Get(), elsewhere, InboundRecord()).succeeded);
  // Only the last one comes out.
  ASSERT_TRUE(Send(sender.Get(), reply, InboundRecord()).succeeded);
  EXPECT_EQ(wire_.Receive(), reply);
}

TEST_F(DriverLibrary, ReinjectsACapturedPacketWithItsChecksums) {
  const OpenHandle capture(library_, "true");
  const OpenHandle sender(library_, "false", -301, kSendOnly);
  for (const Bytes& transport :
       {packets::Udp(1, 2, packets::Payload(9)), packets::Icmp(packets::Payload(9))}) {
    const bool icmp = transport[0] == 8;
    Bytes whole = packets::Ip(icmp ? 1 : 17, transport, own_.address);
    library_.calc(whole.data(), static_cast<UINT>(whole.size()), nullptr, 0);
    FromTun(whole);
    const Answer captured = Recv(capture.Get());
    ASSERT_TRUE(captured.succeeded);
    ASSERT_TRUE(Send(sender.Get(), captured.packet, captured.record).succeeded);
    EXPECT_EQ(wire_.Receive(), whole);
  }
}

TEST_F(DriverLibrary, ClosingSendsUnreadPacketsOn) {
  OpenHandle capture(library_, "true");
  Bytes first = packets::Ip(17, packets::Udp(1, 2, packets::Payload(9)), own_.address);
  library_.calc(first.data(), static_cast<UINT>(first.size()), nullptr, 0);
  FromTun(first);
  WaitForQueued(library_, wire_, dllPort_);
  capture.Close();
  EXPECT_EQ(wire_.Receive(), first);
}

TEST_F(DriverLibrary, TheExtendedCallsSendAndReceive) {
  const OpenHandle handle(library_, "true");
  FromTun(packets::Ip(17, packets::Udp(1, 2, {})));
  Bytes packet(100);
  UINT bytes = 0;
  Record records[2] = {};
  UINT recordBytes = sizeof(records);
  ASSERT_TRUE(
      library_.recvEx(handle.Get(), packet.data(), 100, &bytes, 0, records, &recordBytes, nullptr));
  EXPECT_EQ(bytes, 28U);
  EXPECT_EQ(recordBytes, 80U);
  const Bytes reply = Reply();
  const Bytes two = packets::Join(reply, reply);
  records[0] = records[1] = InboundRecord();
  ASSERT_TRUE(library_.sendEx(handle.Get(), two.data(), static_cast<UINT>(two.size()), &bytes, 0,
                              records, sizeof(records), nullptr));
  EXPECT_EQ(bytes, two.size());
  EXPECT_EQ(wire_.Receive(), reply);
  EXPECT_EQ(wire_.Receive(), reply);
}

}  // namespace
