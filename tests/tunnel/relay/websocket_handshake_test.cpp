#include "tunnel/relay/websocket_protocol.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "tunnel/relay/test_frames.h"

namespace tunnel {
namespace {

// Feeds everything in chunks. Returns the state, and the remaining bytes in `rest`.
HandshakeState FeedAll(HandshakeReader& reader, const Bytes& response, std::size_t chunk,
                       std::size_t& rest) {
  std::span<const std::byte> bytes(response);
  HandshakeReader::Result result;
  while (!bytes.empty() && result.state == HandshakeState::NeedMore) {
    result = reader.Feed(bytes.first(std::min(chunk, bytes.size())));
    bytes = bytes.subspan(result.takenBytes);
  }
  rest = bytes.size();
  return result.state;
}

Bytes BlockOf(std::size_t size) {
  const std::string start = "HTTP/1.1 101 OK\r\nX: ";
  return BytesOf(start + std::string(size - start.size() - 4, 'x') + "\r\n\r\n");
}

TEST(Handshake, RequestIsExact) {
  EXPECT_EQ(BuildHandshakeRequest(L"/api/relay/client/c1?engineerId=E", L"relay.example"),
            "GET /api/relay/client/c1?engineerId=E HTTP/1.1\r\n"
            "Host: relay.example\r\n"
            "Upgrade: websocket\r\n"
            "Connection: Upgrade\r\n"
            "Sec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\n"
            "Sec-WebSocket-Version: 13\r\n"
            "\r\n");
}

TEST(Handshake, ReadsTheStatusHoweverTheResponseIsCut) {
  const struct {
    const char* line;
    int status;
  } rows[] = {
      {"HTTP/1.1 101 Switching Protocols", 101},
      {"HTTP/1.0 101", 101},
      {"HTTP/1.1 200 OK", 200},
      {"HTTP/1.1 503 Service Unavailable", 503},
      {"HTTP/1.1   404 Not Found", 404},
      {"HTTP/1.1 1011 no code", 1011},
      {"HTTP/1.1 101x", 101},
      {"HTTP/1.1 OK", 0},
      {"HTTP/1.1 ", 0},
      {"HTTP/1.1", 0},
      {"", 0},
      {"HTTP/1.1 99999999999999999999 huge", 0},
  };
  for (const auto& row : rows) {
    const Bytes response = BytesOf(std::string(row.line) + "\r\nUpgrade: websocket 7\r\n\r\n");
    for (const std::size_t chunk : {1U, 3U, 4096U}) {
      HandshakeReader reader;
      std::size_t rest = 0;
      EXPECT_EQ(FeedAll(reader, response, chunk, rest), HandshakeState::Done) << row.line;
      EXPECT_EQ(reader.Status(), row.status) << row.line;
    }
  }
}

TEST(Handshake, TruncatedResponseIsNotDone) {
  const Bytes response = BytesOf("HTTP/1.1 101 OK\r\nA: b\r\n\r\n");
  for (std::size_t cut = 0; cut < response.size(); ++cut) {
    HandshakeReader reader;
    EXPECT_EQ(reader.Feed(std::span(response).first(cut)).state, HandshakeState::NeedMore) << cut;
  }
}

TEST(Handshake, LeavesTheRemainingBytesToTheFrames) {
  Bytes response = BytesOf("HTTP/1.1 101 OK\r\n\r\n");
  Append(response, BytesOf({0x82, 1, 'a'}));
  HandshakeReader reader;
  std::size_t rest = 0;
  EXPECT_EQ(FeedAll(reader, response, response.size(), rest), HandshakeState::Done);
  EXPECT_EQ(rest, 3U);
}

TEST(Handshake, HeaderBlockMayReachTheLimitAndNoMore) {
  const struct {
    std::size_t size;
    HandshakeState state;
  } rows[] = {
      {kMaxHandshakeBytes, HandshakeState::Done},
      {kMaxHandshakeBytes + 1, HandshakeState::TooLarge},
      {kMaxHandshakeBytes + 4, HandshakeState::TooLarge},
      {20000, HandshakeState::TooLarge},
  };
  for (const auto& row : rows) {
    for (const std::size_t chunk : {1U, 4096U, 65536U}) {
      HandshakeReader reader;
      std::size_t rest = 0;
      EXPECT_EQ(FeedAll(reader, BlockOf(row.size), chunk, rest), row.state)
          << row.size << ", chunks of " << chunk;
    }
  }
}

TEST(Handshake, TooLargeStaysSo) {
  HandshakeReader reader;
  std::size_t rest = 0;
  EXPECT_EQ(FeedAll(reader, BlockOf(20000), 65536, rest), HandshakeState::TooLarge);
  EXPECT_EQ(reader.Feed(BytesOf("\r\n\r\n")).state, HandshakeState::TooLarge);
}

}  // namespace
}  // namespace tunnel
