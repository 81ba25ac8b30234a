#include "tunnel/relay/websocket_protocol.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "tunnel/relay/test_frames.h"
#include "tunnel/relay/websocket_relay.h"

namespace tunnel {
namespace {

constexpr int kFin = 0x80;

// The events of a reader fed in small pieces, as text: "M:abc P:x END".
class Stream {
 public:
  void Arrive(std::span<const std::byte> bytes) {
    std::ranges::copy(bytes, buffer_.Room(bytes.size()).begin());
    buffer_.Add(bytes.size());
    while (!hasEnded_ && ReadOne()) {
    }
  }
  [[nodiscard]] const std::string& Seen() const { return seen_; }
  [[nodiscard]] std::size_t UnreadBytes() { return buffer_.Unread().size(); }

 private:
  bool ReadOne() {
    const FrameReader::Result result = reader_.Feed(buffer_.Unread());
    buffer_.Take(result.takenBytes);
    if (result.event == FrameEvent::NeedMore) return false;
    hasEnded_ = result.event == FrameEvent::Ended;
    seen_ += hasEnded_ ? "END" : result.event == FrameEvent::Message ? "M:" : "P:";
    for (const std::byte byte : reader_.Payload()) seen_ += std::to_integer<char>(byte);
    if (!hasEnded_) seen_ += ' ';
    return true;
  }

