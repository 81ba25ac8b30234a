// Every Winsock call of platform's sockets, with its arguments and its failure.
#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <thread>

#include "platform/socket.h"
#include "win32/calls.h"

namespace platform {
namespace {

using namespace win32;
using std::chrono::milliseconds;

std::span<const std::byte> BytesOf(std::string_view text) {
  return std::as_bytes(std::span(text));
}

// The bytes of a number, for an option.
std::string Option(DWORD value) {
  return std::string(reinterpret_cast<const char*>(&value), sizeof(value));
}

class SocketCalls : public testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(library_.Start(), 0); }

  static std::shared_ptr<Socket> Make(SocketKind kind) {
    int error = 0;
    return Socket::Create(kind, AF_INET, error);
  }

  SocketLibrary library_;
  std::array<std::byte, 8> buffer_{};
};

TEST(SocketLibraryCalls, StartAndEndWinsockOnce) {
  Calls calls;
  {
    SocketLibrary library;
    EXPECT_EQ(library.Start(), 0);
    EXPECT_EQ(library.Start(), 0);
  }
  EXPECT_TRUE(calls.Were({Said<Api::WSAStartup>(0x0202, Some{}), Said<Api::WSACleanup>()}));
}

TEST(SocketLibraryCalls, DoNotEndWhatCouldNotBeStarted) {
  Calls calls;
  calls.Fail(Api::WSAStartup, 1450);
  { EXPECT_EQ(SocketLibrary().Start(), 1450); }
  EXPECT_EQ(calls.Count(Api::WSACleanup), 0);
}

TEST_F(SocketCalls, ConnectListenAndAccept) {
  Calls calls;
  {
    const auto listener = Make(SocketKind::Tcp);
    EXPECT_EQ(listener->Bind(SocketAddress::Loopback(0)), 0);
    EXPECT_EQ(listener->Listen(), 0);
    const SocketAddress address = listener->LocalAddress();
    const auto client = Make(SocketKind::Tcp);
    EXPECT_EQ(client->Connect(address, milliseconds(5000)), 0);
    int error = 0;
    const auto server = listener->Accept(error);
    EXPECT_EQ(client->Send(BytesOf("hello")).bytes, 5u);
    EXPECT_EQ(server->Receive(buffer_).bytes, 5u);
    const std::string at = "127.0.0.1:" + std::to_string(address.Port());
    EXPECT_TRUE(calls.WereAmong(
        {Api::socket, Api::bind, Api::listen, Api::getsockname, Api::connect, Api::accept,
         Api::send, Api::recv},
        {
            Said<Api::socket>(AF_INET, SOCK_STREAM, IPPROTO_TCP),
            Said<Api::bind>(Handle{1}, Text{"127.0.0.1:0"}, sizeof(sockaddr_in)),
            Said<Api::listen>(Handle{1}, 16),
            Said<Api::getsockname>(Handle{1}, Some{}, Ref{sizeof(sockaddr_storage)}),
            Said<Api::socket>(AF_INET, SOCK_STREAM, IPPROTO_TCP),
            Said<Api::connect>(Handle{2}, Text{at}, sizeof(sockaddr_in)),
            Said<Api::accept>(Handle{1}, nullptr, nullptr),
            Said<Api::send>(Handle{2}, "hello", 5, 0),
            Said<Api::recv>(Handle{3}, Some{}, 8, 0),
        }));
  }
  EXPECT_TRUE(calls.WereAmong(
      {Api::shutdown, Api::closesocket},
      {Said<Api::shutdown>(Handle{3}, SD_BOTH), Said<Api::closesocket>(Handle{3}),
       Said<Api::shutdown>(Handle{2}, SD_BOTH), Said<Api::closesocket>(Handle{2}),
       Said<Api::shutdown>(Handle{1}, SD_BOTH), Said<Api::closesocket>(Handle{1})}));
  EXPECT_EQ(calls.Unbalanced(), "");
}

