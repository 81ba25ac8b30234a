#include "webview/browser_failures.h"

#include <gtest/gtest.h>

namespace webview {
namespace {

std::wstring NoText(std::uint32_t) {
  return {};
}

TEST(FailureText, NamesTheCodeAndTheUsualCausesInItsOwnWords) {
  const struct {
    std::uint32_t result;
    const wchar_t* line;
  } rows[] = {
      {0x80070002, L"错误 0x80070002：本机未找到 WebView2 运行时。"},
      {0x80070005, L"错误 0x80070005：拒绝访问，无法写入界面数据文件夹。"},
      {0x8007139F, L"错误 0x8007139F：界面数据文件夹正由另一程序以不同的选项使用，或窗口已关闭。"},
      {0x80080005, L"错误 0x80080005：浏览器进程未能启动。"},
      {0x80004005, L"错误 0x80004005：浏览器进程无法启动。"},
  };
  for (const auto& row : rows) {
    const auto unasked = [](std::uint32_t) -> std::wstring { throw 7; };
    EXPECT_EQ(FailureCause(row.result, unasked), row.line);
  }
}

TEST(FailureText, UsesTheSystemsTextForOtherCodes) {
  std::uint32_t asked = 0;
  const auto text = [&asked](std::uint32_t code) {
    asked = code;
    return std::wstring(L"管道已结束。\r\n");
  };
  EXPECT_EQ(FailureCause(0x8007006D, text), L"错误 0x8007006D：管道已结束。");
  EXPECT_EQ(asked, 109u) << "a bare system code";
  EXPECT_EQ(FailureCause(0x80040154, text), L"错误 0x80040154：管道已结束。");
  EXPECT_EQ(asked, 0x80040154u);
  EXPECT_EQ(FailureCause(0x80070ABC, NoText), L"错误 0x80070ABC：系统未给出说明。");
}

TEST(FailureText, ReportsASuccessWithoutAnObject) {
  EXPECT_EQ(FailureCause(0, NoText), L"错误 0x00000000：运行时没有给出结果。");
}

TEST(FailureText, NoOtherFolderHelpsAMissingRuntimeOrAClosedWindow) {
  for (const std::uint32_t result : {0x80070002u, 0x8007007Eu, 0x8007064Eu, 0x80004004u}) {
    EXPECT_FALSE(MayBeTheFolder(result)) << result;
  }
  for (const std::uint32_t result : {0x80070005u, 0x8007139Fu, 0x80070050u, 0x80004005u, 0u}) {
    EXPECT_TRUE(MayBeTheFolder(result)) << result;
  }
}

// ---- failed processes

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
  // The page loads again and `passed` elapses.
  void AdvanceAfterReload(std::chrono::milliseconds passed) {
    failures_.OnPageAlive();
    now_ += passed;
  }

  PageFailures failures_;
  PageFailures::Time now_{};
  std::wstring text_;
};

TEST_F(PageFailuresTest, ADeadBrowserIsRecreatedAndADeadRendererReloaded) {
  EXPECT_EQ(Fail(Kind::BrowserExited), PageRecovery::MakeAnew);
  EXPECT_EQ(text_, L"警告：浏览器进程已退出，正在重新打开界面；连接不受影响。");
  AdvanceAfterReload(60s);
  EXPECT_EQ(Fail(Kind::RendererExited), PageRecovery::ShowPage);
  EXPECT_EQ(text_, L"警告：页面进程已退出，正在重新载入界面；连接不受影响。");
}

TEST_F(PageFailuresTest, HelperProcessesAreOnlyLogged) {
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

TEST_F(PageFailuresTest, TheThirdLossWithinAMinuteEndsRecovery) {
  EXPECT_EQ(Fail(Kind::BrowserExited), PageRecovery::MakeAnew);
  AdvanceAfterReload(30s);
  EXPECT_EQ(Fail(Kind::RendererExited), PageRecovery::ShowPage);
  AdvanceAfterReload(29'999ms);
  EXPECT_EQ(Fail(Kind::BrowserExited), PageRecovery::GiveUp);
  EXPECT_EQ(text_, L"界面恢复失败：一分钟内三次失效，已停止自动恢复；连接不受影响。");
  AdvanceAfterReload(3600s);
  EXPECT_EQ(Fail(Kind::BrowserExited), PageRecovery::None);
  EXPECT_EQ(text_, L"");
}

TEST_F(PageFailuresTest, LossesAMinuteApartNeverEndRecovery) {
  for (int i = 0; i < 20; ++i) {
    EXPECT_EQ(Fail(Kind::BrowserExited), PageRecovery::MakeAnew);
    AdvanceAfterReload(30s);
  }
}

TEST_F(PageFailuresTest, ABrowserThatDiesWithItsRendererIsOneLoss) {
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(Fail(Kind::RendererExited), PageRecovery::ShowPage);
    EXPECT_EQ(Fail(Kind::BrowserExited), PageRecovery::MakeAnew);
    EXPECT_EQ(text_, L"") << "told already";
    AdvanceAfterReload(1s);
  }
  EXPECT_EQ(Fail(Kind::BrowserExited), PageRecovery::GiveUp);
}

TEST_F(PageFailuresTest, ABrowserThatDiesBeforeThePageIsBackIsAnotherLoss) {
  EXPECT_EQ(Fail(Kind::BrowserExited), PageRecovery::MakeAnew);
  EXPECT_EQ(Fail(Kind::BrowserExited), PageRecovery::MakeAnew);
  EXPECT_EQ(Fail(Kind::BrowserExited), PageRecovery::GiveUp);
}

TEST_F(PageFailuresTest, AHangingPageIsReportedAndRecreatedIfItKeepsHanging) {
  EXPECT_EQ(Fail(Kind::RendererUnresponsive), PageRecovery::None);
  EXPECT_EQ(text_, L"警告：界面暂时没有响应；连接不受影响。");
  now_ += 15s;
  EXPECT_EQ(Fail(Kind::RendererUnresponsive), PageRecovery::MakeAnew);
  EXPECT_EQ(text_, L"警告：界面持续没有响应，正在重新打开界面；连接不受影响。");
}

TEST_F(PageFailuresTest, APageThatAnswersInBetweenIsGivenMoreTime) {
  for (int i = 0; i < 5; ++i) {
    EXPECT_EQ(Fail(Kind::RendererUnresponsive), PageRecovery::None);
    AdvanceAfterReload(5s);
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
