#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "tests/driver_fixture.h"

using driver_test::DriverLibrary;
using packets::Bytes;

namespace {

// Memory before a guard page, which records the first access and is then readable.
class GuardedMemory {
 public:
  GuardedMemory() {
    current_ = this;
    handler_ = ::AddVectoredExceptionHandler(1, &GuardedMemory::NoteTouch);
    EXPECT_NE(pages_, nullptr);
    Arm();
  }
  ~GuardedMemory() {
    ::RemoveVectoredExceptionHandler(handler_);
    ::VirtualFree(pages_, 0, MEM_RELEASE);
    current_ = nullptr;
  }
  GuardedMemory(const GuardedMemory&) = delete;
  GuardedMemory& operator=(const GuardedMemory&) = delete;

  // Copies `packet` so that the guard page starts `readableBytes` after it.
  std::uint8_t* Place(const Bytes& packet, std::size_t readableBytes) {
    Arm();
    std::uint8_t* place = pages_ + kPageBytes - readableBytes - packet.size();
    std::memcpy(place, packet.data(), packet.size());
    return place;
  }
  [[nodiscard]] bool WasTouched() const { return touched_; }

 private:
  static constexpr std::size_t kPageBytes = 4096;

  void Arm() {
    touched_ = false;
    DWORD before = 0;
    EXPECT_TRUE(
        ::VirtualProtect(pages_ + kPageBytes, kPageBytes, PAGE_READWRITE | PAGE_GUARD, &before));
  }
  static LONG CALLBACK NoteTouch(EXCEPTION_POINTERS* what) {
    const auto& record = *what->ExceptionRecord;
    if (record.ExceptionCode != STATUS_GUARD_PAGE_VIOLATION) return EXCEPTION_CONTINUE_SEARCH;
    current_->touched_ = true;
    return EXCEPTION_CONTINUE_EXECUTION;
  }

  static inline GuardedMemory* current_ = nullptr;
  std::uint8_t* pages_ = static_cast<std::uint8_t*>(
      ::VirtualAlloc(nullptr, 2 * kPageBytes, MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE));
  void* handler_ = nullptr;
  bool touched_ = false;
};

// A TCP header that states `statedBytes` but has 20.
Bytes CutTcp(std::size_t statedBytes) {
  Bytes packet = packets::Ip(6, packets::Tcp(502, 50000, {}));
  packet[32] = static_cast<std::uint8_t>(statedBytes / 4 * 16);
  return packet;
}

TEST_F(DriverLibrary, ReadsUpToFortyBytesAfterACutTcpHeader) {
  GuardedMemory memory;
  struct Row {
    std::size_t statedBytes, readableBytes;
    bool touches;
  };
  for (const Row& row : {Row{60, 0, true}, Row{60, 39, true}, Row{60, 40, false}, Row{24, 3, true},
                         Row{24, 4, false}, Row{20, 0, false}}) {
    SCOPED_TRACE(std::to_string(row.statedBytes) + " " + std::to_string(row.readableBytes));
    const Bytes packet = CutTcp(row.statedBytes);
    std::uint8_t* place = memory.Place(packet, row.readableBytes);
    EXPECT_TRUE(library_.calc(place, static_cast<UINT>(packet.size()), nullptr, 0));
    EXPECT_EQ(memory.WasTouched(), row.touches);
    EXPECT_NE(place[36] * 256 + place[37], 0) << "a sum is written";
  }
}

TEST_F(DriverLibrary, ReadsNothingAfterOtherPackets) {
  GuardedMemory memory;
  for (const Bytes& packet :
       {packets::Ip(6, packets::Tcp(1, 2, packets::Payload(3))),
        packets::Ip(17, packets::Udp(1, 2, packets::Payload(3))),
        packets::Ip(1, packets::Icmp(packets::Payload(3))), packets::Ip(17, {}),
        packets::Ip(6, packets::Payload(19)), packets::Ip(47, packets::Payload(3))}) {
    std::uint8_t* place = memory.Place(packet, 0);
    EXPECT_TRUE(library_.calc(place, static_cast<UINT>(packet.size()), nullptr, 0));
    EXPECT_FALSE(memory.WasTouched());
  }
}

TEST_F(DriverLibrary, ChecksumsFailForAFirstFragment) {
  for (Bytes packet : {packets::Ip(6, packets::Tcp(1, 2, packets::Payload(8))),
                       packets::Ip(17, packets::Udp(1, 2, packets::Payload(8))),
                       packets::Ip(1, packets::Icmp(packets::Payload(8)))}) {
    const auto bytes = static_cast<UINT>(packet.size());
    Record record{};
    packets::SetWord(packet, 6, 0x2000);
    EXPECT_FALSE(library_.calc(packet.data(), bytes, &record, 0));
    EXPECT_EQ(record.flags, 0x00200000U);  // only the IP sum was written
    EXPECT_EQ(packets::Word(packet, 10), packets::ExpectedIpSum(packet));
    packets::SetWord(packet, 6, 0x0001);
    EXPECT_TRUE(library_.calc(packet.data(), bytes, &record, 0));
  }
  EXPECT_FALSE(library_.calc(nullptr, 20, nullptr, 0));
}

}  // namespace