TEST_F(SocketCalls, SendAndReceiveDatagrams) {
  const auto first = Make(SocketKind::UdpIpv4);
  const auto second = Make(SocketKind::UdpIpv4);
  ASSERT_EQ(second->Bind(SocketAddress::Loopback(0)), 0);
  const SocketAddress to = second->LocalAddress();
  Calls calls;
  EXPECT_EQ(Make(SocketKind::UdpIpv4)->SendTo(BytesOf("hello"), to).bytes, 5u);
  SocketAddress from;
  EXPECT_EQ(second->ReceiveFrom(buffer_, from).bytes, 5u);
  const std::string at = "127.0.0.1:" + std::to_string(to.Port());
  EXPECT_TRUE(calls.WereAmong(
      {Api::socket, Api::sendto},
      {Said<Api::socket>(AF_INET, SOCK_DGRAM, IPPROTO_UDP),
       Said<Api::sendto>(Handle{1}, "hello", 5, 0, Text{at}, sizeof(sockaddr_in))}));
  EXPECT_EQ(calls.Count(Api::recvfrom), 1);
  calls.Fail(Api::recvfrom, WSAECONNRESET);
  EXPECT_EQ(second->ReceiveFrom(buffer_, from).error, WSAECONNRESET);
  calls.Fail(Api::sendto, WSAENOBUFS);
  EXPECT_EQ(first->SendTo(BytesOf("x"), to).error, WSAENOBUFS);
}

TEST_F(SocketCalls, SetOptions) {
  Calls calls;
  const auto socket = Make(SocketKind::Tcp);
  calls.AnswerWith<Api::setsockopt>([](SOCKET, int, int, const char*, int) { return 0; });
  EXPECT_EQ(socket->SetTimeouts(milliseconds(8000), milliseconds(5000)), 0);
  EXPECT_EQ(socket->SetNoDelay(), 0);
  EXPECT_EQ(socket->SetKeepAlive(), 0);
  EXPECT_EQ(socket->SetBufferBytes(1000, 2000), 0);
  const auto said = [](int level, int name, DWORD value) {
    return Said<Api::setsockopt>(Handle{1}, level, name, Option(value), 4);
  };
  const std::vector<std::string> expected = {
      said(SOL_SOCKET, SO_RCVTIMEO, 8000), said(SOL_SOCKET, SO_SNDTIMEO, 5000),
      said(IPPROTO_TCP, TCP_NODELAY, 1),   said(SOL_SOCKET, SO_KEEPALIVE, 1),
      said(SOL_SOCKET, SO_RCVBUF, 1000),   said(SOL_SOCKET, SO_SNDBUF, 2000)};
  EXPECT_TRUE(calls.WereAmong({Api::setsockopt}, expected));
}

TEST_F(SocketCalls, ReportEachRefusedOption) {
  const auto socket = Make(SocketKind::Tcp);
  EXPECT_EQ(
      EachFailure(
          [&socket] {
            std::string errors;
            for (const int error :
                 {socket->SetTimeouts(milliseconds(8000), milliseconds(5000)), socket->SetNoDelay(),
                  socket->SetKeepAlive(), socket->SetBufferBytes(1000, 2000)}) {
              errors += std::to_string(error) + " ";
            }
            return errors;
          },
          WSAENOPROTOOPT),
      "all well: 0 0 0 0 \n"
      "setsockopt: 10042 0 0 0 \nsetsockopt: 10042 0 0 0 \n"
      "setsockopt: 0 10042 0 0 \nsetsockopt: 0 0 10042 0 \n"
      "setsockopt: 0 0 0 10042 \nsetsockopt: 0 0 0 10042 \n");
}

TEST_F(SocketCalls, ReadOptions) {
  const auto socket = Make(SocketKind::Tcp);
  Calls calls;
  calls.AnswerWith<Api::getsockopt>([](SOCKET, int level, int name, char* value, int* size) {
    EXPECT_EQ(*size, 4);
    const DWORD told = static_cast<DWORD>(level + name);
    std::memcpy(value, &told, sizeof(told));
    return 0;
  });
  const Socket::Options options = socket->ReadOptions();
  EXPECT_EQ(options.receiveTimeout, milliseconds(SOL_SOCKET + SO_RCVTIMEO));
  EXPECT_EQ(options.sendTimeout, milliseconds(SOL_SOCKET + SO_SNDTIMEO));
  EXPECT_EQ(options.receiveBufferBytes, SOL_SOCKET + SO_RCVBUF);
  EXPECT_EQ(options.sendBufferBytes, SOL_SOCKET + SO_SNDBUF);
  EXPECT_TRUE(options.noDelay);
  calls.Fail(Api::getsockopt, WSAENOPROTOOPT, 0);
  EXPECT_FALSE(socket->ReadOptions().keepAlive);
}

