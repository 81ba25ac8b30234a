#include "tunnel/session_win.h"

#include <memory>
#include <utility>

#include "platform/process_win.h"
#include "platform/windows_sdk.h"
#include "tunnel/adapter_list.h"
#include "tunnel/driver/windivert_api.h"
#include "tunnel/relay/socket_udp_relay.h"
#include "tunnel/session.h"

namespace tunnel {

std::unique_ptr<Tunnel> MakeRealTunnel() {
  SessionDeps deps;
  deps.loadDriver = LoadWinDivert;
  deps.collectLocalNetworks = CollectLocalNetworks;
  deps.makeUdpRelay = [](UdpRelayHooks hooks) {
    return std::make_unique<SocketUdpRelay>(std::move(hooks), RealUdpRelayDeps());
  };
  deps.runHidden = platform::RunHidden;
  deps.tickMs = []() -> std::uint32_t { return ::GetTickCount(); };
  deps.pause = [](StopSignal& signal, std::chrono::milliseconds time) { signal.WaitFor(time); };
  return std::make_unique<Session>(std::move(deps));
}

}  // namespace tunnel
