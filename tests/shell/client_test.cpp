#include "shell/client.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <optional>
#include <thread>

#include "settings/memory_disk.h"
#include "settings/server_address.h"
#include "shell/fake_tunnel.h"

namespace shell {
namespace {

using Lines = std::vector<std::wstring>;
using Kind = webview::ProcessFailedKind;

constexpr wchar_t kConnectBusy[] = L"正在请求连接授权...";
constexpr wchar_t kRetryBusy[] = L"正在自动重试连接授权...";
constexpr wchar_t kRetryLine[] = L"授权未恢复，将每 5 秒自动重试连接。";

TEST(InitialSettings, AreEmptyExceptForFourTexts) {
  const settings::Settings settings = InitialSettings();
  EXPECT_EQ(settings.serverUrl, settings::DefaultServerUrl());
  EXPECT_EQ(settings.sharedNetworksText, L"192.168.1.0/24");
  EXPECT_EQ(settings.targetNetwork, L"192.168.1.0/24");
  EXPECT_EQ(settings.latencyText, L"未测试");
  for (const std::wstring* text :
       {&settings.deviceNumber, &settings.deviceSecret, &settings.deviceName, &settings.profileName,
        &settings.networkInterfaceName, &settings.engineerId, &settings.rustDeskPath,
        &settings.rustDeskAccessPassword, &settings.rustDeskId, &settings.connectionId,
        &settings.assignedAddress, &settings.routesText, &settings.accessRoutesText,
        &settings.routeMappingsText, &settings.testIp, &settings.heartbeatMessage}) {
    EXPECT_EQ(*text, L"");
  }
  EXPECT_FALSE(settings.rustDeskServiceRunning || settings.heartbeatAccepted ||
               settings.autoStartEnabled || settings.discoveryModeEnabled);
  EXPECT_TRUE(settings.siteProfiles.empty());
}

class FakePage final : public webview::WebHost {
 public:
  bool IsUp() const override { return isUp; }
  bool PostJson(const std::wstring& json) override {
    const bool refused = std::ranges::any_of(json, [](wchar_t unit) { return unit < L' '; });
    if (!refused) posted.push_back(json);
    return !refused;
  }
  void FitToWindow() override {}
  void SetVisible(bool) override {}
  void WindowMoved() override {}
  void Focus() override {}
  void ShowPage() override { ++shown; }
  void MakeAnew() override { ++made; }
  void Close() override { isUp = false; }

  bool isUp = true;
  Lines posted;
  int shown = 0;
  int made = 0;
};

// A client without a window. Page messages wait in `queue_`; a job runs when the test finishes it.
class ClientTest : public testing::Test, public ClientDeps {
 protected:
  ClientTest() {
    disk_.files[settings::kPath] = settings::FileBytes(settings::Settings());
    auto tunnel = std::make_unique<FakeTunnel>();
    tunnel_ = tunnel.get();
    client_ = std::make_unique<Client>(*this, disk_.File(), std::move(tunnel));
    client_->Start();
  }

  void WriteLogLine(const std::wstring& text) override { logged_.push_back(text); }
  void PostToPage(std::wstring json) override { queue_.push_back(std::move(json)); }
  void PostFailure(const std::wstring& text) override { boxes_.push_back(text); }
  webview::WebHost* Page() noexcept override { return &page_; }
  void StartTimer(ClientTimer timer) override { timers_.insert(timer); }
  void StopTimer(ClientTimer timer) noexcept override { timers_.erase(timer); }
  void Repaint() override {}
  void StartWorker(JobKind job, std::unique_ptr<settings::JobSettings> settings) override {
    jobs_.push_back(job);
    running_ = std::move(settings);
  }
  void JoinWorker() noexcept override {}
  page::TimeOfDay Now() override { return {9, 41, 2}; }

  void Deliver() {
    while (!queue_.empty()) {
      client_->DeliverToPage(std::exchange(queue_.front(), {}));
      queue_.pop_front();
    }
  }
  void PageSends(const std::wstring& json) {
    client_->HandlePageMessage(json);
    Deliver();
  }
  void BringPageUp() {
    PageSends(L"{\"action\":\"ready\",\"f\":{\"secret\":\"key\"}}");
    ForgetRecords();
  }
  void ForgetRecords() {
    logged_.clear();
    page_.posted.clear();
    jobs_.clear();
  }
  // Ends the running job, which leaves `refusal` and `connectionId` in its settings.
  void Finish(const std::wstring& refusal, const std::wstring& connectionId) {
    ASSERT_NE(running_, nullptr);
    running_->record.heartbeatMessage = refusal;
    running_->record.connectionId = connectionId;
    running_.reset();
    client_->FinishJob(L"结果");
    Deliver();
  }
  [[nodiscard]] bool HasTimer(ClientTimer timer) const { return timers_.contains(timer); }
  [[nodiscard]] std::size_t CountPosted(const std::wstring& kind) const {
    return static_cast<std::size_t>(std::ranges::count_if(page_.posted, [&](const auto& json) {
      return json.starts_with(L"{\"t\":\"" + kind + L"\"");
    }));
  }

