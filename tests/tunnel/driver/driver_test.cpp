#include "tunnel/driver/driver.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>
#include <stdexcept>
#include <string_view>
#include <thread>
#include <vector>

#include "tunnel/driver/fake_driver.h"
#include "tunnel/driver/silent_driver.h"
#include "tunnel/packets/test_packets.h"

namespace tunnel {
namespace {

template <typename Action>
std::string ErrorOf(Action action) {
  try {
    action();
  } catch (const std::runtime_error& error) {
    return error.what();
  }
  return "no error";
}

class DriverTest : public ::testing::Test {
 protected:
  ~DriverTest() override {
    driver_.Unload();
    EXPECT_EQ(fake_.Misuses(), std::vector<std::string>{});
    EXPECT_EQ(fake_.OpenHandles(), 0U);
    EXPECT_EQ(fake_.LoadedLibraries(), 0);
  }

  FakeDriver fake_;
  Driver driver_;
  Packet packet_ = PacketOf(kUdp);
  WinDivertAddress address_;
};

TEST_F(DriverTest, OpensOneHandleToCaptureAndOneBelowItToInject) {
  driver_.Load(fake_.Api());
  driver_.OpenCapture(L"outbound and ip");
  driver_.OpenInject();
  const auto opened = fake_.Opened();
  ASSERT_EQ(opened.size(), 2U);
  EXPECT_EQ(opened[0].filter, "outbound and ip");
  EXPECT_EQ(opened[0].layer, 0);
  EXPECT_EQ(opened[0].priority, -300);
  EXPECT_EQ(opened[0].flags, 0U);
  EXPECT_EQ(opened[1].filter, "false");
  EXPECT_EQ(opened[1].layer, 0);
  EXPECT_EQ(opened[1].priority, -301);
  EXPECT_EQ(opened[1].flags, 8U);
}

TEST_F(DriverTest, AnotherFilterIsOpenBeforeTheOldOneCloses) {
  driver_.Load(fake_.Api());
  EXPECT_FALSE(driver_.ReplaceCapture(L"ip"));  // nothing captures yet
  EXPECT_TRUE(fake_.Opened().empty());
  driver_.OpenCapture(L"outbound and ip");
  EXPECT_TRUE(driver_.ReplaceCapture(L"ip"));
  const auto opened = fake_.Opened();
  ASSERT_EQ(opened.size(), 2U);
  EXPECT_EQ(opened[1].filter, "ip");
  EXPECT_EQ(opened[1].priority, -300);
  EXPECT_EQ(opened[1].openBefore, 1U);
  EXPECT_EQ(fake_.OpenHandles(), 1U);
  driver_.CloseHandles();
  EXPECT_FALSE(driver_.ReplaceCapture(L"ip"));
  EXPECT_EQ(fake_.OpenHandles(), 0U);
}

TEST_F(DriverTest, ARefusedFilterLeavesTheOldOneInForce) {
  driver_.Load(fake_.Api());
  driver_.OpenCapture(L"outbound and ip");
  fake_.FailNth(FakeDriver::Call::Open, 1);
  EXPECT_EQ(ErrorOf([&] { driver_.ReplaceCapture(L"ip"); }), "WinDivertOpen failed for filter: ip");
  fake_.Capture(packet_, address_);
  Packet buffer(100);
  EXPECT_EQ(driver_.Receive(buffer, address_), packet_.size());
}

TEST_F(DriverTest, APacketIsReceivedOnceHoweverOftenTheFilterChanges) {
  driver_.Load(fake_.Api());
  driver_.OpenCapture(L"outbound and ip");
  constexpr std::uint32_t kPackets = 2000;
  std::vector<std::uint32_t> received;
  std::thread receiver([&] {
    Packet buffer(100);
    WinDivertAddress address;
    while (received.size() < kPackets) {
      if (driver_.Receive(buffer, address)) received.push_back(address.interfaceIndex);
    }
  });
  for (std::uint32_t number = 0; number < kPackets; ++number) {
    WinDivertAddress address;
    address.interfaceIndex = number;
    fake_.Capture(packet_, address);
    if (number % 20 == 0) {
      EXPECT_TRUE(driver_.ReplaceCapture(L"ip"));
    }
  }
  receiver.join();
  for (std::uint32_t number = 0; number < kPackets; ++number) ASSERT_EQ(received[number], number);
}

TEST_F(DriverTest, NamesTheFilterThatTheDriverRefused) {
  driver_.Load(fake_.Api());
  for (const auto failure :
       {FakeDriver::OpenFailure::InvalidHandle, FakeDriver::OpenFailure::NullHandle}) {
    fake_.SetOpenFailure(failure);
    fake_.FailNth(FakeDriver::Call::Open, 1);
    EXPECT_EQ(ErrorOf([&] { driver_.OpenCapture(L"outbound"); }),
              "WinDivertOpen failed for filter: outbound");
    fake_.FailNth(FakeDriver::Call::Open, 1);
    EXPECT_EQ(ErrorOf([&] { driver_.OpenInject(); }), "WinDivertOpen failed for filter: false");
  }
  EXPECT_FALSE(driver_.CanInject());
}

TEST_F(DriverTest, CanInjectOnlyWhileLoadedAndOpen) {
  EXPECT_FALSE(driver_.CanInject());
  driver_.Load(fake_.Api());
  EXPECT_FALSE(driver_.CanInject());
  driver_.OpenInject();
  EXPECT_TRUE(driver_.CanInject());
  driver_.CloseHandles();
  EXPECT_FALSE(driver_.CanInject());
}

TEST_F(DriverTest, DoesNothingWithoutTheLibrary) {
  EXPECT_FALSE(driver_.Receive(packet_, address_));
  EXPECT_EQ(ErrorOf([&] { driver_.Inject(packet_, address_); }), "WinDivertSend failed.");
  EXPECT_EQ(ErrorOf([&] { driver_.RecalculateChecksums(packet_); }),
            "WinDivert checksum recalculation failed.");
  EXPECT_EQ(ErrorOf([&] { driver_.OpenInject(); }), "WinDivertOpen failed for filter: false");
  driver_.CloseHandles();
}

TEST_F(DriverTest, ReportsWhatTheDriverRefuses) {
  driver_.Load(fake_.Api());
  driver_.OpenCapture(L"true");
  driver_.OpenInject();
  fake_.FailNth(FakeDriver::Call::Send, 2);
  fake_.FailNth(FakeDriver::Call::Checksums, 1);
  fake_.FailNth(FakeDriver::Call::Receive, 1);
  EXPECT_EQ(ErrorOf([&] { driver_.Inject(packet_, address_); }), "no error");
  EXPECT_EQ(ErrorOf([&] { driver_.Inject(packet_, address_); }), "WinDivertSend failed.");
  EXPECT_EQ(ErrorOf([&] { driver_.RecalculateChecksums(packet_); }),
            "WinDivert checksum recalculation failed.");
  EXPECT_FALSE(driver_.Receive(packet_, address_));
}

TEST_F(DriverTest, ReceivesWhatIsCapturedWithItsRecord) {
  driver_.Load(fake_.Api());
  driver_.OpenCapture(L"true");
  WinDivertAddress captured;
  captured.interfaceIndex = 7;
  fake_.Capture(packet_, captured);
  std::vector<std::byte> buffer(kMaxPacketBytes);
  ASSERT_EQ(driver_.Receive(buffer, address_), packet_.size());
  buffer.resize(packet_.size());
  EXPECT_EQ(buffer, packet_);
  EXPECT_EQ(address_.interfaceIndex, 7U);
}

TEST_F(DriverTest, LoadingAgainFreesTheLibraryBefore) {
  driver_.Load(fake_.Api());
  driver_.OpenInject();
  driver_.Load(fake_.Api());
  EXPECT_EQ(fake_.LoadedLibraries(), 1);
  EXPECT_EQ(fake_.OpenHandles(), 0U);
  EXPECT_FALSE(driver_.CanInject());
}

TEST_F(DriverTest, ClosingWakesAWaitingReceive) {
  driver_.Load(fake_.Api());
  driver_.OpenCapture(L"true");
  std::jthread receiver([&] {
    std::vector<std::byte> buffer(kMaxPacketBytes);
    WinDivertAddress address;
    EXPECT_FALSE(driver_.Receive(buffer, address));
  });
  ASSERT_TRUE(fake_.WaitForReceives(1));
  driver_.CloseHandles();
}

TEST_F(DriverTest, NeverSendsOnAHandleThatAnotherThreadClosed) {
  for (int round = 0; round < 50; ++round) {
    driver_.Load(fake_.Api());
    driver_.OpenInject();
    std::vector<std::jthread> senders;
    for (int index = 0; index < 2; ++index) {
      senders.emplace_back([this] {
        try {
          while (true) driver_.Inject(packet_, address_);
        } catch (const std::runtime_error& error) {
          EXPECT_STREQ(error.what(), "WinDivertSend failed.");
        }
      });
    }
    driver_.CloseHandles();
  }
}

// A driver whose calls block until released. Only one at a time.
class HeldDriver {
 public:
  HeldDriver() { current_ = this; }
  std::unique_ptr<WinDivertApi> Api() {
    std::unique_ptr<WinDivertApi> api = SilentDriver();
    api->open = [](const char* filter, int, std::int16_t, std::uint64_t) -> WinDivertHandle {
      return std::string_view(filter) == "false" ? &current_->injectHandle_
                                                 : &current_->captureHandle_;
    };
    api->recv = [](WinDivertHandle, void*, std::uint32_t, std::uint32_t* length,
                   WinDivertAddress*) {
      current_->receives.Pass();
      *length = 1;
      return 1;
    };
    api->send = [](WinDivertHandle, const void*, std::uint32_t, std::uint32_t*,
                   const WinDivertAddress*) {
      current_->sends.Pass();
      return 1;
    };
    api->close = [](WinDivertHandle handle) {
      ++(handle == &current_->captureHandle_ ? current_->captureCloses : current_->injectCloses);
      return 1;
    };
    return api;
  }

