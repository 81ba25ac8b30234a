#include "diag/latency_test.h"
#include "platform/system_error.h"
#include "remote/fake_computer.h"
#include "service/http_call.h"
#include "shell/hints_fixture.h"
#include "text/utf8.h"
#include "tunnel/relay/udp_relay.h"
#include "tunnel/session.h"
#include "update/idle_update_deps.h"
#include "update/trusted_update.h"
#include "update/update_check.h"
#include "webview/browser_failures.h"

namespace shell {
namespace {

constexpr wchar_t kOffer[] =
    LR"({"success":true,"data":{"updateAvailable":true,"version":"9.0","downloadUrl":"/x",)"
    LR"("force":true}})";

// A forced update that succeeds until the replacement process starts.
struct FailingUpdate : update::IdleUpdateDeps {
  explicit FailingUpdate(std::wstring serviceReply) : reply(std::move(serviceReply)) {
    programPath = L"C:\\client.exe";
    currentVersion = L"1.0.4";
    downloadTarget = L"C:\\x.exe";
  }

  service::HttpResponse SendJsonRequest(const std::wstring&, const std::wstring&,
                                        const std::wstring&) override {
    if (!failure.empty()) throw std::runtime_error(failure);
    return {200, reply};
  }
  bool Download(const std::wstring&, const std::wstring&) override { return downloads; }
  platform::SystemResult ProbeReplacement(const std::wstring&) override { return replaceable; }
  std::wstring WhyNotTrusted(const std::wstring&, const platform::HeldFile*) override {
    return distrust;
  }
  platform::SystemResult StartHidden(const std::wstring&) override { return {}; }

  std::wstring reply;
  std::string failure;
  bool downloads = true;
  platform::SystemResult replaceable{true, 0};
  std::wstring distrust;
};

// For a tunnel that is never opened.
tunnel::SessionDeps IdleDeps() {
  tunnel::SessionDeps deps;
  deps.collectLocalNetworks = [] { return tunnel::LocalNetworks{}; };
  deps.makeUdpRelay = [](tunnel::RelayHost& host) {
    return std::make_unique<tunnel::SocketUdpRelay>(host, tunnel::RealUdpNetwork());
  };
  deps.runHidden = [](auto&&...) { return true; };
  return deps;
}

std::wstring Check(update::UpdateDeps& deps) {
  const auto check = [&deps](const settings::Settings& settings, const std::stop_token&) {
    return update::CheckForUpdate(settings, deps);
  };
  return RunUpdateCheck(check, {}, {});
}
std::wstring CheckWithReply(const std::wstring& reply) {
  FailingUpdate deps(reply);
  return Check(deps);
}

class HintsLocalTest : public HintsTest {
 protected:
  // Returns the line for a desktop whose request is answered with `reply` or fails with `failure`.
  std::wstring OpenDesktop(const std::wstring& reply, const std::string& failure = {}) {
    struct Computer : remote::FakeComputer {
      service::HttpResponse SendJsonRequest(const std::wstring&, const std::wstring&,
                                            const std::wstring&) override {
        if (!failure.empty()) throw std::runtime_error(failure);
        return {200, reply};
      }
      void OnRequestFailed() override { requestFailed = true; }

      std::wstring reply;
      std::string failure;
      bool requestFailed = false;
    };
    Computer computer;  // without RustDesk
    computer.reply = reply;
    computer.failure = failure;
    settings::Settings settings;
    std::wstring line = remote::StartRemoteDesktop(settings, computer);
    facts_.requestFailed = computer.requestFailed;
    return line;
  }

  static std::wstring Ping(const std::wstring& address, diag::EchoOutcome outcome) {
    settings::Settings settings;
    settings.testIp = address;
    return diag::RunLatencyTest(settings, [outcome](std::uint32_t) { return diag::Echo{outcome}; });
  }

