#pragma once

#include <sys/socket.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

// The benchmark relay's two formats, written for speed: the relay must not limit the measurement.
namespace bench {

// Cuts the client's WebSocket stream into packets (RFC 6455, section 5.2).
//
// Threads: none inside; one caller at a time.
class ClientFrames {
 public:
  ClientFrames() : buffer_(kBufferBytes) {}

  // Where the next bytes from the connection belong.
  [[nodiscard]] std::span<std::byte> Room() { return std::span(buffer_).subspan(filled_); }
  void Take(std::size_t bytes) { filled_ += bytes; }

  // The next whole binary frame's payload, unmasked, valid until Room(); empty when there is none.
  // Other frames are skipped: a measured client sends only packets and pongs. Throws on a close
  // frame and on a frame that a client must not send.
  std::span<std::byte> Next();

 private:
  static constexpr std::size_t kBufferBytes = 1 << 19;

  void DropRead();

  std::vector<std::byte> buffer_;
  std::size_t filled_ = 0;
  std::size_t read_ = 0;
};

// Gathers packets from the site for the client while more of them wait: large ones (all of them
// while there is no endpoint for datagrams) become frames in one piece, small ones datagrams in one
// call.
//
// Threads: none inside; one caller at a time.
class Downlink {
 public:
  // Connected sockets for frames and datagrams, and the token that these carry.
  Downlink(int webSocket, int udp, std::uint64_t token);

  // The buffer to read the next packet into; it has room for one of any size.
  [[nodiscard]] std::span<std::byte> Room();
  // Takes the packet of `bytes` that was read to Room().
  void Take(std::size_t bytes, bool mayGoByUdp);
  [[nodiscard]] bool IsFull() const;
  // Sends what was gathered; false when the connection has ended.
  bool Flush();
  // Shows an idle client that the relay is alive.
  bool SendPing();

 private:
  static constexpr std::size_t kFrameBytes = 1 << 16;  // gathered before they are sent
  static constexpr std::size_t kDatagrams = 64;
  static constexpr std::size_t kSlotBytes = 2048;

  void AddFrame(std::size_t bytes);
  void AddDatagram(std::size_t bytes);

  const int webSocket_;
  const int udp_;
  const std::uint64_t token_;
  std::vector<std::byte> frames_;
  std::size_t frameBytes_ = 0;
  std::vector<std::byte> slots_;
  std::array<iovec, kDatagrams> parts_ = {};
  std::array<mmsghdr, kDatagrams> messages_ = {};
  std::size_t datagrams_ = 0;
};

}  // namespace bench
