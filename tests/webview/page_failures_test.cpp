#include "webview/page_failures.h"

#include <gtest/gtest.h>

namespace webview {
namespace {

using std::chrono_literals::operator""s;
using std::chrono_literals::operator""ms;
using Kind = ProcessFailedKind;

class PageFailuresTest : public testing::Test {
 protected:
  PageRecovery Fail(Kind kind) {
    PageFailureResponse response = failures_.OnFailure(kind, now_);
    text_ = response.text;
    return response.recovery;
  }
  // The page is back and some time goes by.
  void Later(std::chrono::milliseconds passed) {
    failures_.OnPageAlive();
    now_ += passed;
  }

  PageFailures failures_;
  PageFailures::Time now_{};
  std::wstring text_;
};

TEST_F(PageFailuresTest, ADeadBrowserIsMadeAnewAndADeadRendererShownAgain) {
  EXPECT_EQ(Fail(Kind::BrowserExited), PageRecovery::MakeAnew);
  EXPECT_EQ(text_, L"警告：浏览器进程已退出，正在重新打开界面；连接不受影响。");
  Later(60s);
  EXPECT_EQ(Fail(Kind::RendererExited), PageRecovery::ShowPage);
  EXPECT_EQ(text_, L"警告：页面进程已退出，正在重新载入界面；连接不受影响。");
}

TEST_F(PageFailuresTest, HelperProcessesAreLoggedAndNothingElse) {
  const std::pair<Kind, const wchar_t*> rows[] = {
      {Kind::FrameRendererExited, L"框架"},
      {Kind::UtilityExited, L"工具"},
      {Kind::SandboxHelperExited, L"沙箱"},
      {Kind::GpuExited, L"图形"},
      {Kind::PluginExited, L"插件"},
      {Kind::PluginBrokerExited, L"插件"},
      {Kind::Unknown, L"未知"},
      {static_cast<Kind>(57), L"未知"},
  };
  for (const auto& [kind, name] : rows) {
    EXPECT_EQ(Fail(kind), PageRecovery::None);
    EXPECT_EQ(text_,
              std::wstring(L"提示：界面的辅助进程已退出（") + name + L"），由浏览器自行恢复。");
  }
  EXPECT_EQ(Fail(Kind::BrowserExited), PageRecovery::MakeAnew) << "they count for nothing";
}

TEST_F(PageFailuresTest, TheThirdLossWithinAMinuteEndsIt) {
  EXPECT_EQ(Fail(Kind::BrowserExited), PageRecovery::MakeAnew);
  Later(30s);
  EXPECT_EQ(Fail(Kind::RendererExited), PageRecovery::ShowPage);
  Later(29'999ms);
  EXPECT_EQ(Fail(Kind::BrowserExited), PageRecovery::GiveUp);
  EXPECT_EQ(text_, L"界面恢复失败：一分钟内三次失效，已停止自动恢复；连接不受影响。");
  Later(3600s);
  EXPECT_EQ(Fail(Kind::BrowserExited), PageRecovery::None);
  EXPECT_EQ(text_, L"");
}

TEST_F(PageFailuresTest, LossesAMinuteApartNeverEndIt) {
  for (int i = 0; i < 20; ++i) {
    EXPECT_EQ(Fail(Kind::BrowserExited), PageRecovery::MakeAnew);
    Later(30s);
  }
}

TEST_F(PageFailuresTest, ABrowserThatTakesItsRendererAlongIsOneLoss) {
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(Fail(Kind::RendererExited), PageRecovery::ShowPage);
    EXPECT_EQ(Fail(Kind::BrowserExited), PageRecovery::MakeAnew);
    EXPECT_EQ(text_, L"") << "told already";
    Later(1s);
  }
  EXPECT_EQ(Fail(Kind::BrowserExited), PageRecovery::GiveUp);
}

TEST_F(PageFailuresTest, ABrowserThatDiesBeforeThePageIsBackIsAnotherLoss) {
  EXPECT_EQ(Fail(Kind::BrowserExited), PageRecovery::MakeAnew);
  EXPECT_EQ(Fail(Kind::BrowserExited), PageRecovery::MakeAnew);
  EXPECT_EQ(Fail(Kind::BrowserExited), PageRecovery::GiveUp);
}

TEST_F(PageFailuresTest, AHangingPageIsToldAndMadeAnewWhenItHangsOn) {
  EXPECT_EQ(Fail(Kind::RendererUnresponsive), PageRecovery::None);
  EXPECT_EQ(text_, L"警告：界面暂时没有响应；连接不受影响。");
  now_ += 15s;
  EXPECT_EQ(Fail(Kind::RendererUnresponsive), PageRecovery::MakeAnew);
  EXPECT_EQ(text_, L"警告：界面持续没有响应，正在重新打开界面；连接不受影响。");
}

TEST_F(PageFailuresTest, APageThatAnswersInBetweenIsGivenMoreTime) {
  for (int i = 0; i < 5; ++i) {
    EXPECT_EQ(Fail(Kind::RendererUnresponsive), PageRecovery::None);
    Later(5s);
  }
  EXPECT_EQ(Fail(Kind::RendererUnresponsive), PageRecovery::None);
  now_ += 61s;
  EXPECT_EQ(Fail(Kind::RendererUnresponsive), PageRecovery::None) << "a spell of its own";
}

TEST_F(PageFailuresTest, APageThatKeepsHangingIsGivenUp) {
  for (const PageRecovery wanted :
       {PageRecovery::MakeAnew, PageRecovery::MakeAnew, PageRecovery::GiveUp}) {
    EXPECT_EQ(Fail(Kind::RendererUnresponsive), PageRecovery::None);
    EXPECT_EQ(Fail(Kind::RendererUnresponsive), wanted);
    now_ += 5s;
  }
}

}  // namespace
}  // namespace webview