  FrameReader reader_;
  ReceiveBuffer buffer_;
  std::string seen_;
  bool hasEnded_ = false;
};

std::string Describe(std::span<const std::byte> bytes, std::size_t chunk = 1 << 20) {
  Stream stream;
  while (!bytes.empty()) {
    const std::size_t size = std::min(chunk, bytes.size());
    stream.Arrive(bytes.first(size));
    bytes = bytes.subspan(size);
  }
  return stream.Seen();
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
  // The masked text "Hello" of RFC 6455, section 5.7.
  EXPECT_EQ(ClientFrame(kOpcodeText, BytesOf("Hello"), 0x37FA213D),
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
    const Bytes frame = ClientFrame(kOpcodeBinary, Pattern(row.size), 0);
    Bytes expected = row.header;
    Append(expected, BytesOf({0, 0, 0, 0}));  // a key of 0 leaves the payload as it is
    Append(expected, Pattern(row.size));
    EXPECT_EQ(frame, expected) << row.size;
  }
}

// The simplest implementation of masking (RFC 6455, section 5.3).
Bytes MaskedByteByByte(Bytes bytes, std::uint32_t key) {
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    bytes[i] ^= static_cast<std::byte>(key >> (24 - 8 * (i % 4)));
  }
  return bytes;
}

TEST(FrameMask, MasksEveryLengthFromAndToEveryAlignment) {
  constexpr std::uint32_t kKey = 0x01F203E4;
  for (std::size_t size = 0; size < 300; ++size) {
    const Bytes expected = MaskedByteByByte(Pattern(size), kKey);
    for (std::size_t shift = 0; shift < 33; ++shift) {
      Bytes from(shift);
      Append(from, Pattern(size));
      Bytes to(33 - shift + size + 1, std::byte{0xEE});
      const auto target = std::span(to).subspan(33 - shift);
      CopyMasked(target, std::span(from).subspan(shift), kKey);
      ASSERT_TRUE(std::ranges::equal(target.first(size), expected)) << size << " at " << shift;
      ASSERT_EQ(target[size], std::byte{0xEE}) << "written past the end";
    }
  }
}

TEST(FrameMask, MasksInPlace) {
  for (const std::size_t size : {0U, 1U, 31U, 33U, 1330U, 65536U}) {
    Bytes bytes = Pattern(size);
    CopyMasked(bytes, bytes, 0xA1B2C3D4);
    EXPECT_EQ(bytes, MaskedByteByByte(Pattern(size), 0xA1B2C3D4)) << size;
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
    Bytes frame = ServerFrame(kFin | 2, payload);
    FrameReader reader;
    ASSERT_EQ(reader.Feed(frame).event, FrameEvent::Message) << size;
    EXPECT_TRUE(std::ranges::equal(reader.Payload(), payload)) << size;
  }
}

TEST(FrameReader, ReadsBackWhatTheWriterWrote) {
  for (const std::size_t size : {0U, 125U, 126U, 65536U}) {
    FrameReader reader;
    Bytes frame = ClientFrame(kOpcodeBinary, Pattern(size), MakeMaskKey(3, 99));
    ASSERT_EQ(reader.Feed(frame).event, FrameEvent::Message);
    EXPECT_TRUE(std::ranges::equal(reader.Payload(), Pattern(size)));
  }
}

TEST(FrameReader, AMessageOfOneFrameStaysWhereItIs) {
  FrameReader reader;
  Bytes frame = ServerFrame(kFin | 2, BytesOf("abc"));
  ASSERT_EQ(reader.Feed(frame).event, FrameEvent::Message);
  EXPECT_EQ(reader.Payload().data(), &frame[2]);
}

TEST(FrameReader, LengthOverTheLimitEndsAtTheHeader) {
  const Bytes rows[] = {
      BytesOf({0x82, 127, 0, 0, 0, 0, 0, 0x40, 0, 1}),  // one past 4 MiB
      BytesOf({0x82, 127, 0, 0, 0, 1, 0, 0, 0, 0}),     // 4 GiB
      BytesOf({0x82, 127, 0x80, 0, 0, 0, 0, 0, 0, 0}),  // top bit
      BytesOf({0x82, 127, 255, 255, 255, 255, 255, 255, 255, 255}),
      BytesOf({0x81, 127, 0, 0, 0, 0, 0, 0x40, 0, 1}),  // even if the frame would be skipped
      BytesOf({0x89, 127, 0, 0, 0, 0, 0, 0x40, 0, 1}),
  };
  for (const Bytes& header : rows) {
    Stream stream;
    stream.Arrive(std::span(header).first(9));
    EXPECT_EQ(stream.Seen(), "");
    stream.Arrive(std::span(header).subspan(9));
    EXPECT_EQ(stream.Seen(), "END");
  }
}

TEST(FrameReader, FragmentsTogetherMayReachTheLimitAndNoMore) {
  for (const std::size_t last : {1U, 2U}) {
    FrameReader reader;
    Bytes first = ServerFrame(2, Pattern(kMaxMessageBytes - 1));
    EXPECT_EQ(reader.Feed(first).event, FrameEvent::NeedMore);
    Bytes header = BytesOf({kFin, static_cast<int>(last)});
    // The header alone is enough.
    EXPECT_EQ(reader.Feed(header).event, last == 1 ? FrameEvent::NeedMore : FrameEvent::Ended);
    if (last == 2) continue;
    Bytes whole = ServerFrame(kFin, Pattern(last));
    EXPECT_EQ(reader.Feed(whole).event, FrameEvent::Message);
    EXPECT_EQ(reader.Payload().size(), kMaxMessageBytes);
  }
}

TEST(FrameReader, SkippedFramesAndPingsDoNotCountTowardsTheLimit) {
  for (const int firstByte : {kFin | 1, 3, kFin | 9, kFin | 10}) {
    Stream stream;
    stream.Arrive(ServerFrame(2, BytesOf("a")));
    stream.Arrive(ServerFrame(firstByte, Pattern(kMaxMessageBytes)));
    stream.Arrive(ServerFrame(kFin, BytesOf("b")));
    EXPECT_TRUE(stream.Seen().ends_with("M:ab ")) << firstByte;
  }
}

TEST(FrameReader, StaysEnded) {
  FrameReader reader;
  Bytes close = ServerFrame(kFin | 8, {});
  EXPECT_EQ(reader.Feed(close).event, FrameEvent::Ended);
  Bytes more = ServerFrame(kFin | 2, BytesOf("a"));
  const FrameReader::Result result = reader.Feed(more);
  EXPECT_EQ(result.event, FrameEvent::Ended);
  EXPECT_EQ(result.takenBytes, 0U);
  EXPECT_TRUE(reader.Payload().empty());
}

}  // namespace
}  // namespace tunnel
