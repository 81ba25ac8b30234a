#include <gtest/gtest.h>
#include <pthread.h>

#include <system_error>

#include "tunnel/relay/fake_datagrams.h"
#include "tunnel/relay/fake_relay_host.h"
#include "tunnel/test_session.h"

// Failures of thread creation, which only POSIX systems can simulate.
namespace tunnel {
namespace {

// Makes thread creation fail during its lifetime: the default stack exceeds the address space.
class NoNewThreads {
 public:
  NoNewThreads() {
    ::pthread_getattr_default_np(&before_);
    pthread_attr_t huge = before_;
    EXPECT_EQ(::pthread_attr_setstacksize(&huge, std::size_t{1} << 47), 0);
    EXPECT_EQ(::pthread_setattr_default_np(&huge), 0);
  }
  ~NoNewThreads() { ::pthread_setattr_default_np(&before_); }
  NoNewThreads(const NoNewThreads&) = delete;
  NoNewThreads& operator=(const NoNewThreads&) = delete;

 private:
  pthread_attr_t before_{};
};

class SessionPosixTest : public SessionFixture {};

TEST_F(SessionPosixTest, AThreadThatCannotBeMadeFailsTheStartAndLeavesNothing) {
  {
    const NoNewThreads spoiled;
    EXPECT_THROW(session_->Start(request_), std::system_error);
  }
  EXPECT_EQ(driver_.Opened().size(), 2U);  // it failed only at the threads
  EXPECT_EQ(world_.Commands().size(), 4U);
  EXPECT_FALSE(session_->IsRelayConnected());
  ExpectNothingLeft();
  session_->Start(request_);
}

TEST(SocketUdpRelayPosix, AThreadThatCannotBeMadeFailsTheStartAndThePathMayStartAgain) {
  FakeDatagrams world;
  world.AnswerHellosWith([]() { return std::vector<Bytes>{AcknowledgementOf(1)}; });
  FakeRelayHost host;
  SocketUdpRelay relay(host, world);
  {
    const NoNewThreads spoiled;
    EXPECT_THROW(relay.StartUdpRelay({}), std::system_error);
  }
  relay.Close();
  relay.Join();
  EXPECT_EQ(world.OpenSockets(), 0);
  relay.StartUdpRelay({});
  EXPECT_TRUE(relay.IsReady());
}

}  // namespace
}  // namespace tunnel
