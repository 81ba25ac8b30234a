#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "tests/driver_library.h"
#include "tests/driver_packets.h"
#include "tests/driver_wire.h"

// The stand-in library, with the test as the other end of its wire.
namespace driver_test {

inline constexpr std::uint64_t kSendOnly = 8;
inline constexpr std::uint64_t kRecvOnly = 4;

// An opened handle, closed when the test ends, or earlier by Close().
class OpenHandle {
 public:
  OpenHandle(const Library& library, const char* filter, int priority = -300,
             std::uint64_t flags = 0)
      : library_(library),
        handle_(library.open(filter, 0, static_cast<std::int16_t>(priority), flags)) {
    EXPECT_NE(handle_, INVALID_HANDLE_VALUE) << filter << " error " << ::GetLastError();
  }
  ~OpenHandle() { Close(); }
  OpenHandle(const OpenHandle&) = delete;
  OpenHandle& operator=(const OpenHandle&) = delete;
  [[nodiscard]] HANDLE Get() const { return handle_; }
  void Close() {
    if (handle_ == INVALID_HANDLE_VALUE) return;
    EXPECT_TRUE(library_.close(handle_));
    handle_ = INVALID_HANDLE_VALUE;
  }

 private:
  const Library& library_;
  HANDLE handle_;
};

struct Answer {
  BOOL succeeded;
  DWORD error;
  UINT bytes;
  Record record;
  packets::Bytes packet;
};

class DriverLibrary : public ::testing::Test {
 protected:
  void SetUp() override {
    ::SetEnvironmentVariableW(L"LAB_WINDIVERT_PORT", std::to_wstring(dllPort_).c_str());
    ::SetEnvironmentVariableW(L"LAB_WINDIVERT_PEER", std::to_wstring(wire_.Port()).c_str());
    for (const wchar_t* fault :
         {L"LAB_WINDIVERT_OPEN_ERROR", L"LAB_WINDIVERT_FAIL_OPEN", L"LAB_WINDIVERT_FAIL_RECV",
          L"LAB_WINDIVERT_FAIL_SEND", L"LAB_WINDIVERT_FAIL_CHECKSUM", L"LAB_WINDIVERT_LOG"}) {
      ::SetEnvironmentVariableW(fault, nullptr);
    }
  }

  // Delivers a packet as the TUN would. The driver receives it on its own thread.
  void FromTun(const packets::Bytes& packet) { wire_.SendTo(dllPort_, packet); }

  Answer Recv(HANDLE handle, UINT room = 65535) const {
    Answer answer{FALSE, 0, 0xABCD, {}, packets::Bytes(room)};
    answer.succeeded =
        library_.recv(handle, answer.packet.data(), room, &answer.bytes, &answer.record);
    answer.error = ::GetLastError();
    if (answer.succeeded) answer.packet.resize(answer.bytes);
    return answer;
  }

  Answer Send(HANDLE handle, const packets::Bytes& packet, const Record& record) const {
    Answer answer{FALSE, 0, 0xABCD, record, {}};
    answer.succeeded = library_.send(handle, packet.data(), static_cast<UINT>(packet.size()),
                                     &answer.bytes, &record);
    answer.error = ::GetLastError();
    return answer;
  }

  DWORD OpenError(const char* filter, int layer, int priority, std::uint64_t flags) const {
    const HANDLE handle = library_.open(filter, layer, static_cast<std::int16_t>(priority), flags);
    const DWORD error = ::GetLastError();
    if (handle == INVALID_HANDLE_VALUE) return error;
    library_.close(handle);
    return 0;
  }

  // A whole packet to the PC's own address, as the tunnel injects replies.
  packets::Bytes Reply() const {
    packets::Bytes packet = packets::Ip(17, packets::Udp(53, 5000, packets::Payload(32)),
                                        packets::kDestination, own_.address);
    EXPECT_TRUE(library_.calc(packet.data(), static_cast<UINT>(packet.size()), nullptr, 0));
    return packet;
  }
  Record InboundRecord() const {
    Record record{};
    record.interfaceIndex = own_.index;
    return record;
  }

  const OwnAddress own_ = FindOwnAddress();
  Wire wire_;
  const std::uint16_t dllPort_ = FindFreePort();
  Library library_;
};

}  // namespace driver_test
