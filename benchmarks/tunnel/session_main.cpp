#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "benchmarks/tunnel/ends.h"
#include "benchmarks/tunnel/tun_driver.h"
#include "tunnel/relay/udp_relay.h"
#include "tunnel/session.h"

// The program's own tunnel session with a TUN device for a packet driver.
//
//   session TUN MTU SERVER_URL ASSIGNED_ADDRESS ROUTE udp|websocket
//
// The last word names the path to measure; the program fails if small packets take the other one.
// It runs until it is killed or the relay is lost: figures of an interrupted tunnel would be
// meaningless.
namespace {

std::wstring Wide(const std::string& ascii) {
  return {ascii.begin(), ascii.end()};
}

tunnel::SessionDeps DepsOf(const std::string& device, int mtu) {
  tunnel::SessionDeps deps;
  deps.loadDriver = [device, mtu]() { return bench::MakeTunDriver(device, mtu); };
  deps.collectLocalNetworks = []() { return tunnel::LocalNetworks{}; };
  deps.makeUdpRelay = [](tunnel::RelayHost& host) {
    return std::make_unique<tunnel::SocketUdpRelay>(host, tunnel::RealUdpNetwork());
  };
  deps.runHidden = [](const std::wstring&, std::chrono::milliseconds) { return true; };
  deps.pause = [](tunnel::StopSignal& signal, std::chrono::milliseconds time) {
    signal.WaitFor(time);
  };
  return deps;
}

void Run(const std::vector<std::string>& words) {
  if (words.size() != 6 || (words[5] != "udp" && words[5] != "websocket")) {
    throw std::runtime_error(
        "usage: session TUN MTU SERVER_URL ASSIGNED_ADDRESS ROUTE udp|websocket");
  }
  const bool wantsUdp = words[5] == "udp";
  tunnel::Session session(DepsOf(words[0], tun::ParseInteger(words[1], 576, 9000)));
  tunnel::TunnelObserver observer;
  observer.linkChanged = [](bool connected) {
    if (!connected) bench::EndProcess("session: the relay was lost");
  };
  observer.udpChanged = [wantsUdp](bool ready) {
    if (ready != wantsUdp) bench::EndProcess("session: small packets go the other way");
  };
  session.Observe(observer);
  const tun::File signals = tun::OpenSignals();
  session.Start({Wide(words[2]), L"bench", L"engineer", Wide(words[3]), {Wide(words[4])}, false});
  bench::SayReady();
  char signal[128];  // one signalfd_siginfo
  (void)!::read(signals.Get(), signal, sizeof(signal));
  // Without stopping the session: nothing wakes the capturing thread from its read.
  std::_Exit(0);
}

}  // namespace

int main(int argc, char** argv) {
  try {
    Run(std::vector<std::string>(argv + 1, argv + argc));
  } catch (const std::exception& error) {
    bench::EndProcess(error.what());
  }
}
