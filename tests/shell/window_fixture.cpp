#include "shell/window_fixture.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

#include "settings/json.h"
#include "shell/main_window.h"
#include "shell/window_messages.h"
#include "text/utf8.h"

namespace shell {
namespace {

constexpr DWORD kPatienceMs = 10'000;

class FakeWebHost final : public webview::WebHost {
 public:
  explicit FakeWebHost(PageRecord& record) : record_(record) {}
  bool IsUp() const override { return record_.up; }
  bool PostJson(const std::wstring& json) override {
    const bool refused =
        record_.refusesAll || std::ranges::any_of(json, [](wchar_t unit) { return unit < L' '; });
    (refused ? record_.refused : record_.posted).push_back(json);
    if (const auto during = std::exchange(record_.duringPost, nullptr)) during();
    return !refused;
  }
  void FitToWindow() override { record_.calls.push_back("fit"); }
  void SetVisible(bool visible) override { record_.calls.push_back(visible ? "show" : "hide"); }
  void WindowMoved() override { record_.calls.push_back("moved"); }
  void Focus() override { record_.calls.push_back("focus"); }
  void ShowPage() override { record_.calls.push_back("show page"); }
  // The new control is there at once; its page is ready when the test says so.
  void MakeAnew() override {
    record_.calls.push_back("make anew");
    record_.up = true;
  }
  void Close() override {
    record_.calls.push_back("close");
    record_.up = false;
  }

 private:
  PageRecord& record_;
};

class FakeNotices final : public SystemNotices {
 public:
  explicit FakeNotices(HWND& subscribed) : subscribed_(subscribed) {}
  ~FakeNotices() override { subscribed_ = nullptr; }
  FakeNotices(const FakeNotices&) = delete;
  FakeNotices& operator=(const FakeNotices&) = delete;

 private:
  HWND& subscribed_;
};

bool DispatchOne() {
  MSG message{};
  if (::PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE) == FALSE) return false;
  if (message.message == WM_QUIT) {
    ::PostQuitMessage(static_cast<int>(message.wParam));  // left for the test to find
    return false;
  }
  ::DispatchMessageW(&message);
  return true;
}

}  // namespace

WindowTest::WindowTest() {
  static const bool registered = RegisterMainWindow(::GetModuleHandleW(nullptr));
  EXPECT_TRUE(registered);
  auto tunnel = std::make_unique<FakeTunnel>();
  tunnel_ = tunnel.get();
  disk_.files[settings::kPath] = settings::FileBytes(settings::Settings());
  state_ = std::make_unique<AppState>(MakeSurroundings(), disk_.File(), std::move(tunnel));
  jobBody_ = [](settings::Settings&, tunnel::Tunnel&) { return std::wstring(L"完成"); };
}

WindowTest::~WindowTest() {
  Close();
  MSG message{};
  ::PeekMessageW(&message, nullptr, WM_QUIT, WM_QUIT, PM_REMOVE);
}

Job WindowTest::NamedJob(const char* name) {
  return
      [this, name](settings::JobSettings& settings, tunnel::Tunnel& tunnel, const JobLink& link) {
        jobsRun_.push_back(name);
        link_ = link;
        return jobBody_(settings.record, tunnel);
      };
}

