#include "webview/web_host.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "webview/web_host_fixture.h"

namespace webview {
namespace {

using Lines = std::vector<std::wstring>;

constexpr wchar_t kEnvironmentFailed[] = L"WebView2 环境创建失败，请确认已安装 WebView2 运行时。";
constexpr wchar_t kControllerFailed[] = L"WebView2 控制器创建失败。";
const Lines kPageFailed = {L"界面加载失败。"};
constexpr wchar_t kNoRuntime[] = L"错误 0x80070002：本机未找到 WebView2 运行时。";
constexpr wchar_t kNoRights[] = L"错误 0x80070005：拒绝访问，无法写入界面数据文件夹。";
constexpr wchar_t kNoStart[] = L"错误 0x80004005：浏览器进程无法启动。";
constexpr wchar_t kNothing[] = L"错误 0x00000000：运行时没有给出结果。";
constexpr wchar_t kAborted[] = L"错误 0x80004004：窗口在界面创建完成之前已关闭。";

// Both lines of the message box about a failed environment.
Lines Box(const wchar_t* cause) {
  return {std::wstring(kEnvironmentFailed) + L"\r\n" + cause};
}

TEST_F(WebHostTest, ComesUpStepByStep) {
  Create();
  EXPECT_EQ(folders_, Lines{L"C:\\data"});
  EXPECT_TRUE(calls_.empty());
  EXPECT_FALSE(host_->IsUp());
  CompleteEnvironment();
  EXPECT_EQ(calls_, Calls{"CreateController"});
  EXPECT_EQ(environment_.parent, window_);
  EXPECT_FALSE(host_->IsUp());
  CompleteController();
  // There is no app.html beside the test program.
  EXPECT_EQ(calls_, (Calls{"CreateController", "put_Bounds", "add_WebMessageReceived",
                           "add_ProcessFailed", "Navigate"}));
  EXPECT_TRUE(host_->IsUp());
  EXPECT_TRUE(logged_.empty());
  EXPECT_EQ(controller_.bounds.right, 300);
  EXPECT_EQ(controller_.bounds.bottom, 200);
}

TEST_F(WebHostTest, ComesUpWhenEverythingCompletesInsideTheCalls) {
  completeAtOnce_ = true;
  environment_.completeWith = controller_.As<ICoreWebView2Controller>();
  Create();
  EXPECT_TRUE(host_->IsUp());
  EXPECT_TRUE(logged_.empty());
}

TEST_F(WebHostTest, ShowsTheFileInTheSourceTreeWithoutAPageInTheResources) {
  BringUp();
  EXPECT_TRUE(webView_.html.empty());
  EXPECT_TRUE(webView_.url.starts_with(L"file:///"));
  EXPECT_TRUE(webView_.url.ends_with(L"/../../../src/VelmarineNative/webui/app.html"));
  EXPECT_EQ(webView_.url.find(L'\\'), std::wstring::npos);
  EXPECT_TRUE(logged_.empty());
}

TEST_F(WebHostTest, ShowsThePageInTheResourcesWithoutLookingForAFile) {
  page_ = L"<p>维马林</p>";
  Create();
  CompleteEnvironment();
  CompleteController();
  EXPECT_EQ(calls_, (Calls{"CreateController", "put_Bounds", "add_WebMessageReceived",
                           "add_ProcessFailed", "NavigateToString"}));
  EXPECT_EQ(webView_.html, page_);
  EXPECT_TRUE(webView_.url.empty());
}

TEST_F(WebHostTest, LogsARefusedNavigation) {
  for (const wchar_t* page : {L"", L"<p></p>"}) {
    page_ = page;
    logged_.clear();
    webView_.navigateResult = E_INVALIDARG;
    BringUp();
    EXPECT_EQ(logged_, kPageFailed);
    EXPECT_TRUE(host_->IsUp());
  }
}

TEST_F(WebHostTest, LogsAMissingRuntimeOnce) {
  createResult_ = HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND);
  Create();
  EXPECT_EQ(logged_, (Lines{kEnvironmentFailed, kNoRuntime}));
  EXPECT_EQ(failures_, Box(kNoRuntime));
  EXPECT_FALSE(host_->IsUp());
}

TEST_F(WebHostTest, LogsAFailureReportedBothWaysOnce) {
  createResult_ = E_FAIL;
  failAtOnce_ = true;
  Create();
  EXPECT_EQ(logged_, (Lines{kEnvironmentFailed, kNoStart}));
  EXPECT_EQ(failures_, Box(kNoStart));
}

TEST_F(WebHostTest, LogsAnEnvironmentThatFailsLater) {
  Create();
  environmentHandler_->Invoke(E_ACCESSDENIED, nullptr);
  EXPECT_EQ(logged_, (Lines{kEnvironmentFailed, kNoRights}));
  EXPECT_EQ(failures_, Box(kNoRights));
  EXPECT_TRUE(calls_.empty());
}

TEST_F(WebHostTest, LogsASuccessWithoutAnEnvironment) {
  Create();
  environmentHandler_->Invoke(S_OK, nullptr);
  EXPECT_EQ(logged_, (Lines{kEnvironmentFailed, kNothing}));
}

TEST_F(WebHostTest, LogsAControllerThatFailsLater) {
  Create();
  CompleteEnvironment();
  environment_.handler->Invoke(E_ABORT, nullptr);
  EXPECT_EQ(logged_, (Lines{kControllerFailed, kAborted}));
  EXPECT_TRUE(failures_.empty());
  EXPECT_FALSE(host_->IsUp());
}

TEST_F(WebHostTest, LogsASuccessWithoutAController) {
  Create();
  CompleteEnvironment();
  environment_.handler->Invoke(S_OK, nullptr);
  EXPECT_EQ(logged_, (Lines{kControllerFailed, kNothing}));
}

TEST_F(WebHostTest, LogsAControllerThatIsRefusedAtOnce) {
  environment_.createResult = E_FAIL;
  Create();
  CompleteEnvironment();
  EXPECT_EQ(logged_, (Lines{kControllerFailed, kNoStart}));
}

TEST_F(WebHostTest, LogsAControllerWithoutAWebView) {
  controller_.getWebViewResult = E_FAIL;
  BringUp();
  EXPECT_EQ(logged_, (Lines{kControllerFailed, kNoStart}));
  EXPECT_FALSE(host_->IsUp());
}

TEST_F(WebHostTest, ForwardsOnlyStrings) {
  BringUp();
  Post(L"{\"action\":\"ready\"}");
  Post(std::nullopt);
  Post(L"");
  webView_.handler->Invoke(webView_.As<ICoreWebView2>(), nullptr);
  EXPECT_EQ(messages_, (std::vector<std::wstring>{L"{\"action\":\"ready\"}", L""}));
}

TEST_F(WebHostTest, ForwardsTheWindowsChangesToTheControl) {
  BringUp();
  host_->FitToWindow();
  host_->SetVisible(false);
  host_->SetVisible(true);
  host_->WindowMoved();
  host_->Focus();
  host_->PostJson(L"{}");
  EXPECT_EQ(calls_, (Calls{"put_Bounds", "hide", "show", "moved", "MoveFocus"}));
  EXPECT_EQ(webView_.posted, std::vector<std::wstring>{L"{}"});
}

TEST_F(WebHostTest, ReportsWhichMessagesThePageRefuses) {
  BringUp();
  EXPECT_TRUE(host_->PostJson(L"{}"));
  webView_.postResult = E_INVALIDARG;
  EXPECT_FALSE(host_->PostJson(L"{\x01}"));
  EXPECT_EQ(webView_.posted.size(), 2u);
  // The runtime's texts end at the first U+0000, so it would silently show only a part.
  webView_.postResult = S_OK;
  EXPECT_FALSE(host_->PostJson(std::wstring(L"1\0002", 3)));
  EXPECT_EQ(webView_.posted.size(), 2u);
  host_->Close();
  EXPECT_TRUE(host_->PostJson(L"{}"));
}

TEST_F(WebHostTest, DoesNothingBeforeItIsUp) {
  Create();
  host_->FitToWindow();
  host_->SetVisible(false);
  host_->WindowMoved();
  host_->Focus();
  host_->PostJson(L"{}");
  host_->Close();
  EXPECT_TRUE(calls_.empty());
  EXPECT_TRUE(webView_.posted.empty());
}

TEST_F(WebHostTest, GivesThePageTheKeyboardThatTheWindowAlreadyHas) {
  ::ShowWindow(window_, SW_SHOW);
  ::SetFocus(window_);
  ASSERT_EQ(::GetFocus(), window_);
  Create();
  CompleteEnvironment();
  CompleteController();
  EXPECT_EQ(calls_.back(), "MoveFocus");
}

TEST_F(WebHostTest, ClosesInTheRuntimesOrderAndKeepsNothing) {
  BringUp();
  host_->Close();
  EXPECT_EQ(calls_, (Calls{"remove_WebMessageReceived", "remove_ProcessFailed", "Close"}));
  EXPECT_FALSE(host_->IsUp());
  host_->Close();
  host_->PostJson(L"{}");
  host_->Focus();
  EXPECT_EQ(calls_.size(), 3u);
  EXPECT_TRUE(webView_.posted.empty());
  webView_.handler.Reset();
  webView_.failureHandler.Reset();
  EXPECT_EQ(webView_.References(), 1);
  EXPECT_EQ(controller_.References(), 1);
  EXPECT_EQ(environment_.References(), 1);
}

TEST_F(WebHostTest, CanBeDestroyedWithoutBeingClosed) {
  BringUp();
  host_.reset();
  EXPECT_EQ(calls_, (Calls{"remove_WebMessageReceived", "remove_ProcessFailed", "Close"}));
  EXPECT_EQ(controller_.References(), 1);
  Post(L"late");
  EXPECT_TRUE(messages_.empty());
}

TEST_F(WebHostTest, ClosesALateController) {
  Create();
  CompleteEnvironment();
  host_->Close();
  calls_.clear();
  CompleteController();
  EXPECT_EQ(calls_, Calls{"Close"});
  EXPECT_FALSE(host_->IsUp());
  host_.reset();
  calls_.clear();
  CompleteController();
  EXPECT_EQ(calls_, Calls{"Close"});
  EXPECT_TRUE(logged_.empty());
}

TEST_F(WebHostTest, IgnoresALateEnvironment) {
  Create();
  host_->Close();
  CompleteEnvironment();
  environmentHandler_->Invoke(E_ABORT, nullptr);
  EXPECT_TRUE(calls_.empty());
  EXPECT_TRUE(logged_.empty());
}

TEST_F(WebHostTest, StopsWhenClosedInsideACallThatBringsItUp) {
  const Calls bringingUp = {"CreateCoreWebView2Controller",
                            "get_CoreWebView2",
                            "put_Bounds",
                            "add_WebMessageReceived",
                            "add_ProcessFailed",
                            "NavigateToString",
                            "Navigate",
                            "put_IsVisible"};
  ::ShowWindow(window_, SW_SHOWMINIMIZED);
  for (const std::string& call : bringingUp) {
    for (const bool destroyed : {false, true}) {
      SCOPED_TRACE(call + (destroyed ? ", destroyed" : ", closed"));
      page_ = call == "Navigate" ? L"" : L"<p></p>";
      // A closed control returns these codes; the engineer does not need to see them.
      webView_.navigateResult = call.starts_with("Navigate") ? E_ABORT : S_OK;
      environment_.createResult = call.starts_with("Create") ? E_ABORT : S_OK;
      Calls before;
      interruption_ = {call, [&] {
                         if (destroyed) host_.reset();
                         if (host_) host_->Close();
                         before = calls_;
                       }};
      calls_.clear();
      Create();
      CompleteEnvironment();
      if (call != "CreateCoreWebView2Controller") CompleteController();
      ASSERT_FALSE(interruption_.action) << "never called";
      EXPECT_EQ(calls_, before);
      EXPECT_EQ(std::ranges::count(calls_, "Close"),
                call == "CreateCoreWebView2Controller" ? 0 : 1);
      EXPECT_TRUE(!host_ || !host_->IsUp());
      EXPECT_TRUE(logged_.empty());
      webView_.handler.Reset();
      webView_.failureHandler.Reset();
      host_.reset();
      EXPECT_EQ(webView_.References(), 1);
      EXPECT_EQ(controller_.References(), 1);
      EXPECT_EQ(environment_.References(), 1);
    }
  }
}

TEST_F(WebHostTest, CanBeDestroyedInsideEveryCallOfItsOwner) {
  const std::pair<const char*, std::function<void(WebHost&)>> rows[] = {
      {"put_Bounds", [](WebHost& host) { host.FitToWindow(); }},
      {"put_IsVisible", [](WebHost& host) { host.SetVisible(true); }},
      {"NotifyParentWindowPositionChanged", [](WebHost& host) { host.WindowMoved(); }},
      {"MoveFocus", [](WebHost& host) { host.Focus(); }},
      {"PostWebMessageAsJson", [](WebHost& host) { host.PostJson(L"{}"); }},
      {"NavigateToString", [](WebHost& host) { host.ShowPage(); }},
      {"remove_WebMessageReceived", [](WebHost& host) { host.Close(); }},
      {"remove_ProcessFailed", [](WebHost& host) { host.Close(); }},
      {"Close", [](WebHost& host) { host.Close(); }},
  };
  page_ = L"<p></p>";
  for (const auto& [call, make] : rows) {
    SCOPED_TRACE(call);
    BringUp();
    interruption_ = {call, [this] { host_.reset(); }};
    make(*host_);
    EXPECT_EQ(host_, nullptr);
    EXPECT_EQ(std::ranges::count(calls_, "Close"), 1);
    webView_.handler.Reset();
    webView_.failureHandler.Reset();
    EXPECT_EQ(webView_.References(), 1);
    EXPECT_EQ(controller_.References(), 1);
  }
}

TEST_F(WebHostTest, IgnoresACancelledControllerWhileTheWindowCloses) {
  Create();
  CompleteEnvironment();
  host_->Close();
  environment_.handler->Invoke(E_ABORT, nullptr);
  EXPECT_TRUE(logged_.empty());
}

}  // namespace
}  // namespace webview