// One exchange over loopback that stops at its first error.
std::string Exchange() {
  const SocketAddress any = SocketAddress::Loopback(0);
  int error = 0;
  const auto listener = Socket::Create(SocketKind::Tcp, AF_INET, error);
  if (!listener) return "no listener " + std::to_string(error);
  if (const int failed = listener->Bind(any)) return "not bound " + std::to_string(failed);
  if (const int failed = listener->Listen()) return "not listening " + std::to_string(failed);
  const SocketAddress address = listener->LocalAddress();
  if (address.Port() == 0) return "no address";
  const auto client = Socket::Create(SocketKind::Tcp, AF_INET, error);
  if (!client) return "no client " + std::to_string(error);
  if (const int failed = client->Connect(address, milliseconds(5000)))
    return "refused " + std::to_string(failed);
  const auto server = listener->Accept(error);
  if (!server) return "not accepted " + std::to_string(error);
  const SocketResult sent = client->Send(BytesOf("x"));
  if (sent.error != 0) return "not sent " + std::to_string(sent.error);
  std::byte received{};
  const SocketResult taken = server->Receive(std::span(&received, 1));
  return taken.error == 0 ? "done" : "not received " + std::to_string(taken.error);
}

TEST_F(SocketCalls, ReportEachFailureOfAnExchange) {
  EXPECT_EQ(EachFailure(Exchange, WSAENOBUFS),
            "all well: done\n"
            "socket: no listener 10055\n"
            "bind: not bound 10055\n"
            "listen: not listening 10055\n"
            "getsockname: no address\n"
            "socket: no client 10055\n"
            "ioctlsocket: refused 10055\n"
            "connect: refused 10055\n"
            "select: refused 10055\n"
            "getsockopt: refused 10055\n"
            "ioctlsocket: refused 10055\n"
            "accept: not accepted 10055\n"
            "send: not sent 10055\n"
            "recv: not received 10055\n"
            "shutdown: done\nclosesocket: done\n"
            "shutdown: done\nclosesocket: done\n"
            "shutdown: done\nclosesocket: done\n");
}

// ---- a connect with a time limit

constexpr long kBlocking = static_cast<long>(FIONBIO);

// A connect that stays pending until `select` reports its end.
class ConnectCalls : public SocketCalls {
 protected:
  // `ended` is the result of select, `error` the socket's error afterwards.
  void InstallFakes(int ended, int error) {
    calls_.AnswerWith<Api::connect>([](SOCKET, const sockaddr*, int) {
      ::WSASetLastError(WSAEWOULDBLOCK);
      return SOCKET_ERROR;
    });
    calls_.AnswerWith<Api::select>(
        [ended](int, fd_set*, fd_set*, fd_set*, const timeval*) { return ended; });
    calls_.AnswerWith<Api::getsockopt>([error](SOCKET, int, int, char* value, int*) {
      std::memcpy(value, &error, sizeof(error));
      return 0;
    });
  }
  int Connect(milliseconds limit = milliseconds(60000)) {
    return socket_->Connect(SocketAddress::Loopback(502), limit);
  }
  // The socket was made non-blocking and then blocking again.
  testing::AssertionResult TurnedBack() {
    return calls_.WereAmong({Api::ioctlsocket},
                            {Said<Api::ioctlsocket>(Handle{1}, kBlocking, Ref{1}),
                             Said<Api::ioctlsocket>(Handle{1}, kBlocking, Ref{0})});
  }

  Calls calls_{Calls::Threads::All};
  std::shared_ptr<Socket> socket_;

