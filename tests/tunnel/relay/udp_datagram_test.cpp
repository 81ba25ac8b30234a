#include "tunnel/relay/udp_datagram.h"

#include <gtest/gtest.h>

#include <string>

#include "tunnel/relay/fake_datagrams.h"
#include "tunnel/relay/test_frames.h"

namespace tunnel {
namespace {

constexpr std::uint64_t kSomeToken = 0x0123456789ABCDEF;

Bytes Joined(std::initializer_list<Bytes> parts) {
  Bytes all;
  for (const Bytes& part : parts) Append(all, part);
  return all;
}

TEST(UdpHello, ContainsBothTextsWithTheirLengths) {
  struct Row {
    const wchar_t* connectionId;
    const wchar_t* engineerId;
    Bytes expected;
  };
  const Row rows[] = {
      {L"C1", L"ENG-1",
       Joined({BytesOf("TNR1"), BytesOf({2, 0, 2}), BytesOf("C1"), BytesOf({0, 5}),
               BytesOf("ENG-1")})},
      {L" \t C1\r\n",
       L"\x3000"
       L"E 1\x00A0",
       Joined(
           {BytesOf("TNR1"), BytesOf({2, 0, 2}), BytesOf("C1"), BytesOf({0, 3}), BytesOf("E 1")})},
      {L"", L"", Joined({BytesOf("TNR1"), BytesOf({2, 0, 0, 0, 0})})},
      {L"\x7EF4", L"\xD83D\xDE00",
       Joined({BytesOf("TNR1"), BytesOf({2, 0, 3, 0xE7, 0xBB, 0xB4}),
               BytesOf({0, 4, 0xF0, 0x9F, 0x98, 0x80})})},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(BuildHello(row.connectionId, row.engineerId), row.expected);
  }
}

TEST(UdpHello, TruncatesATextTooLongForItsLengthField) {
  for (const std::size_t size : {65534U, 65535U, 65536U, 70000U}) {
    const std::size_t kept = std::min<std::size_t>(size, 65535);
    const std::vector<std::byte> hello = BuildHello(std::wstring(size, L'x'), L"E");
    ASSERT_EQ(hello.size(), 5 + 2 + kept + 2 + 1);
    EXPECT_EQ(hello[5], static_cast<std::byte>(kept >> 8));
    EXPECT_EQ(hello[6], static_cast<std::byte>(kept & 0xFF));
    EXPECT_EQ(hello[7 + kept], std::byte{0});
    EXPECT_EQ(hello[8 + kept], std::byte{1});
    EXPECT_EQ(hello[9 + kept], std::byte{'E'});
  }
}

TEST(UdpAcknowledgement, ReturnsItsToken) {
  for (const std::uint64_t token : {kSomeToken, std::uint64_t{1}, ~std::uint64_t{0}}) {
    EXPECT_EQ(ParseAcknowledgement(AcknowledgementOf(token)), token);
  }
}

TEST(UdpAcknowledgement, AcceptsNothingElse) {
  const Bytes good = AcknowledgementOf(kSomeToken);
  for (std::size_t size = 0; size < good.size(); ++size) {
    EXPECT_FALSE(ParseAcknowledgement(std::span(good).first(size))) << size << " bytes";
  }
  struct Row {
    const char* name;
    Bytes datagram;
  };
  const auto changed = [&good](std::size_t at, int value) {
    Bytes bytes = good;
    bytes[at] = static_cast<std::byte>(value);
    return bytes;
  };
  const Row rows[] = {
      {"15 bytes", Joined({good, BytesOf({0})})},
      {"another magic", changed(0, 't')},
      {"another magic's end", changed(3, '2')},
      {"a hello", changed(4, 2)},
      {"a packet", changed(4, 4)},
      {"for a hello of the other type", changed(5, 1)},
      {"for no hello", changed(5, 0)},
      {"no token", AcknowledgementOf(0)},
  };
  for (const Row& row : rows) EXPECT_FALSE(ParseAcknowledgement(row.datagram)) << row.name;
}

TEST(UdpPacket, IsReadFromADatagramWithTheRightToken) {
  for (const std::size_t size : {1U, 20U, 1330U, 1387U}) {
    Bytes datagram = PacketDatagram(kSomeToken, Pattern(size));
    const auto packet = ParseUdpPacket(datagram, kSomeToken);
    ASSERT_TRUE(packet) << size << " bytes";
    EXPECT_EQ(Bytes(packet->begin(), packet->end()), Pattern(size));
    EXPECT_EQ(packet->data(), datagram.data() + 13);
  }
}

TEST(UdpPacket, AcceptsNothingElse) {
  struct Row {
    const char* name;
    Bytes datagram;
    std::uint64_t token;
  };
  Bytes otherMagic = PacketDatagram(kSomeToken, Pattern(20));
  otherMagic[2] = std::byte{'X'};
  Bytes otherType = PacketDatagram(kSomeToken, Pattern(20));
  otherType[4] = std::byte{5};
  const Row rows[] = {
      {"nothing", {}, kSomeToken},
      {"a header without a packet", PacketDatagram(kSomeToken, {}), kSomeToken},
      {"1401 bytes", PacketDatagram(kSomeToken, Pattern(1388)), kSomeToken},
      {"another magic", otherMagic, kSomeToken},
      {"another type", otherType, kSomeToken},
      {"another token", PacketDatagram(kSomeToken + 1, Pattern(20)), kSomeToken},
      {"no token in it", PacketDatagram(0, Pattern(20)), kSomeToken},
      {"no token yet", PacketDatagram(kSomeToken, Pattern(20)), 0},
      {"no token on either side", PacketDatagram(0, Pattern(20)), 0},
      {"an acknowledgement", AcknowledgementOf(kSomeToken), kSomeToken},
  };
  for (Row row : rows) EXPECT_FALSE(ParseUdpPacket(row.datagram, row.token)) << row.name;
}

TEST(UdpPacket, IsWrittenAfterItsHeader) {
  for (const std::size_t size : {0U, 20U, 1330U}) {
    Bytes room(kUdpHeaderBytes + kMaxUdpPacketBytes);
    const auto datagram = WriteUdpPacket(room, kSomeToken, Pattern(size));
    EXPECT_EQ(Bytes(datagram.begin(), datagram.end()), PacketDatagram(kSomeToken, Pattern(size)));
  }
}

}  // namespace
}  // namespace tunnel
