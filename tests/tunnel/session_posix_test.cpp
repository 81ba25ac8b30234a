#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/resource.h>

#include <stdexcept>
#include <system_error>

#include "tunnel/test_session.h"

// What only a POSIX system lets a test spoil: threads and sockets that cannot be made.
namespace tunnel {
namespace {

// While it lives, no thread can be made: a new one asks for more stack than there are addresses.
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

// While it lives, no socket and no file can be opened.
class NoNewSockets {
 public:
  NoNewSockets() {
    EXPECT_EQ(::getrlimit(RLIMIT_NOFILE, &before_), 0);
    const rlimit none{0, before_.rlim_max};
    EXPECT_EQ(::setrlimit(RLIMIT_NOFILE, &none), 0);
  }
  ~NoNewSockets() { ::setrlimit(RLIMIT_NOFILE, &before_); }
  NoNewSockets(const NoNewSockets&) = delete;
  NoNewSockets& operator=(const NoNewSockets&) = delete;

 private:
  rlimit before_{};
};

class SessionPosixTest : public SessionFixture {};

TEST_F(SessionPosixTest, AThreadThatCannotBeMadeFailsTheStartAndLeavesNothing) {
  {
    const NoNewThreads spoiled;
    EXPECT_THROW(session_->Start(request_), std::system_error);
  }
  EXPECT_EQ(driver_.Opened().size(), 2U);  // it had come as far as the threads
  EXPECT_EQ(world_.Commands().size(), 4U);
  EXPECT_FALSE(session_->IsRelayConnected());
  ExpectNothingLeft();
  session_->Start(request_);
}

TEST_F(SessionPosixTest, ASocketThatCannotBeMadeIsAFailedConnect) {
  std::string failure;
  try {
    const NoNewSockets spoiled;
    session_->Start(request_);
  } catch (const std::runtime_error& error) {
    failure = error.what();
  }
  EXPECT_EQ(failure,
            "Relay TCP connect failed to " + relay_.HostAndPort() + ", error 24");  // EMFILE
  ExpectNothingLeft();
}

}  // namespace
}  // namespace tunnel