  settings::MemoryDisk disk_;
  FakeTunnel* tunnel_ = nullptr;
  FakePage page_;
  Lines logged_;
  Lines boxes_;
  std::deque<std::wstring> queue_;
  std::set<ClientTimer> timers_;
  std::vector<JobKind> jobs_;
  std::unique_ptr<Client> client_;
  std::unique_ptr<settings::JobSettings> running_;  // refers to the client's settings
};

TEST_F(ClientTest, QueuesMessagesUntilThePageIsReady) {
  Deliver();
  EXPECT_TRUE(page_.posted.empty());
  PageSends(L"{\"action\":\"ready\",\"f\":{}}");
  EXPECT_EQ(CountPosted(L"apply"), 2u) << "the queued one, and one for the ready page";
  EXPECT_EQ(CountPosted(L"state"), 3u);
  EXPECT_EQ(CountPosted(L"log"), 1u);
}

TEST_F(ClientTest, StartsTheJobOfEachAction) {
  BringPageUp();
  const struct {
    const wchar_t* action;
    JobKind job;
  } rows[] = {{L"connect", JobKind::Connect},
              {L"stop", JobKind::Stop},
              {L"test", JobKind::TestLatency},
              {L"desktop", JobKind::OpenRemoteDesktop},
              {L"secondary", JobKind::ResolveDevice}};
  for (const auto& row : rows) {
    ForgetRecords();
    PageSends(L"{\"action\":\"" + std::wstring(row.action) + L"\"}");
    EXPECT_EQ(jobs_, std::vector<JobKind>{row.job});
    Finish(L"", L"");
  }
}

TEST_F(ClientTest, DropsActionsWhileAJobRuns) {
  BringPageUp();
  PageSends(L"{\"action\":\"connect\",\"f\":{\"secret\":\"first\"}}");
  ForgetRecords();
  PageSends(L"{\"action\":\"test\",\"f\":{\"secret\":\"second\"}}");
  EXPECT_TRUE(jobs_.empty());
  EXPECT_TRUE(logged_.empty());
  EXPECT_EQ(client_->Settings().Read().deviceSecret, L"first");
  Finish(L"", L"c1");
  PageSends(L"{\"action\":\"test\"}");
  EXPECT_EQ(jobs_, std::vector<JobKind>{JobKind::TestLatency});
}

TEST_F(ClientTest, StartsNoJobOnceTheWindowCloses) {
  BringPageUp();
  client_->RequestEnd();
  PageSends(L"{\"action\":\"connect\"}");
  EXPECT_TRUE(jobs_.empty());
  EXPECT_TRUE(client_->Closing().stop_requested());
}

TEST_F(ClientTest, RepeatsARefusedRequestUntilItSucceeds) {
  BringPageUp();
  PageSends(L"{\"action\":\"connect\"}");
  EXPECT_TRUE(HasTimer(ClientTimer::StrandedResult));
  Finish(L"DEVICE_OFFLINE", L"");
  EXPECT_FALSE(HasTimer(ClientTimer::StrandedResult));
  EXPECT_TRUE(HasTimer(ClientTimer::Retry));
  EXPECT_EQ(logged_, (Lines{kConnectBusy, L"结果", kRetryLine}));
  ForgetRecords();

  client_->RetryConnect();
  client_->RetryConnect();  // ignored: the first one is running
  EXPECT_EQ(jobs_, std::vector<JobKind>{JobKind::Connect});
  Finish(L"DEVICE_OFFLINE", L"");
  EXPECT_EQ(logged_, (Lines{kRetryBusy, L"结果"})) << "armed once";
  client_->RetryConnect();
  Finish(L"", L"c1");
  EXPECT_FALSE(HasTimer(ClientTimer::Retry));
  ForgetRecords();
  client_->RetryConnect();
  EXPECT_TRUE(jobs_.empty());
}

TEST_F(ClientTest, FinishesAJobWhoseResultWasStranded) {
  BringPageUp();
  PageSends(L"{\"action\":\"test\"}");
  client_->TakeStrandedResult();
  EXPECT_EQ(logged_.size(), 1u) << "only the busy text";
  std::thread worker([this] {
    running_.reset();
    client_->RequestFailed() = true;
    client_->Stranded().Put(L"结果");
  });
  worker.join();
  client_->TakeStrandedResult();
  EXPECT_EQ(logged_.back(), L"结果");
  PageSends(L"{\"action\":\"test\"}");
  EXPECT_EQ(jobs_.size(), 2u) << "no longer busy";
}

TEST_F(ClientTest, QueuesNothingForALostPageAndRestoresTheNext) {
  BringPageUp();
  PageSends(L"{\"action\":\"typed\",\"f\":{\"secret\":\"half\"}}");
  client_->OnBrowserFailed(Kind::BrowserExited);
  EXPECT_EQ(page_.made, 1);
  client_->Log(L"其间");
  Deliver();
  EXPECT_TRUE(page_.posted.empty());
  PageSends(L"{\"action\":\"ready\",\"f\":{\"secret\":\"\"}}");
  EXPECT_EQ(CountPosted(L"log"), 0u);
  EXPECT_EQ(CountPosted(L"form"), 1u);
  EXPECT_EQ(CountPosted(L"logs"), 1u);
  EXPECT_NE(page_.posted.back().find(L"其间"), std::wstring::npos);
}

TEST_F(ClientTest, GivesUpAfterThreeLostPages) {
  BringPageUp();
  for (int i = 0; i < 3; ++i) {
    client_->OnBrowserFailed(Kind::RendererExited);
    if (i < 2) PageSends(L"{\"action\":\"ready\"}");
  }
  EXPECT_EQ(page_.shown, 2);
  EXPECT_FALSE(page_.isUp);
  EXPECT_EQ(boxes_, Lines{webview::kPageGivenUp});
}

TEST_F(ClientTest, ReplacesControlCharactersThatThePageRefuses) {
  BringPageUp();
  client_->Log(L"甲\x01乙");
  Deliver();
  EXPECT_NE(page_.posted.front().find(L"甲\xFFFD乙"), std::wstring::npos);
}

TEST_F(ClientTest, SavesAndLoadsProfiles) {
  BringPageUp();
  PageSends(L"{\"action\":\"saveProfile\",\"f\":{\"secret\":\"key a\",\"profileName\":\"A\"}}");
  PageSends(L"{\"action\":\"saveProfile\",\"f\":{\"secret\":\"key b\",\"profileName\":\"B\"}}");
  EXPECT_EQ(disk_.Load().siteProfiles.size(), 2u);
  PageSends(L"{\"action\":\"loadProfile\",\"f\":{\"profileSel\":\"A\"}}");
  EXPECT_EQ(disk_.Load().deviceSecret, L"key a");
}

TEST_F(ClientTest, HintsAtEachCauseOnce) {
  client_->OnUdpChanged(false);
  tunnel_->running = true;
  ForgetRecords();
  for (int i = 0; i < 3; ++i) client_->OnUdpChanged(false);
  EXPECT_EQ(logged_.size(), 4u);
}

TEST_F(ClientTest, ChecksTheNetworkOnceForEachWake) {
  tunnel_->running = true;
  client_->OnSleep();
  client_->OnSleep();
  client_->OnWake(100'000);
  client_->OnWake(104'999);
  EXPECT_EQ(tunnel_->looks, 1);
  client_->OnWake(105'000);
  EXPECT_EQ(tunnel_->looks, 2);
  client_->OnAddressesChanged();
  EXPECT_EQ(tunnel_->looks, 3);
}

TEST_F(ClientTest, StopsATunnelThatTheServiceNoLongerAccepts) {
  tunnel_->running = true;
  client_->OnHeartbeatRefused(L"拒绝");
  EXPECT_EQ(tunnel_->stops, 1);
  client_->OnLinkChanged(true);
  EXPECT_TRUE(logged_.back().starts_with(L"拒绝\r\n")) << "ignored once stopped";
}

TEST_F(ClientTest, OffersTheSecretOrLogsThatThereIsNone) {
  EXPECT_EQ(client_->SecretToCopy(), L"");
  EXPECT_EQ(logged_.back(), L"当前没有可复制的密钥。");
  PageSends(L"{\"action\":\"none\",\"f\":{\"secret\":\" s \"}}");
  EXPECT_EQ(client_->SecretToCopy(), L"s");
}

}  // namespace
}  // namespace shell
