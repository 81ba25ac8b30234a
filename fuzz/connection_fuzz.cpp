// Input: a line of options (h: a connection exists, o: it comes from an old version's file, d:
// discovery is on, f: the tunnel fails), then the service's replies, one per line ("-" for none).
// Whatever the service grants, a failed or ended connection is removed from the disk and the proxy
// list, and an active connection is the one that was granted.

#include <optional>
#include <stdexcept>

#include "diag/proxy_bypass.h"
#include "fuzz_input.h"
#include "platform/memory_files.h"
#include "service/fake_world.h"
#include "settings/json.h"

namespace service {
namespace {

using fuzz::Require;
using settings::Settings;

constexpr wchar_t kOwnEntry[] = L"intranet.example";

// The unit tests' fakes, with a proxy list edited like the real one.
class World {
 public:
  explicit World(fuzz::Input& input) {
    const std::string choices = input.Line();
    const auto has = [&](char choice) { return choices.find(choice) != std::string::npos; };
    fake_.editProxyBypass = [this](ProxyBypassChange change, const auto& routes) {
      return EditProxyBypass(change, routes);
    };
    settings_.engineerId = L"ENG-12345678";
    settings_.discoveryModeEnabled = has('d');
    if (has('h')) HoldConnection(has('o'));
    if (has('f')) {
      fake_.onStart = [] { throw std::runtime_error("No valid target routes were configured."); };
    }
    while (!input.IsEmpty()) {
      const std::wstring reply = input.WideLine();
      if (reply == L"-") {
        fake_.FailRequest("WinHttpSendRequest failed.");
      } else {
        fake_.Answer(reply);
      }
    }
  }

  void Run() {
    const std::wstring line =
        fake_.RunJob(settings_, [this](auto& job) { return fake_.Jobs().Connect(job, fake_); });
    Require(!line.empty());
    if (line.starts_with(L"Error: ")) {
      CheckForgotten();
    } else {
      CheckConnected();
    }
    try {
      fake_.RunJob(settings_, [this](auto& job) { return fake_.Jobs().Stop(job, fake_); });
    } catch (const std::runtime_error&) {
      // Without a usable reply, the connection must still be forgotten.
    }
    CheckForgotten();
  }

 private:
  // A connection of an earlier run. Old versions did not save the grant in its own file.
  void HoldConnection(bool isOld) {
    settings_.connectionId = L"held";
    settings_.assignedAddress = L"10.8.0.9";
    settings_.routesText = L"10.1.0.0/16";
    if (!isOld) {
      settings_.granted = {L"held", L"http://192.0.2.10:31080", L"ENG-1", {L"10.2.0.0/16"}};
    }
    diag::AddProxyBypass(settings::ConnectionInForce(settings_).routes, Store(), note_);
  }

  diag::ProxyListDeps Store() {
    diag::ProxyListDeps store;
    store.read = [this] { return proxyList_; };
    store.write = [this](const std::wstring& list) {
      proxyList_ = list;
      return true;
    };
    store.announce = [] {};
    return store;
  }

  std::wstring EditProxyBypass(ProxyBypassChange change, const std::vector<std::wstring>& routes) {
    if (change == ProxyBypassChange::Remove) {
      return diag::RemoveProxyBypass(routes, Store(), note_);
    }
    Require(fake_.LastSaved().granted.routes.size() == routes.size());  // saved before
    return diag::AddProxyBypass(routes, Store(), note_);
  }

  void CheckForgotten() {
    Require(proxyList_ == kOwnEntry && noteFiles_.files.empty());
    for (const Settings& settings : {settings_, fake_.LastSaved()}) {
      Require(settings.connectionId.empty() && settings.assignedAddress.empty());
      Require(settings.routesText.empty() && settings.granted == settings::GrantedConnection());
    }
  }

  void CheckConnected() {
    if (fake_.starts.empty()) {  // refused
      CheckForgotten();
      return;
    }
    const tunnel::TunnelRequest& request = fake_.starts.back();
    Require(!request.connectionId.empty() && !request.assignedAddress.empty());
    Require(request.connectionId == settings_.connectionId);
    const settings::GrantedConnection granted = settings::ConnectionInForce(settings_);
    Require(granted.connectionId == request.connectionId && !granted.routes.empty());
    Require(granted.serverUrl == settings_.serverUrl);
    const std::wstring written = settings::WriteGrantedConnection(granted);
    Require(settings::ReadGrantedConnection(settings::ReadJsonDocument(written)) == granted);
  }

  FakeWorld fake_;
  Settings settings_;
  std::wstring proxyList_ = kOwnEntry;
  platform::MemoryFiles noteFiles_;
  diag::ProxyNote note_{L"note", noteFiles_};
};

}  // namespace
}  // namespace service

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t sizeBytes) {
  fuzz::Input input(data, sizeBytes);
  service::World(input).Run();
  return 0;
}
