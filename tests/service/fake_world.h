#pragma once

#include <deque>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include "service/connection_jobs.h"

namespace service {

struct SentRequest {
  std::wstring method;
  std::wstring url;
  std::wstring body;
};

// Stands in for the service, the settings file, the proxy list and the tunnel, and keeps one list
// of what happened in which order: "POST <url>", "save", "bypass+ <routes>", "bypass- <routes>",
// "start", "stop".
class FakeWorld : public tunnel::Tunnel {
 public:
  using Reply = std::function<HttpResponse()>;

  // What the next request gets. A request that was not expected fails like a dead service.
  void Answer(const std::wstring& body, std::uint32_t status = 200) {
    replies_.push_back([=] { return HttpResponse{status, body}; });
  }
  void FailRequest(const std::string& message) {
    replies_.push_back([=]() -> HttpResponse { throw std::runtime_error(message); });
  }

  ConnectionPorts Ports() {
    ConnectionPorts ports;
    ports.sendJsonRequest = [this](const std::wstring& method, const std::wstring& url,
                                   const std::wstring& body) {
      requests.push_back({method, url, body});
      events.push_back(method + L" " + url);
      if (replies_.empty()) throw std::runtime_error("no reply was scripted");
      const Reply reply = replies_.front();
      replies_.pop_front();
      return reply();
    };
    ports.saveSettings = [this](const settings::Settings& settings) {
      saved.push_back(settings);
      events.push_back(L"save");
      if (onSave) onSave();
    };
    ports.addProxyBypass = [this](const std::vector<std::wstring>& routes) {
      events.push_back(L"bypass+" + Listed(routes));
      return addText;
    };
    ports.removeProxyBypass = [this](const std::vector<std::wstring>& routes) {
      events.push_back(L"bypass-" + Listed(routes));
      return removeText;
    };
    return ports;
  }

  // Throw when there is none, which fails the test that asks.
  [[nodiscard]] const settings::Settings& LastSaved() const { return saved.at(saved.size() - 1); }
  [[nodiscard]] const std::wstring& LastEvent() const { return events.at(events.size() - 1); }

  tunnel::TunnelStarted Start(const tunnel::TunnelRequest& request) override {
    events.push_back(L"start");
    starts.push_back(request);
    if (onStart) onStart();
    return started;
  }
  std::wstring Stop() override {
    events.push_back(L"stop");
    return stopText;
  }
  void Observe(tunnel::TunnelObserver) override {}
  [[nodiscard]] bool IsRunning() const noexcept override { return false; }
  [[nodiscard]] bool IsRelayConnected() const noexcept override { return false; }

  std::vector<std::wstring> events;
  std::vector<SentRequest> requests;
  std::vector<settings::Settings> saved;
  std::vector<tunnel::TunnelRequest> starts;
  std::wstring addText;
  std::wstring removeText;
  std::wstring stopText;
  tunnel::TunnelStarted started;
  std::function<void()> onStart;  // may throw
  std::function<void()> onSave;   // may throw

 private:
  static std::wstring Listed(const std::vector<std::wstring>& routes) {
    std::wstring text;
    for (const std::wstring& route : routes) text += L" " + route;
    return text;
  }

  std::deque<Reply> replies_;
};

}  // namespace service
