#pragma once

#include <deque>
#include <exception>
#include <functional>
#include <stdexcept>
#include <stop_token>
#include <string>
#include <vector>

#include "service/service_jobs.h"
#include "settings/memory_disk.h"

namespace service {

struct SentRequest {
  std::wstring method;
  std::wstring url;
  std::wstring body;
};

// A fake service, settings file, proxy list and tunnel, which record their actions in one list:
// "POST <url>", "save", "bypass+ <routes>", "bypass- <routes>", "start", "stop".
class FakeWorld : public tunnel::Tunnel {
 public:
  using Reply = std::function<HttpResponse()>;

  // The reply to the next request. An unexpected request fails as if the service were unreachable.
  void Answer(const std::wstring& body, std::uint32_t status = 200) {
    replies_.push_back([=] { return HttpResponse{status, body}; });
  }
  void FailRequest(const std::string& message) {
    replies_.push_back([=]() -> HttpResponse { throw std::runtime_error(message); });
  }

  ConnectionJobs Jobs() {
    const auto edit = [this](ProxyBypassChange change, const std::vector<std::wstring>& routes) {
      return editProxyBypass ? editProxyBypass(change, routes) : NoteProxyBypass(change, routes);
    };
    return {Requester(), edit, closing.get_token()};
  }

  JsonRequester Requester() {
    return [this](const std::wstring& method, const std::wstring& url, const std::wstring& body) {
      requests.push_back({method, url, body});
      events.push_back(method + L" " + url);
      if (replies_.empty()) throw std::runtime_error("no reply was scripted");
      const Reply reply = replies_.front();
      replies_.pop_front();
      return reply();
    };
  }

  std::wstring NoteProxyBypass(ProxyBypassChange change, const std::vector<std::wstring>& routes) {
    const bool adds = change == ProxyBypassChange::Add;
    events.push_back((adds ? L"bypass+" : L"bypass-") + Listed(routes));
    return adds ? addText : removeText;
  }

  // Runs `call` as a job on `settings`. They are saved before, and contain the job's changes
  // afterwards.
  template <typename Call>
  std::wstring RunJob(settings::Settings& settings, Call call) {
    settings::SettingsStore store(disk.File(), settings);
    store.Save();
    disk.onWritten = [this](const std::wstring& path) {
      if (path != settings::kPath) return;
      saved.push_back(disk.Load());
      events.push_back(L"save");
    };
    std::wstring text;
    std::exception_ptr failure;
    {
      settings::JobSettings job(store);
      try {
        text = call(job);
      } catch (...) {
        failure = std::current_exception();
      }
      settings = job.record;
    }
    disk.onWritten = nullptr;
    reports = store.TakeReports();
    if (failure) std::rethrow_exception(failure);
    return text;
  }

  // The settings that the next start would load.
  [[nodiscard]] settings::Settings LastSaved() { return disk.Load(); }
  // Throws without an event, which fails the calling test.
  [[nodiscard]] const std::wstring& LastEvent() const { return events.at(events.size() - 1); }

  tunnel::TunnelStarted Start(const tunnel::TunnelRequest& request) override {
    events.push_back(L"start");
    starts.push_back(request);
    if (onStart) onStart();
    return started;
  }
  void StopForGood() override { Stop(); }
  void LookAtNetwork() override {}
  std::wstring Stop() override {
    events.push_back(L"stop");
    return stopText;
  }
  void Observe(tunnel::TunnelObserver) override {}
  [[nodiscard]] bool IsRunning() const noexcept override { return false; }
  [[nodiscard]] bool IsRelayConnected() const noexcept override { return false; }

  std::vector<std::wstring> events;
  std::vector<SentRequest> requests;
  settings::MemoryDisk disk;
  std::vector<settings::Settings> saved;  // by the job, in order
  std::vector<std::wstring> reports;      // from the settings' store, after the job
  std::vector<tunnel::TunnelRequest> starts;
  std::wstring addText;
  std::wstring removeText;
  std::wstring stopText;
  tunnel::TunnelStarted started;
  std::function<void()> onStart;    // may throw
  ProxyBypassEdit editProxyBypass;  // empty: NoteProxyBypass()
  std::stop_source closing;         // of the program

 private:
  static std::wstring Listed(const std::vector<std::wstring>& routes) {
    std::wstring text;
    for (const std::wstring& route : routes) text += L" " + route;
    return text;
  }

  std::deque<Reply> replies_;
};

}  // namespace service