  void SetUp() override {
    SocketCalls::SetUp();
    socket_ = Make(SocketKind::Tcp);
  }
};

TEST_F(ConnectCalls, WaitInSlicesForTheAnswer) {
  const auto listener = Make(SocketKind::Tcp);
  ASSERT_EQ(listener->Bind(SocketAddress::Loopback(0)), 0);
  ASSERT_EQ(listener->Listen(), 0);
  int slices = 0;
  calls_.AnswerWith<Api::select>(
      [&slices](int count, fd_set* read, fd_set* write, fd_set* failed, const timeval*) {
        if (++slices < 3) return 0;
        timeval patience{30, 0};
        return Real<Api::select>()(count, read, write, failed, &patience);
      });
  EXPECT_EQ(socket_->Connect(listener->LocalAddress(), milliseconds(60000)), 0);
  const std::string at = "127.0.0.1:" + std::to_string(listener->LocalAddress().Port());
  const std::string slice =
      Said<Api::select>(0, nullptr, Text{"{h1}"}, Text{"{h1}"}, Text{"{0 s 20000 us}"});
  EXPECT_TRUE(calls_.WereAmong(
      {Api::ioctlsocket, Api::connect, Api::select, Api::getsockopt},
      {Said<Api::ioctlsocket>(Handle{1}, kBlocking, Ref{1}),
       Said<Api::connect>(Handle{1}, Text{at}, sizeof(sockaddr_in)), slice, slice, slice,
       Said<Api::getsockopt>(Handle{1}, SOL_SOCKET, SO_ERROR, Some{}, Ref{4}),
       Said<Api::ioctlsocket>(Handle{1}, kBlocking, Ref{0})}));
}

TEST_F(ConnectCalls, ReportTheSocketsError) {
  for (const int error : {0, WSAECONNREFUSED, WSAEHOSTUNREACH}) {
    InstallFakes(1, error);
    EXPECT_EQ(Connect(), error);
  }
  EXPECT_EQ(calls_.Count(Api::ioctlsocket), 6);
}

TEST_F(ConnectCalls, FailAtOnceWithoutARoute) {
  calls_.Fail(Api::connect, WSAENETUNREACH);
  EXPECT_EQ(Connect(), WSAENETUNREACH);
  EXPECT_EQ(calls_.Count(Api::select), 0);
  EXPECT_TRUE(TurnedBack());
}

TEST_F(ConnectCalls, GiveUpOnceTheLimitHasPassed) {
  InstallFakes(0, 0);
  const auto begin = std::chrono::steady_clock::now();
  const int error = Connect(milliseconds(50));
  EXPECT_GE(std::chrono::steady_clock::now() - begin, milliseconds(50));
  EXPECT_TRUE(IsSocketTimeout(error)) << error;
  EXPECT_EQ(calls_.Count(Api::getsockopt), 0);
  EXPECT_TRUE(TurnedBack());
}

TEST_F(ConnectCalls, NeverMistakeAFailedWaitForAConnection) {
  InstallFakes(1, 0);
  calls_.Fail(Api::select, WSAENOBUFS);
  EXPECT_EQ(Connect(), WSAENOBUFS);
  EXPECT_TRUE(TurnedBack());
  calls_.Fail(Api::getsockopt, WSAENETDOWN);
  EXPECT_EQ(Connect(), WSAENETDOWN);
  EXPECT_EQ(calls_.Count(Api::ioctlsocket), 4);
}

TEST_F(ConnectCalls, DoNotStartABlockingConnect) {
  calls_.Fail(Api::ioctlsocket, WSAENOBUFS);
  EXPECT_EQ(Connect(), WSAENOBUFS);
  EXPECT_EQ(calls_.Count(Api::connect), 0);
  EXPECT_EQ(calls_.Count(Api::ioctlsocket), 1);
}

