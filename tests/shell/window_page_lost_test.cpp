#include <gtest/gtest.h>

#include <algorithm>
#include <future>

#include "settings/json.h"
#include "shell/window_fixture.h"
#include "shell/window_messages.h"

// The window loses its page and gets a replacement.
namespace shell {
namespace {

using Kind = webview::ProcessFailedKind;
using Lines = std::vector<std::wstring>;
using Names = std::vector<std::string>;

constexpr wchar_t kReady[] = L"{\"action\":\"ready\",\"f\":{\"secret\":\"\",\"target\":\"自动\"}}";
constexpr wchar_t kBrowserGone[] = L"警告：浏览器进程已退出，正在重新打开界面；连接不受影响。";

class WindowPageLost : public WindowTest {
 protected:
  WindowPageLost() { OpenWithReadyPage(); }

  // Reports a failed process and handles everything up to the new page's start.
  void Fail(Kind kind) {
    events_.processFailed(kind);
    Pump();
  }
  // The replacement page has loaded.
  void ComeBack() {
    PageSends(kReady);
    Pump();
  }
  // Returns the only message of that kind since ForgetRecords().
  std::wstring Posted(const std::wstring& kind) const {
    Lines found;
    std::ranges::copy_if(page_.posted, std::back_inserter(found), [&](const std::wstring& json) {
      return json.starts_with(L"{\"t\":\"" + kind + L"\"");
    });
    EXPECT_EQ(found.size(), 1u);
    return found.empty() ? std::wstring() : found.front();
  }
  static std::size_t Occurrences(const std::wstring& whole, const std::wstring& part) {
    std::size_t count = 0;
    for (std::size_t at = whole.find(part); at != std::wstring::npos;
         at = whole.find(part, at + 1)) {
      ++count;
    }
    return count;
  }
};

TEST_F(WindowPageLost, IsRecreatedReloadedOrLeftAlone) {
  events_.processFailed(Kind::BrowserExited);
  EXPECT_TRUE(page_.calls.empty()) << "not inside the browser's own call";
  Pump();
  EXPECT_EQ(page_.calls, Names{"make anew"});
  EXPECT_EQ(logged_, Lines{kBrowserGone});
  ComeBack();
  Fail(Kind::RendererExited);
  EXPECT_EQ(page_.calls, (Names{"make anew", "show page"}));
  ComeBack();
  Fail(Kind::GpuExited);
  EXPECT_EQ(page_.calls.size(), 2u);
  EXPECT_EQ(logged_.size(), 3u);
  EXPECT_TRUE(state_->pageReady);
}

TEST_F(WindowPageLost, TheNextPageGetsFormStateAndEveryLineOnce) {
  Log(L"一");
  Pump();
  Log(L"在途");  // still queued when the browser dies
  Fail(Kind::BrowserExited);
  Log(L"其间");
  Pump();
  ForgetRecords();
  Log(L"又在途");  // still queued when the next page is ready
  PageSends(kReady);
  Pump();
  EXPECT_EQ(PostedKinds(), (Names{"log", "apply", "state", "state", "form", "logs"}));
  const std::wstring logs = Posted(L"logs");
  for (const wchar_t* line : {L"客户端启动中", L"一", L"在途", kBrowserGone, L"其间", L"又在途"}) {
    EXPECT_EQ(Occurrences(logs, L",\"" + std::wstring(line) + L"\","), 1u);
  }
  ForgetRecords();
  ComeBack();
  EXPECT_EQ(PostedKinds(), (Names{"apply", "state", "state"})) << "only for one that stands in";
}

TEST_F(WindowPageLost, TheLast500LinesAreKept) {
  for (int i = 1; i <= 600; ++i) Log(L"行" + std::to_wstring(i) + L"。");
  Pump();
  Fail(Kind::BrowserExited);
  for (int i = 601; i <= 700; ++i) Log(L"行" + std::to_wstring(i) + L"。");
  ForgetRecords();
  ComeBack();
  const settings::JsonValue logs = settings::ReadJsonDocument(Posted(L"logs"));
  const auto& lines = *settings::FindJsonMember(logs, L"lines")->AsArray();
  ASSERT_EQ(lines.size(), 500u);
  EXPECT_EQ(*(*lines.front().AsArray())[1].AsString(), L"行202。") << "and the browser's own line";
  EXPECT_EQ(*(*lines.back().AsArray())[1].AsString(), L"行700。");
}

TEST_F(WindowPageLost, NothingAccumulatesWithoutAPage) {
  Fail(Kind::BrowserExited);
  for (int i = 0; i < 100; ++i) Log(L"line");
  Pump();
  EXPECT_TRUE(state_->pageQueue.empty());
  EXPECT_TRUE(page_.posted.empty());
}

TEST_F(WindowPageLost, APageThatDiesBeforeItWasReadyLosesNothing) {
  PageSends(L"{\"action\":\"connect\",\"f\":{\"secret\":\"mine\"}}");
  FinishJob();
  Fail(Kind::BrowserExited);
  Fail(Kind::BrowserExited);  // the replacement fails, too
  ForgetRecords();
  ComeBack();
  EXPECT_EQ(PostedKinds(), (Names{"apply", "state", "state", "form", "logs"}));
}

TEST_F(WindowPageLost, TypedTextIsRestoredAndNotUsedOtherwise) {
  PageSends(L"{\"action\":\"test\",\"f\":{\"secret\":\"posted\",\"testip\":\"10.0.0.1\"}}");
  FinishJob();
  PageSends(L"{\"action\":\"typed\",\"f\":{\"secret\":\"half a k\",\"profileName\":\"新站\"}}");
  EXPECT_EQ(jobsRun_.size(), 1u);
  EXPECT_EQ(Record().deviceSecret, L"posted");
  Fail(Kind::BrowserExited);
  ForgetRecords();
  ComeBack();
  EXPECT_EQ(Posted(L"form"),
            L"{\"t\":\"form\",\"fields\":{\"secret\":\"half a k\",\"profileName\":\"新站\"}}");
  EXPECT_NE(Posted(L"apply").find(L"\"secret\":\"posted\""), std::wstring::npos);
  std::wstring asked;
  jobBody_ = [&asked](settings::Settings& settings, tunnel::Tunnel&) {
    asked = settings.deviceSecret;
    return std::wstring(L"结果");
  };
  Edit([](settings::Settings& settings) { settings.heartbeatMessage = L"DEVICE_OFFLINE"; });
  Send(WM_TIMER, kRetryTimer);
  FinishJob();
  EXPECT_EQ(asked, L"posted") << "a retry asks with what was posted, not with what is being typed";
}

// A retry sends the form of the last action, even of a dropped one. Neither the replacement page's
// empty form nor the settings replace it.
TEST_F(WindowPageLost, KeepsTheFormOfTheLastAction) {
  PageSends(L"{\"action\":\"connect\",\"f\":{\"secret\":\"mine\",\"testip\":\"10.0.0.1\"}}");
  FinishJob();
  PageSends(L"{\"action\":\"dropped\",\"f\":{\"secret\":\"newer\",\"testip\":\"10.0.0.2\"}}");
  Fail(Kind::RendererExited);
  ComeBack();
  EXPECT_EQ(settings::JsonStringOrEmpty(state_->form, L"secret"), L"newer");
  EXPECT_EQ(settings::JsonStringOrEmpty(state_->form, L"testip"), L"10.0.0.2");
}

TEST_F(WindowPageLost, ALoadedProfileReplacesTypedText) {
  Edit([](settings::Settings& settings) {
    settings.siteProfiles = {{L"B", L"http://b:1", L"D-2", L"key b", L"ALL", {}}};
  });
  PageSends(L"{\"action\":\"typed\",\"f\":{\"secret\":\"half\"}}");
  PageSends(L"{\"action\":\"loadProfile\",\"f\":{\"secret\":\"half\",\"profileSel\":\"B\"}}");
  Fail(Kind::BrowserExited);
  ForgetRecords();
  ComeBack();
  EXPECT_EQ(Posted(L"form"), L"{\"t\":\"form\",\"fields\":{}}");
  EXPECT_NE(Posted(L"apply").find(L"\"secret\":\"key b\""), std::wstring::npos);
}

TEST_F(WindowPageLost, ARunningJobIsShownAsRunning) {
  std::promise<void> begun;
  std::promise<void> gate;
  jobBody_ = [&begun, opened = gate.get_future().share()](settings::Settings&, tunnel::Tunnel&) {
    begun.set_value();
    opened.wait();
    return std::wstring(L"结果");
  };
  PageSends(L"{\"action\":\"connect\",\"f\":{\"secret\":\"mine\"}}");
  Pump();
  begun.get_future().wait();
  Fail(Kind::BrowserExited);
  ForgetRecords();
  PageSends(kReady);
  Pump();
  EXPECT_NE(page_.posted[1].find(L"\"statusline\":\"正在请求连接授权...\""), std::wstring::npos);
  EXPECT_TRUE(state_->busy);
  PageSends(L"{\"action\":\"test\",\"f\":{}}");
  EXPECT_EQ(jobsRun_.size(), 0u) << "dropped, as ever";
  gate.set_value();
  FinishJob();
  EXPECT_NE(page_.posted.back().find(L"\"msg\":\"结果\""), std::wstring::npos);
}

// The action is still in the window's queue when its page dies.
TEST_F(WindowPageLost, AQueuedActionIsCarriedOut) {
  events_.processFailed(Kind::BrowserExited);
  events_.pageMessage(L"{\"action\":\"discovery\",\"f\":{\"discovery\":true}}");
  Pump();
  EXPECT_FALSE(state_->pageReady);
  EXPECT_TRUE(Record().discoveryModeEnabled);
  EXPECT_EQ(logged_.back(), L"局域网发现模式已开启：支持 PLC 广播扫描。");
  ForgetRecords();
  ComeBack();
  EXPECT_NE(Posted(L"apply").find(L"\"discovery\":true"), std::wstring::npos);
}

TEST_F(WindowPageLost, AMessageRefusedByTheNextPageIsSentCleaned) {
  Log(L"甲\x01乙");
  Pump();
  Fail(Kind::BrowserExited);
  ForgetRecords();
  ComeBack();
  const std::wstring logs = Posted(L"logs");
  EXPECT_NE(logs.find(L"甲\xFFFD乙"), std::wstring::npos);
  EXPECT_EQ(page_.refused.size(), 1u);
  EXPECT_EQ(PostedKinds().back(), "logs") << "the warning was given before";
}

TEST_F(WindowPageLost, TheThirdLossShowsABoxWithAdvice) {
  tunnel_->Start({});
  for (int i = 0; i < 2; ++i) {
    Fail(Kind::BrowserExited);
    ComeBack();
  }
  EXPECT_TRUE(boxes_.empty());
  Fail(Kind::BrowserExited);
  EXPECT_EQ(boxes_, Lines{webview::kPageGivenUp});
  EXPECT_EQ(page_.calls, (Names{"make anew", "make anew", "close"}));
  EXPECT_EQ(logged_.end()[-2], L"界面恢复失败：一分钟内三次失效，已停止自动恢复；连接不受影响。");
  EXPECT_TRUE(logged_.back().starts_with(L"提示：连接还在，关窗口时才断开。"));
  Fail(Kind::BrowserExited);
  EXPECT_EQ(boxes_.size(), 1u);
  EXPECT_TRUE(tunnel_->running);
  EXPECT_EQ(tunnel_->stops, 0);
}

TEST_F(WindowPageLost, TheOtherFolderIsTriedByASeparateMessage) {
  events_.otherFolderWanted();
  EXPECT_TRUE(page_.calls.empty());
  Pump();
  EXPECT_EQ(page_.calls, Names{"make anew"});
  EXPECT_TRUE(state_->pageReady) << "no page was lost by it";
}

}  // namespace
}  // namespace shell