Surroundings WindowTest::MakeSurroundings() {
  Surroundings fakes;
  fakes.jobs = {NamedJob("connect"), NamedJob("stop"), NamedJob("latency"), NamedJob("desktop"),
                NamedJob("resolve")};
  fakes.checkForUpdate = [check = checkForUpdate_](const settings::Settings& settings,
                                                   const std::stop_token& closing) {
    return (*check)(settings, closing);
  };
  fakes.writeLogLine = [this](const std::wstring& text) { logged_.push_back(text); };
  fakes.createWebHost = [this](HWND, webview::WebHostEvents events) {
    events_ = std::move(events);
    if (hostFails_) throw std::runtime_error("memory");
    if (!environmentFailure_.empty()) {
      events_.log(environmentFailure_);
      events_.environmentFailed(environmentFailure_);
    }
    return std::make_unique<FakeWebHost>(page_);
  };
  fakes.showMessageBox = [this](HWND, const std::wstring& text) { boxes_.push_back(text); };
  fakes.postJobResult = [this](HWND window, const std::wstring& text) {
    if (refusedResultPosts_ > 0) {
      --refusedResultPosts_;
      return false;
    }
    return PostText(window, kJobFinished, text);
  };
  fakes.subscribeToSystem = [this](HWND window) {
    subscribed_ = window;
    return std::make_unique<FakeNotices>(subscribed_);
  };
  fakes.removeProxyBypass = [this](const std::vector<std::wstring>& routes) {
    if (onProxyRemoval_) onProxyRemoval_(routes);
  };
  fakes.forgetPassword = [forget = forgetPassword_] { (*forget)(); };
  fakes.takeOffLeftovers = [this] { return leftovers_; };
  fakes.writeReport = [write = writeReport_](const settings::Settings& settings) {
    return (*write)(settings);
  };
  fakes.unsuitableComputer = [this] { return unsuitableComputer_; };
  return fakes;
}

void WindowTest::Open() {
  ASSERT_NE(CreateMainWindow(::GetModuleHandleW(nullptr), *state_), nullptr);
}

void WindowTest::Pump() {
  while (DispatchOne()) {
  }
}

void WindowTest::PumpUntil(const std::function<bool()>& done) {
  const ULONGLONG end = ::GetTickCount64() + kPatienceMs;
  while (!done()) {
    ASSERT_LT(::GetTickCount64(), end) << "nothing came of it";
    if (!DispatchOne()) ::MsgWaitForMultipleObjects(0, nullptr, FALSE, 100, QS_ALLINPUT);
  }
}

void WindowTest::FinishJob() {
  PumpUntil([this] { return !state_->busy; });
  Pump();
}

void WindowTest::OpenWithReadyPage() {
  Open();
  Pump();
  PageSends(L"{\"action\":\"ready\",\"f\":{\"secret\":\"key\"}}");
  Pump();
  ForgetRecords();
}

void WindowTest::Close() {
  if (state_ && state_->window != nullptr) Send(WM_CLOSE);
}

void WindowTest::PageSends(const std::wstring& json) {
  SendText(kFromPage, json);
}

void WindowTest::SendText(UINT message, const std::wstring& text) {
  auto posted = std::make_unique<std::wstring>(text);
  Send(message, 0, reinterpret_cast<LPARAM>(posted.release()));
}

LRESULT WindowTest::Send(UINT message, WPARAM wParam, LPARAM lParam) {
  return ::SendMessageW(state_->window, message, wParam, lParam);
}

void WindowTest::Connect(const std::wstring& refusal, const std::wstring& connectionId) {
  jobBody_ = [refusal, connectionId](settings::Settings& settings, tunnel::Tunnel&) {
    settings.heartbeatMessage = refusal;
    settings.connectionId = connectionId;
    return std::wstring(L"结果");
  };
  PageSends(L"{\"action\":\"connect\",\"f\":{\"secret\":\"key\"}}");
  FinishJob();
}

void WindowTest::PutOnDisk(const std::function<void(settings::Settings&)>& change) {
  settings::Settings record;
  change(record);
  disk_.files[settings::kPath] = settings::FileBytes(record);
}

int WindowTest::Saves() const {
  return static_cast<int>(
      std::count(disk_.written.begin(), disk_.written.end(), std::wstring(settings::kPath)));
}

void WindowTest::ForgetRecords() {
  logged_.clear();
  page_.posted.clear();
  page_.refused.clear();
  page_.calls.clear();
  disk_.written.clear();
  jobsRun_.clear();
}

std::vector<std::string> WindowTest::PostedKinds() const {
  std::vector<std::string> kinds;
  for (const std::wstring& json : page_.posted) {
    kinds.push_back(
        text::ToUtf8(settings::JsonStringOrEmpty(settings::ReadJsonDocument(json), L"t")));
  }
  return kinds;
}

}  // namespace shell
