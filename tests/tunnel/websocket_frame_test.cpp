#include "tunnel/websocket_frame.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "tunnel/test_frames.h"

namespace tunnel {
namespace {

constexpr int kFin = 0x80;

// What a reader made of a stream, as text for comparing: "M:abc P:x END".
std::string Describe(FrameReader& reader, std::span<const std::byte> stream, std::size_t chunk) {
  std::string seen;
  while (!stream.empty()) {
    std::span<const std::byte> piece = stream.first(std::min(chunk, stream.size()));
    stream = stream.subspan(piece.size());
    for (;;) {
      const FrameReader::Result result = reader.Feed(piece);
      piece = piece.subspan(result.takenBytes);
      if (result.event == FrameEvent::NeedMore) {
        EXPECT_TRUE(piece.empty());
        break;
      }
      if (result.event == FrameEvent::Ended) return seen + "END";
      seen += result.event == FrameEvent::Message ? "M:" : "P:";
      for (const std::byte byte : reader.Payload()) seen += std::to_integer<char>(byte);
      seen += ' ';
    }
  }
  return seen;
}

std::string Describe(std::span<const std::byte> stream, std::size_t chunk = 1 << 20) {
  FrameReader reader;
  return Describe(reader, stream, chunk);
}

Bytes Join(std::initializer_list<Bytes> parts) {
  Bytes all;
  for (const Bytes& part : parts) Append(all, part);
  return all;
}

Bytes Masked(int firstByte, std::string_view payload, std::uint32_t key) {
  Bytes frame = BytesOf({firstByte, static_cast<int>(0x80 | payload.size())});
  for (int shift = 24; shift >= 0; shift -= 8) {
    frame.push_back(static_cast<std::byte>(key >> shift));
  }
  for (std::size_t i = 0; i < payload.size(); ++i) {
    frame.push_back(static_cast<std::byte>(payload[i]) ^ frame[2 + i % 4]);
  }
  return frame;
}

TEST(FrameWriter, MixesTheFrameNumberIntoTheMaskingKey) {
  EXPECT_EQ(MakeMaskKey(0, 0), 0x9E3779B9U);
  EXPECT_EQ(MakeMaskKey(1, 0), 0x3C6EF372U);
  EXPECT_EQ(MakeMaskKey(0, 0xFFFFFFFFU), 0x61C88646U);
  EXPECT_EQ(MakeMaskKey(0xFFFFFFFFU, 5), 5U);
}

TEST(FrameWriter, WritesTheExampleOfTheRfc) {
  // RFC 6455, section 5.7: a masked "Hello", there as text.
  EXPECT_EQ(EncodeFrame(kOpcodeText, BytesOf("Hello"), 0x37FA213D),
            BytesOf({0x81, 0x85, 0x37, 0xFA, 0x21, 0x3D, 0x7F, 0x9F, 0x4D, 0x51, 0x58}));
}

TEST(FrameWriter, ChoosesTheShortestLengthForm) {
  const struct {
    std::size_t size;
    Bytes header;
  } rows[] = {
      {0, BytesOf({0x82, 0x80})},
      {125, BytesOf({0x82, 0xFD})},
      {126, BytesOf({0x82, 0xFE, 0x00, 0x7E})},
      {65535, BytesOf({0x82, 0xFE, 0xFF, 0xFF})},
      {65536, BytesOf({0x82, 0xFF, 0, 0, 0, 0, 0, 1, 0, 0})},
      {70000, BytesOf({0x82, 0xFF, 0, 0, 0, 0, 0, 1, 0x11, 0x70})},
  };
  for (const auto& row : rows) {
    const Bytes frame = EncodeFrame(kOpcodeBinary, Pattern(row.size), 0);
    Bytes expected = row.header;
    Append(expected, BytesOf({0, 0, 0, 0}));  // a key of 0 leaves the payload as it is
    Append(expected, Pattern(row.size));
    EXPECT_EQ(frame, expected) << row.size;
  }
}

TEST(FrameWriter, MasksFromAnyOffset) {
  const Bytes plain = Pattern(1000);
  const Bytes masked = EncodeFrame(kOpcodeBinary, plain, 0x01020304);
  for (std::size_t offset = 0; offset < 9; ++offset) {
    Bytes tail(masked.begin() + 8 + static_cast<std::ptrdiff_t>(offset), masked.end());
    ApplyMask(tail, 0x01020304, offset);
    EXPECT_TRUE(std::equal(tail.begin(), tail.end(), plain.begin() + static_cast<int>(offset)));
  }
}

TEST(FrameReader, ReadsTheSameHoweverTheStreamIsCut) {
  const struct {
    const char* name;
    Bytes stream;
    const char* seen;
  } rows[] = {
      {"one message", ServerFrame(kFin | 2, BytesOf("abc")), "M:abc "},
      {"empty message", ServerFrame(kFin | 2, {}), "M: "},
      {"masked message", Masked(kFin | 2, "masked by a server", 0xA1B2C3D4),
       "M:masked by a server "},
      {"two messages",
       Join({ServerFrame(kFin | 2, BytesOf("a")), ServerFrame(kFin | 2, BytesOf("b"))}),
       "M:a M:b "},
      {"fragments",
       Join({ServerFrame(2, BytesOf("a")), ServerFrame(0, BytesOf("b")), Masked(0, "c", 0x55667788),
             ServerFrame(kFin, BytesOf("d"))}),
       "M:abcd "},
      {"empty fragments",
       Join({ServerFrame(2, {}), ServerFrame(0, {}), ServerFrame(kFin, BytesOf("x"))}), "M:x "},
      {"ping inside a fragmented message",
       Join({ServerFrame(2, BytesOf("a")), ServerFrame(kFin | 9, BytesOf("hi")),
             ServerFrame(kFin, BytesOf("b"))}),
       "P:hi M:ab "},
      {"empty and masked pings",
       Join({ServerFrame(kFin | 9, {}), Masked(kFin | 9, "key", 0x01020304)}), "P: P:key "},
      {"pong passed over",
       Join({ServerFrame(kFin | 10, BytesOf("old")), ServerFrame(kFin | 2, BytesOf("a"))}), "M:a "},
      {"text passed over",
       Join({ServerFrame(kFin | 1, BytesOf("text")), ServerFrame(kFin | 2, BytesOf("a"))}), "M:a "},
      {"only the text frame itself is passed over",
       Join({ServerFrame(1, BytesOf("te")), ServerFrame(0, BytesOf("x")),
             ServerFrame(kFin, BytesOf("t")), ServerFrame(kFin | 2, BytesOf("a"))}),
       "M:xt M:a "},
      {"ping after a text passed over",
       Join({ServerFrame(1, BytesOf("te")), ServerFrame(kFin | 9, BytesOf("p")),
             ServerFrame(kFin, BytesOf("xt")), ServerFrame(kFin | 2, BytesOf("a"))}),
       "P:p M:xt M:a "},
      {"binary after a text that never ended",
       Join({ServerFrame(1, BytesOf("te")), ServerFrame(2, BytesOf("a")),
             ServerFrame(kFin, BytesOf("b"))}),
       "M:ab "},
      {"whole text inside a fragmented message",
       Join({ServerFrame(2, BytesOf("a")), ServerFrame(kFin | 1, BytesOf("text")),
             ServerFrame(kFin, BytesOf("b"))}),
       "M:ab "},
      {"unknown opcodes passed over",
       Join({ServerFrame(kFin | 3, BytesOf("3")), ServerFrame(kFin | 7, BytesOf("7")),
             ServerFrame(kFin | 11, BytesOf("b")), ServerFrame(kFin | 15, BytesOf("f")),
             ServerFrame(11, BytesOf("b")), ServerFrame(kFin | 2, BytesOf("a"))}),
       "M:a "},
      {"continuation of nothing is a message", ServerFrame(kFin, BytesOf("a")), "M:a "},
      {"reserved bits are not looked at", ServerFrame(0xF2, BytesOf("a")), "M:a "},
      {"close ends",
       Join({ServerFrame(kFin | 2, BytesOf("a")), ServerFrame(kFin | 8, {}),
             ServerFrame(kFin | 2, BytesOf("b"))}),
       "M:a END"},
      {"long forms of short lengths",
       Join({BytesOf({0x82, 126, 0, 1, 'a'}), BytesOf({0x82, 127, 0, 0, 0, 0, 0, 0, 0, 1, 'b'})}),
       "M:a M:b "},
  };
  for (const auto& row : rows) {
    for (const std::size_t chunk : {1U, 2U, 3U, 5U, 7U, 1000U}) {
      EXPECT_EQ(Describe(row.stream, chunk), row.seen) << row.name << ", chunks of " << chunk;
    }
  }
}

TEST(FrameReader, TruncatedFrameDeliversNothing) {
  for (const Bytes& frame :
       {Masked(kFin | 2, "masked", 7), ServerFrame(kFin | 2, Pattern(200)),
        ServerFrame(kFin | 2, Pattern(65536)), ServerFrame(kFin | 8, BytesOf("bye"))}) {
    for (std::size_t cut = 0; cut < std::min<std::size_t>(frame.size(), 300); ++cut) {
      EXPECT_EQ(Describe(std::span(frame).first(cut)), "") << cut;
    }
    EXPECT_EQ(Describe(std::span(frame).first(frame.size() - 1)), "");
    EXPECT_NE(Describe(frame), "");
  }
}

TEST(FrameReader, ReadsEachLengthForm) {
  for (const std::size_t size : {0U, 1U, 125U, 126U, 65535U, 65536U, 4194304U}) {
    const Bytes payload = Pattern(size);
    FrameReader reader;
    const FrameReader::Result result = reader.Feed(ServerFrame(kFin | 2, payload));
    ASSERT_EQ(result.event, FrameEvent::Message) << size;
    EXPECT_TRUE(std::ranges::equal(reader.Payload(), payload)) << size;
  }
}

TEST(FrameReader, ReadsBackWhatTheWriterWrote) {
  for (const std::size_t size : {0U, 125U, 126U, 65536U}) {
    FrameReader reader;
    const Bytes frame = EncodeFrame(kOpcodeBinary, Pattern(size), MakeMaskKey(3, 99));
    ASSERT_EQ(reader.Feed(frame).event, FrameEvent::Message);
    EXPECT_TRUE(std::ranges::equal(reader.Payload(), Pattern(size)));
  }
}

TEST(FrameReader, LengthOverTheLimitEndsAtTheHeader) {
  const Bytes rows[] = {
      BytesOf({0x82, 127, 0, 0, 0, 0, 0, 0x40, 0, 1}),  // one past 4 MiB
      BytesOf({0x82, 127, 0, 0, 0, 1, 0, 0, 0, 0}),     // 4 GiB
      BytesOf({0x82, 127, 0x80, 0, 0, 0, 0, 0, 0, 0}),  // top bit
      BytesOf({0x82, 127, 255, 255, 255, 255, 255, 255, 255, 255}),
      BytesOf({0x81, 127, 0, 0, 0, 0, 0, 0x40, 0, 1}),  // also where it would be passed over
      BytesOf({0x89, 127, 0, 0, 0, 0, 0, 0x40, 0, 1}),
  };
  for (const Bytes& header : rows) {
    FrameReader reader;
    EXPECT_EQ(reader.Feed(std::span(header).first(9)).event, FrameEvent::NeedMore);
    EXPECT_EQ(reader.Feed(std::span(header).subspan(9)).event, FrameEvent::Ended);
    EXPECT_TRUE(reader.Payload().empty());
  }
}

TEST(FrameReader, FragmentsTogetherMayReachTheLimitAndNoMore) {
  for (const std::size_t last : {1U, 2U}) {
    FrameReader reader;
    EXPECT_EQ(reader.Feed(ServerFrame(2, Pattern(kMaxMessageBytes - 1))).event,
              FrameEvent::NeedMore);
    const FrameReader::Result result = reader.Feed(ServerFrame(kFin, Pattern(last)));
    EXPECT_EQ(result.event, last == 1 ? FrameEvent::Message : FrameEvent::Ended);
    // The header alone told it.
    EXPECT_EQ(result.takenBytes, last == 1 ? 3U : 2U);
  }
}

TEST(FrameReader, WhatIsPassedOverOrAPingIsNotCountedAgainstTheMessage) {
  for (const int firstByte : {kFin | 1, 3, kFin | 9, kFin | 10}) {
    FrameReader reader;
    EXPECT_EQ(reader.Feed(ServerFrame(2, BytesOf("a"))).event, FrameEvent::NeedMore);
    EXPECT_NE(reader.Feed(ServerFrame(firstByte, Pattern(kMaxMessageBytes))).event,
              FrameEvent::Ended);
    EXPECT_EQ(Describe(reader, ServerFrame(kFin, BytesOf("b")), 100), "M:ab ") << firstByte;
  }
}

TEST(FrameReader, StaysEnded) {
  FrameReader reader;
  EXPECT_EQ(reader.Feed(ServerFrame(kFin | 8, {})).event, FrameEvent::Ended);
  const FrameReader::Result result = reader.Feed(ServerFrame(kFin | 2, BytesOf("a")));
  EXPECT_EQ(result.event, FrameEvent::Ended);
  EXPECT_EQ(result.takenBytes, 0U);
}

}  // namespace
}  // namespace tunnel