  // For one call.
  class Gate {
   public:
    void Pass() {
      come_.set_value();
      let_.get_future().wait();
      hasGone = true;
    }
    void WaitForCall() { come_.get_future().wait(); }
    void LetGo() { let_.set_value(); }
    std::atomic<bool> hasGone{false};

   private:
    std::promise<void> come_;
    std::promise<void> let_;
  };
  Gate receives;
  Gate sends;
  std::atomic<int> captureCloses{0};
  std::atomic<int> injectCloses{0};

 private:
  static inline HeldDriver* current_ = nullptr;
  int captureHandle_ = 0;
  int injectHandle_ = 0;
};

class HeldDriverTest : public ::testing::Test {
 protected:
  HeldDriverTest() {
    driver_.Load(held_.Api());
    driver_.OpenCapture(L"true");
    driver_.OpenInject();
  }
  HeldDriver held_;
  Driver driver_;
  Packet packet_ = PacketOf(kUdp);
};

TEST_F(HeldDriverTest, ReceiveAndInjectionDoNotBlockEachOther) {
  std::jthread injector([&] { driver_.Inject(packet_, {}); });
  held_.sends.WaitForCall();
  std::jthread receiver([&] {
    Packet buffer(100);
    WinDivertAddress address;
    EXPECT_EQ(driver_.Receive(buffer, address), 1U);
  });
  held_.receives.WaitForCall();  // both are inside the driver now
  EXPECT_TRUE(driver_.CanInject());
  held_.sends.LetGo();
  held_.receives.LetGo();
}

TEST_F(HeldDriverTest, ACloseWaitsForCallsInProgress) {
  std::jthread injector([&] { driver_.Inject(packet_, {}); });
  std::jthread receiver([&] {
    Packet buffer(100);
    WinDivertAddress address;
    EXPECT_EQ(driver_.Receive(buffer, address), 1U);
  });
  held_.sends.WaitForCall();
  held_.receives.WaitForCall();
  // With two concurrent closes, neither may return before both calls have returned.
  std::vector<std::jthread> closers;
  for (int index = 0; index < 2; ++index) {
    closers.emplace_back([&] {
      driver_.CloseHandles();
      EXPECT_TRUE(held_.receives.hasGone);
      EXPECT_TRUE(held_.sends.hasGone);
      EXPECT_EQ(held_.captureCloses, 1);
      EXPECT_EQ(held_.injectCloses, 1);
    });
  }
  while (held_.captureCloses == 0) std::this_thread::yield();  // the close that wakes the receive
  EXPECT_FALSE(driver_.CanInject());
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
  EXPECT_EQ(held_.injectCloses, 0);  // the injection is still inside
  held_.receives.LetGo();
  held_.sends.LetGo();
}

TEST_F(HeldDriverTest, AFilterIsReplacedWhileAReceiveIsInside) {
  std::jthread receiver([&] {
    Packet buffer(100);
    WinDivertAddress address;
    EXPECT_EQ(driver_.Receive(buffer, address), 1U);
  });
  held_.receives.WaitForCall();
  std::jthread replacer([&] {
    EXPECT_TRUE(driver_.ReplaceCapture(L"ip"));
    EXPECT_TRUE(held_.receives.hasGone);
  });
  while (held_.captureCloses == 0) std::this_thread::yield();
  held_.receives.LetGo();
}

// Only benchmarks and fuzz targets use this driver.
TEST(SilentDriverTest, HasEveryFunctionUsedByTheDriver) {
  Driver driver;
  driver.Load(SilentDriver());
  driver.OpenCapture(L"true");
  driver.OpenInject();
  EXPECT_TRUE(driver.CanInject());
  EXPECT_TRUE(driver.ReplaceCapture(L"false"));
  Packet packet = PacketOf(kUdp);
  const Packet before = packet;
  WinDivertAddress address;
  EXPECT_EQ(driver.Receive(packet, address), std::nullopt);
  driver.Inject(packet, address);
  driver.RecalculateChecksums(packet);
  EXPECT_EQ(packet, before);
  driver.CloseHandles();
  EXPECT_FALSE(driver.CanInject());
  driver.Unload();
}

}  // namespace
}  // namespace tunnel