  HintFacts facts_;
};

TEST_F(HintsLocalTest, RecogniseWhyAnUpdateCheckFailed) {
  FailingUpdate deps(kOffer);
  EXPECT_EQ(Cause(Check(deps)), L"update.start");
  deps.downloads = false;
  EXPECT_EQ(Cause(Check(deps)), L"update.download");
  EXPECT_EQ(Cause(CheckWithReply(L"<html>")), L"noReason");
  EXPECT_EQ(Cause(CheckWithReply(LR"({"success":false,"message":"暂停"})")), L"");
  EXPECT_EQ(Cause(CheckWithReply(L"{")), L"json");
  EXPECT_EQ(Cause(CheckWithReply(LR"({"success":true,"data":{"updateAvailable":true}})")),
            L"update.offer");
  deps.failure = service::HttpFailureText("WinHttpReceiveResponse", platform::ErrorReason(12007));
  EXPECT_EQ(Cause(Check(deps)), L"http.name");
}

TEST_F(HintsLocalTest, RecogniseAnUntrustedDownload) {
  FailingUpdate deps(kOffer);
  const update::ProgramIdentity self{L"1.0.4", "ab"};
  for (const update::OfferedProgram& offered :
       {update::OfferedProgram{0x800B0100, {}, {}}, {0, "cd", {}}, {0, "ab", {}}}) {
    deps.distrust = update::WhyNotTrusted(offered, self);
    EXPECT_EQ(Cause(Check(deps)), L"update.untrusted") << text::ToUtf8(Check(deps));
  }
  deps.distrust = L"无法读取下载的新程序（错误码 32）。";
  EXPECT_EQ(Cause(Check(deps)), L"update.unreadable");
  deps.reply =
      LR"({"success":true,"data":{"updateAvailable":true,"downloadUrl":"/x",)"
      LR"("version":"9：无法读取下载的新程序（错误码 5）。","force":true}})";
  deps.distrust = L"新程序没有版本信息。";
  EXPECT_EQ(Cause(Check(deps)), L"update.untrusted") << "the version is the service's word";
  deps.replaceable = {false, 5};
  EXPECT_EQ(FindHint(Check(deps), {})->text, L"") << "the line has its cure";
}

TEST_F(HintsLocalTest, RecogniseWhyADesktopDidNotOpen) {
  EXPECT_EQ(Cause(OpenDesktop(LR"({"success":true,"data":{}})"), facts_), L"desktop.program");
  EXPECT_EQ(Cause(OpenDesktop(L"<html>"), facts_), L"noReason");
  const std::string failure =
      service::HttpFailureText("WinHttpReceiveResponse", platform::ErrorReason(12029));
  EXPECT_EQ(Cause(OpenDesktop(L"", failure), facts_), L"http.connect");
  EXPECT_EQ(Cause(OpenDesktop(L"{"), facts_), L"json");
}

TEST_F(HintsLocalTest, DoNotMistakeTheServicesTextForADesktopFailure) {
  const std::wstring failure = L"WinHttpReceiveResponse: " + platform::ErrorReason(12029);
  for (const std::wstring& message : {failure, std::wstring(L"Invalid JSON.")}) {
    const std::wstring line = OpenDesktop(L"{\"success\":false,\"message\":\"" + message + L"\"}");
    EXPECT_EQ(line, L"远程桌面失败：" + message);
    EXPECT_EQ(Cause(line, facts_), L"");
  }
}

TEST_F(HintsLocalTest, RecognisePingFailures) {
  using diag::EchoOutcome;
  EXPECT_EQ(Cause(Ping(L"10.0.0.1", EchoOutcome::Silence)), L"latency.silence");
  EXPECT_EQ(Cause(Ping(L"10.0.0.1", EchoOutcome::Refused)), L"latency.refused");
  EXPECT_EQ(Cause(Ping(L"10.0.0.1", EchoOutcome::NoHandle)), L"latency.handle");
  EXPECT_EQ(Cause(Ping(L"plc", EchoOutcome::Silence)), L"latency.address");
  EXPECT_EQ(Cause(Ping(L"10.0.0.1", EchoOutcome::Answered)), L"");
  EXPECT_EQ(Cause(Ping(L"", EchoOutcome::Answered)), L"");
}

TEST_F(HintsLocalTest, RecogniseWhyTheSettingsWereNotSaved) {
  const struct {
    std::uint32_t code;
    const wchar_t* cause;
  } rows[] = {{5, L"unsaved.denied"},
              {32, L"unsaved.shared"},
              {112, L"unsaved.full"},
              {39, L"unsaved.full"},
              {19, L"unsaved"}};
  for (const auto& row : rows) {
    settings::MemoryDisk disk;
    disk.refuse = [&row](const std::wstring&) { return platform::ErrorReason(row.code); };
    settings::SettingsStore store(disk.File(), {});
    store.Save();
    const std::vector<std::wstring> reports = store.TakeReports();
    ASSERT_EQ(reports.size(), 1u);
    EXPECT_EQ(Cause(reports[0]), row.cause) << row.code;
  }
}

TEST_F(HintsLocalTest, RecogniseHowAConnectionEnded) {
  const auto stop = [](const std::wstring& stopped, const std::wstring& reply) {
    service::FakeWorld world;
    world.stopText = stopped;
    world.Answer(reply);
    settings::Settings settings;
    settings.connectionId = L"c0";
    return world.RunJob(settings,
                        [&](settings::JobSettings& job) { return world.Jobs().Stop(job, world); });
  };
  const std::wstring wasNotRunning = tunnel::Session(IdleDeps()).Stop();
  const std::wstring refusal = LR"({"success":false,"message":"Unknown error."})";
  EXPECT_EQ(Cause(stop(wasNotRunning, LR"({"success":true})")), L"wasNotRunning");
  EXPECT_EQ(Cause(stop(wasNotRunning, refusal)), L"notReported");
  EXPECT_EQ(Cause(stop(L"软件隧道已停止。", refusal)), L"notReported");
  EXPECT_EQ(Cause(stop(L"软件隧道已停止。", LR"({"success":true})")), L"");
}

TEST_F(HintsLocalTest, RecogniseAnUnusableGrant) {
  const auto start = [](const wchar_t* address, const wchar_t* route) {
    return ConnectWith([&] {
      tunnel::TunnelRequest request;
      request.assignedAddress = address;
      request.routes = {route};
      tunnel::Session(IdleDeps()).Start(request);
    });
  };
  EXPECT_EQ(Cause(start(L"nonsense", L"10.0.0.0/8")), L"assigned");
  EXPECT_EQ(Cause(start(L"10.8.0.2", L"nonsense")), L"routes");
}

TEST_F(HintsLocalTest, RecogniseAnAbandonedPageAndUnexpectedErrors) {
  webview::PageFailures failures;
  std::wstring last;
  for (int i = 0; i < 4; ++i) {
    const auto response = failures.OnFailure(webview::ProcessFailedKind::BrowserExited, {});
    if (!response.text.empty()) last = response.text;
  }
  EXPECT_EQ(Cause(last), L"page.given.up");
  for (const std::uint32_t result : {0x80070005u, 0x8007139Fu, 0x87654321u, 0u}) {
    const auto noText = [](std::uint32_t) { return std::wstring(); };
    EXPECT_EQ(Cause(webview::FailureCause(result, noText)), L"page.made") << result;
  }
  settings::MemoryDisk disk;
  settings::SettingsStore store(disk.File(), {});
  settings::JobSettings settings(store);
  service::FakeWorld tunnel;
  const Job job = [](auto&&...) -> std::wstring { throw 7; };
  EXPECT_EQ(Cause(RunJob(job, settings, tunnel, {})), L"unknown");
}

}  // namespace
}  // namespace shell
