#include "tunnel/relay/websocket_relay.h"

#include <gtest/gtest.h>

#include <stdexcept>

#include "tunnel/relay/test_relay.h"

namespace tunnel {
namespace {

constexpr int kNotInitialised = 10093;  // WSANOTINITIALISED

// The result of creating a socket: 0 or the error code.
int SocketError() {
  int error = 0;
  platform::Socket::Create(platform::SocketKind::UdpIpv4, 2, error);
  return error;
}

TEST(WebSocketRelayOnWindows, ReleasesTheSocketLibraryOnEveryPath) {
  ASSERT_EQ(SocketError(), kNotInitialised);
  WebSocketRelay relay;
  {
    TestRelay server;
    relay.Connect(server.RelayUrl());
  }
  EXPECT_EQ(SocketError(), 0);  // the relay still holds its own reference
  relay.Close();
  relay.Close();
  EXPECT_EQ(SocketError(), kNotInitialised);
  EXPECT_THROW(relay.Connect(L"ws://" + std::wstring(70, L'a') + L"/"), std::runtime_error);
  EXPECT_EQ(SocketError(), kNotInitialised);
}

}  // namespace
}  // namespace tunnel