// Receives on a non-blocking socket would not wait.
TEST_F(ConnectCalls, FailIfBlockingModeCannotBeRestored) {
  InstallFakes(1, 0);
  calls_.Fail(Api::ioctlsocket, WSAENOBUFS, 2);
  EXPECT_EQ(Connect(), WSAENOBUFS);
  InstallFakes(1, WSAECONNREFUSED);
  calls_.Fail(Api::ioctlsocket, WSAENOBUFS, 2);
  EXPECT_EQ(Connect(), WSAECONNREFUSED) << "the first failure is the cause";
}

TEST_F(ConnectCalls, EndWhenTheSocketIsClosed) {
  InstallFakes(0, 0);
  std::thread caller([this] { EXPECT_EQ(Connect(), SocketClosedError()); });
  while (calls_.Count(Api::select) == 0) std::this_thread::yield();
  socket_->Close();
  caller.join();
  EXPECT_TRUE(TurnedBack());
  EXPECT_EQ(calls_.Unbalanced(), "");
}

TEST_F(SocketCalls, ResolveAnAddressInDigitsWithoutAThread) {
  Calls calls(Calls::Threads::All);
  const HostLookup none = [](const std::string&, std::uint16_t, SocketKind) {
    ADD_FAILURE() << "nobody is asked";
    return std::vector<SocketAddress>();
  };
  EXPECT_EQ(ResolveHost(
                "127.0.0.1", 502, SocketKind::Tcp, [] { return false; }, none)
                .size(),
            1u);
  EXPECT_TRUE(
      calls.WereAmong({Api::getaddrinfo, Api::freeaddrinfo, Api::WSAStartup},
                      {Said<Api::getaddrinfo>("127.0.0.1", "502",
                                              Text{"{flags 4 family 0 type 1 protocol 6}"}, Some{}),
                       Said<Api::freeaddrinfo>(Handle{1})}));
}

TEST_F(SocketCalls, ReadTheErrorRightAfterTheCall) {
  Calls calls;
  calls.Fail(Api::socket, WSAENOBUFS);
  int error = 0;
  EXPECT_EQ(Socket::Create(SocketKind::Tcp, AF_INET, error), nullptr);
  EXPECT_EQ(error, WSAENOBUFS);
  EXPECT_TRUE(calls.Were(
      {Said<Api::socket>(AF_INET, SOCK_STREAM, IPPROTO_TCP), Said<Api::WSAGetLastError>()}));
}

TEST_F(SocketCalls, CancelAPendingCallAndThenClose) {
  Calls calls(Calls::Threads::All);
  const auto socket = Make(SocketKind::UdpIpv4);
  ASSERT_EQ(socket->Bind(SocketAddress::Loopback(0)), 0);
  calls.AnswerWith<Api::shutdown>([](SOCKET, int) { return SOCKET_ERROR; });
  std::thread receiver([this, &socket] {
    SocketAddress from;
    EXPECT_EQ(socket->ReceiveFrom(buffer_, from).error, WSAENOTSOCK);
  });
  while (calls.Count(Api::recvfrom) == 0) std::this_thread::yield();
  socket->Close();
  receiver.join();
  EXPECT_TRUE(calls.EachWas(Api::CancelIoEx, Said<Api::CancelIoEx>(Handle{1}, nullptr)));
  EXPECT_TRUE(calls.WereAmong({Api::closesocket}, {Said<Api::closesocket>(Handle{1})}));
}

TEST_F(SocketCalls, ResolveANameAndFreeTheList) {
  {
    Calls calls;
    EXPECT_FALSE(LookUpHost("127.0.0.1", 502, SocketKind::UdpIpv4).empty());
    EXPECT_TRUE(calls.WereAmong(
        {Api::getaddrinfo, Api::freeaddrinfo},
        {Said<Api::getaddrinfo>("127.0.0.1", "502", Text{"{flags 0 family 2 type 2 protocol 17}"},
                                Some{}),
         Said<Api::freeaddrinfo>(Handle{1})}));
    EXPECT_EQ(calls.Unbalanced(), "");
  }
  Calls calls;
  calls.Fail(Api::getaddrinfo, WSAHOST_NOT_FOUND);
  EXPECT_TRUE(LookUpHost("127.0.0.1", 502, SocketKind::Tcp).empty());
}

}  // namespace
}  // namespace platform
