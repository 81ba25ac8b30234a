#include "shell/window_fixture.h"

#include <algorithm>
#include <map>
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
  // The new control is up at once; the test decides when its page is ready.
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

// Detached threads use only the copied functions, because this object may outlive the test.
class WindowTest::FakeDeps final : public WindowDeps {
 public:
  explicit FakeDeps(WindowTest& test)
      : test_(test),
        checkForUpdate_(test.checkForUpdate_),
        forgetPassword_(test.forgetPassword_),
        writeReport_(test.writeReport_) {}

  std::wstring StartLog() override { return test_.onStartLog_ ? test_.onStartLog_() : L""; }
  std::wstring LayOutRuntimeFiles() override { return test_.onLayOut_ ? test_.onLayOut_() : L""; }
  settings::SettingsFile OpenSettings() override {
    if (test_.onOpenSettings_) test_.onOpenSettings_();
    return test_.disk_.File();
  }
  std::unique_ptr<tunnel::Tunnel> MakeTunnel() override {
    auto tunnel = std::make_unique<FakeTunnel>();
    test_.tunnel_ = tunnel.get();
    return tunnel;
  }
  std::wstring RemoveLeftovers() override { return test_.leftovers_; }
  std::wstring UnsuitableComputer() override { return test_.unsuitableComputer_; }

  void WriteLogLine(const std::wstring& text) override { test_.logged_.push_back(text); }
  std::unique_ptr<webview::WebHost> CreateWebHost(HWND, webview::WebEventHandler onEvent) override {
    PageEvents& events = test_.events_;
    events.handler = std::move(onEvent);
    if (test_.hostFails_) throw std::runtime_error("memory");
    if (!test_.environmentFailure_.empty()) {
      events.log(test_.environmentFailure_);
      events.environmentFailed(test_.environmentFailure_);
    }
    return std::make_unique<FakeWebHost>(test_.page_);
  }
  std::shared_ptr<void> Subscribe(HWND window) override {
    test_.subscribed_ = window;
    return std::shared_ptr<void>(
        &test_.subscribed_, [](void* subscribed) { *static_cast<HWND*>(subscribed) = nullptr; });
  }
  void ShowMessageBox(HWND, const std::wstring& text) override { test_.boxes_.push_back(text); }

  std::wstring RunJob(JobKind job, settings::JobSettings& settings, tunnel::Tunnel& tunnel,
                      const JobLink& link) override {
    const std::map<JobKind, const char*> names = {{JobKind::Connect, "connect"},
                                                  {JobKind::Stop, "stop"},
                                                  {JobKind::TestLatency, "latency"},
                                                  {JobKind::OpenRemoteDesktop, "desktop"},
                                                  {JobKind::ResolveDevice, "resolve"}};
    test_.jobsRun_.push_back(names.at(job));
    test_.link_ = link;
    return test_.jobBody_(settings.record, tunnel);
  }
  bool PostJobResult(HWND window, const std::wstring& text) override {
    if (test_.refusedResultPosts_ > 0) {
      --test_.refusedResultPosts_;
      return false;
    }
    return PostText(window, kJobFinished, text);
  }
  std::wstring CheckForUpdate(const settings::Settings& settings,
                              const std::stop_token& closing) override {
    return (*checkForUpdate_)(settings, closing);
  }
  void RemoveProxyBypass(const std::vector<std::wstring>& routes) override {
    if (test_.onProxyRemoval_) test_.onProxyRemoval_(routes);
  }
  void ForgetPassword() override { (*forgetPassword_)(); }
  std::wstring WriteReport(const settings::Settings& settings) override {
    return (*writeReport_)(settings);
  }

 private:
  WindowTest& test_;
  const std::shared_ptr<UpdateCheck> checkForUpdate_;
  const std::shared_ptr<std::function<void()>> forgetPassword_;
  const std::shared_ptr<std::function<std::wstring(const settings::Settings&)>> writeReport_;
};

WindowTest::WindowTest() : deps_(std::make_shared<FakeDeps>(*this)) {
  static const bool registered = RegisterMainWindow(::GetModuleHandleW(nullptr));
  EXPECT_TRUE(registered);
  disk_.files[settings::kPath] = settings::FileBytes(settings::Settings());
  window_ = std::make_unique<MainWindow>(deps_);
  state_ = std::make_unique<WindowState>(*window_);
  jobBody_ = [](settings::Settings&, tunnel::Tunnel&) { return std::wstring(L"完成"); };
}

WindowTest::~WindowTest() {
  Close();
  MSG message{};
  ::PeekMessageW(&message, nullptr, WM_QUIT, WM_QUIT, PM_REMOVE);
}

void WindowTest::Open() {
  ASSERT_NE(CreateMainWindow(::GetModuleHandleW(nullptr), *window_), nullptr);
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
  if (state_->window != nullptr) Send(WM_CLOSE);
}

void WindowTest::PageSends(const std::wstring& json) {
  SendText(kFromPage, json);
}

void WindowTest::PostToPage(const std::wstring& json) {
  ClientDeps& deps = *window_;
  deps.PostToPage(json);
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
