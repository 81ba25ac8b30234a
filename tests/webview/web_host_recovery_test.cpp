#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "webview/web_host_fixture.h"

// The host's recovery after its browser has failed.
namespace webview {
namespace {

using Lines = std::vector<std::wstring>;

class WebHostRecovery : public WebHostTest {};

TEST_F(WebHostRecovery, ReportsEachKindOfFailedProcess) {
  BringUp();
  for (int kind = 0; kind <= 9; ++kind) FailProcess(kind);
  FailProcess(std::nullopt);
  webView_.failureHandler->Invoke(webView_.As<ICoreWebView2>(), nullptr);
  ASSERT_EQ(failedProcesses_.size(), 11u);
  for (int kind = 0; kind <= 9; ++kind) {
    EXPECT_EQ(failedProcesses_[static_cast<std::size_t>(kind)], ProcessFailedKind{kind});
  }
  EXPECT_EQ(failedProcesses_[10], ProcessFailedKind::Unknown);
  EXPECT_TRUE(calls_.empty()) << "what is done about it is decided elsewhere";
  host_->Close();
  FailProcess(0);
  EXPECT_EQ(failedProcesses_.size(), 11u);
}

TEST_F(WebHostRecovery, LoadsThePageAgain) {
  page_ = L"<p>维马林</p>";
  BringUp();
  webView_.html.clear();
  host_->ShowPage();
  EXPECT_EQ(calls_, Calls{"NavigateToString"});
  EXPECT_EQ(webView_.html, page_);
  webView_.navigateResult = kControlGone;
  host_->ShowPage();
  EXPECT_EQ(logged_, Lines{L"界面加载失败。"});
  host_->Close();
  calls_.clear();
  host_->ShowPage();
  EXPECT_TRUE(calls_.empty());
}

TEST_F(WebHostRecovery, RecreatesTheControlFromTheEnvironmentUp) {
  BringUp();
  const auto oldMessages =
      ComPtr<ICoreWebView2WebMessageReceivedEventHandler>::Share(webView_.handler.Get());
  FakeEnvironment secondEnvironment(calls_, interruption_);
  FakeWebView secondView(calls_, interruption_);
  FakeController secondController(calls_, interruption_, secondView);
  host_->MakeAnew();
  EXPECT_EQ(calls_, (Calls{"remove_WebMessageReceived", "remove_ProcessFailed", "Close"}));
  EXPECT_FALSE(host_->IsUp());
  EXPECT_EQ(folders_, (Lines{L"C:\\data", L"C:\\data"}));
  calls_.clear();
  environmentHandler_->Invoke(S_OK, secondEnvironment.As<ICoreWebView2Environment>());
  secondEnvironment.handler->Invoke(S_OK, secondController.As<ICoreWebView2Controller>());
  EXPECT_EQ(calls_, (Calls{"CreateController", "put_Bounds", "add_WebMessageReceived",
                           "add_ProcessFailed", "Navigate"}));
  EXPECT_TRUE(host_->IsUp());
  EXPECT_TRUE(host_->PostJson(L"{}"));
  EXPECT_EQ(secondView.posted, Lines{L"{}"});
  EXPECT_TRUE(webView_.posted.empty());

  FakeMessage late(L"late");
  oldMessages->Invoke(webView_.As<ICoreWebView2>(),
                      late.As<ICoreWebView2WebMessageReceivedEventArgs>());
  EXPECT_TRUE(messages_.empty()) << "the old control is not heard any more";
  host_.reset();
  secondView.handler.Reset();
  secondView.failureHandler.Reset();
  EXPECT_EQ(secondView.References(), 1);
  EXPECT_EQ(secondController.References(), 1);
}

TEST_F(WebHostRecovery, TheReplacementControlGetsTheKeyboardOfTheActiveWindow) {
  ::ShowWindow(window_, SW_SHOW);
  ::SetForegroundWindow(window_);
  ::SetFocus(nullptr);  // the old control's window had it
  ASSERT_EQ(::GetForegroundWindow(), window_);
  BringUp();
  host_->MakeAnew();
  CompleteEnvironment();
  CompleteController();
  EXPECT_EQ(calls_.back(), "MoveFocus");
}

TEST_F(WebHostRecovery, ReportsFailedRecoveriesLikeFirstFailures) {
  BringUp();
  createResult_ = E_FAIL;
  host_->MakeAnew();
  const Lines both = {L"WebView2 环境创建失败，请确认已安装 WebView2 运行时。",
                      L"错误 0x80004005：浏览器进程无法启动。"};
  EXPECT_EQ(logged_, both);
  EXPECT_EQ(failures_, Lines{both[0] + L"\r\n" + both[1]});
  EXPECT_FALSE(host_->IsUp());

  createResult_ = S_OK;
  logged_.clear();
  host_->MakeAnew();
  CompleteEnvironment();
  environment_.handler->Invoke(E_ACCESSDENIED, nullptr);
  EXPECT_EQ(logged_, (Lines{L"WebView2 控制器创建失败。",
                            L"错误 0x80070005：拒绝访问，无法写入界面数据文件夹。"}));
}

TEST_F(WebHostRecovery, RecreatesNothingOnceItIsClosed) {
  BringUp();
  host_->Close();
  host_->MakeAnew();
  EXPECT_EQ(folders_.size(), 1u);
}

TEST_F(WebHostRecovery, CanBeDestroyedInsideTheCallsThatRecreateIt) {
  for (const char* call : {"remove_WebMessageReceived", "remove_ProcessFailed", "Close"}) {
    SCOPED_TRACE(call);
    folders_.clear();
    BringUp();
    interruption_ = {call, [this] { host_.reset(); }};
    host_->MakeAnew();
    EXPECT_EQ(host_, nullptr);
    EXPECT_EQ(folders_.size(), 1u) << "nothing more is made";
    webView_.handler.Reset();
    webView_.failureHandler.Reset();
    EXPECT_EQ(webView_.References(), 1);
    EXPECT_EQ(controller_.References(), 1);
  }
}

TEST_F(WebHostRecovery, ATextForADeadBrowserIsNotRefused) {
  BringUp();
  webView_.postResult = kControlGone;
  EXPECT_TRUE(host_->PostJson(L"{\x01}"));
  webView_.postResult = E_INVALIDARG;
  EXPECT_FALSE(host_->PostJson(L"{\x01}"));
}

// ---- the other folder

constexpr wchar_t kOtherFolder[] =
    L"提示：界面数据文件夹不可用，改用桌面用户的文件夹：C:\\Users\\desk\\data";

TEST_F(WebHostRecovery, TriesTheOtherFolderOnceIfTheUsualOneFails) {
  otherFolder_ = L"C:\\Users\\desk\\data";
  createResult_ = E_ACCESSDENIED;
  Create();
  EXPECT_EQ(logged_, Lines{kOtherFolder});
  EXPECT_TRUE(failures_.empty());
  EXPECT_EQ(otherFolderWanted_, 1);
  EXPECT_EQ(folders_.size(), 1u) << "nothing is created inside a callback";
  host_->MakeAnew();
  EXPECT_EQ(folders_.back(), otherFolder_);
  EXPECT_EQ(otherFolderWanted_, 1);
  EXPECT_EQ(logged_.size(), 3u);
  EXPECT_EQ(failures_.size(), 1u);
}

TEST_F(WebHostRecovery, KeepsTheOtherFolderOnceItWorks) {
  otherFolder_ = L"C:\\Users\\desk\\data";
  Create();
  CompleteEnvironment();
  environment_.handler->Invoke(E_FAIL, nullptr);
  EXPECT_EQ(logged_, Lines{kOtherFolder}) << "a failed controller is a reason, too";
  host_->MakeAnew();
  CompleteEnvironment();
  CompleteController();
  EXPECT_TRUE(host_->IsUp());
  FailProcess(0);
  host_->MakeAnew();
  EXPECT_EQ(folders_, (Lines{L"C:\\data", otherFolder_, otherFolder_}));
}

TEST_F(WebHostRecovery, NoOtherFolderIsTriedWithoutARuntime) {
  otherFolder_ = L"C:\\Users\\desk\\data";
  createResult_ = HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND);
  Create();
  EXPECT_EQ(otherFolderWanted_, 0);
  EXPECT_EQ(failures_.size(), 1u);
}

}  // namespace
}  // namespace webview
