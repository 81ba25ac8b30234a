#include "webui/web_host.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "webui/com.h"
#include "webui/fake_browser.h"

namespace webui {
namespace {

class WebHostTest : public testing::Test {
 protected:
  WebHostTest() {
    window_ = ::CreateWindowExW(0, L"STATIC", L"", WS_POPUP, 0, 0, 300, 200, nullptr, nullptr,
                                nullptr, nullptr);
  }
  ~WebHostTest() override {
    host_.reset();
    if (window_ != nullptr) ::DestroyWindow(window_);
  }

  void Create() {
    WebHostEvents events;
    events.log = [this](const std::wstring& text) { logged_.push_back(text); };
    events.pageMessage = [this](std::wstring text) { messages_.push_back(std::move(text)); };
    events.environmentFailed = [this](const std::wstring& text) { failures_.push_back(text); };
    host_ = WebCreate(
        window_, L"C:\\data", std::move(events),
        [this](const std::wstring& folder,
               ICoreWebView2CreateCoreWebView2EnvironmentCompletedHandler* handler) {
          folder_ = folder;
          environmentHandler_ =
              ComPtr<ICoreWebView2CreateCoreWebView2EnvironmentCompletedHandler>::Share(handler);
          if (completeAtOnce_) CompleteEnvironment();
          if (failAtOnce_) handler->Invoke(E_FAIL, nullptr);
          return createResult_;
        },
        [this] { return page_; });
  }

  void CompleteEnvironment() {
    environmentHandler_->Invoke(S_OK, environment_.As<ICoreWebView2Environment>());
  }
  void CompleteController() {
    environment_.handler->Invoke(S_OK, controller_.As<ICoreWebView2Controller>());
  }
  void BringUp() {
    Create();
    CompleteEnvironment();
    CompleteController();
    calls_.clear();
  }
  void Post(std::optional<std::wstring> text) {
    FakeMessage message(std::move(text));
    webView_.handler->Invoke(webView_.As<ICoreWebView2>(),
                             message.As<ICoreWebView2WebMessageReceivedEventArgs>());
  }

  Calls calls_;
  Interruption interruption_;
  FakeWebView webView_{calls_, interruption_};
  FakeController controller_{calls_, interruption_, webView_};
  FakeEnvironment environment_{calls_, interruption_};
  ComPtr<ICoreWebView2CreateCoreWebView2EnvironmentCompletedHandler> environmentHandler_;
  bool completeAtOnce_ = false;
  bool failAtOnce_ = false;
  HRESULT createResult_ = S_OK;
  std::wstring page_;  // in the resources
  std::wstring folder_;
  std::vector<std::wstring> logged_;
  std::vector<std::wstring> messages_;
  std::vector<std::wstring> failures_;
  HWND window_ = nullptr;
  std::unique_ptr<WebHost> host_;
};

const std::vector<std::wstring> kEnvironmentFailed = {
    L"WebView2 环境创建失败，请确认已安装 WebView2 运行时。"};
const std::vector<std::wstring> kControllerFailed = {L"WebView2 控制器创建失败。"};
const std::vector<std::wstring> kPageFailed = {L"界面加载失败。"};

TEST_F(WebHostTest, ComesUpStepByStep) {
  Create();
  EXPECT_EQ(folder_, L"C:\\data");
  EXPECT_TRUE(calls_.empty());
  EXPECT_FALSE(host_->IsUp());
  CompleteEnvironment();
  EXPECT_EQ(calls_, Calls{"CreateController"});
  EXPECT_EQ(environment_.parent, window_);
  EXPECT_FALSE(host_->IsUp());
  CompleteController();
  // No app.html lies beside the test program.
  EXPECT_EQ(calls_,
            (Calls{"CreateController", "put_Bounds", "add_WebMessageReceived", "Navigate"}));
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

TEST_F(WebHostTest, ShowsThePageInTheResourcesAndLooksForNoFile) {
  page_ = L"<p>维马林</p>";
  Create();
  CompleteEnvironment();
  CompleteController();
  EXPECT_EQ(calls_, (Calls{"CreateController", "put_Bounds", "add_WebMessageReceived",
                           "NavigateToString"}));
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
  EXPECT_EQ(logged_, kEnvironmentFailed);
  EXPECT_EQ(failures_, kEnvironmentFailed);
  EXPECT_FALSE(host_->IsUp());
}

TEST_F(WebHostTest, LogsAFailureThatComesBothWaysOnce) {
  createResult_ = E_FAIL;
  failAtOnce_ = true;
  Create();
  EXPECT_EQ(logged_, kEnvironmentFailed);
  EXPECT_EQ(failures_, kEnvironmentFailed);
}

TEST_F(WebHostTest, LogsAnEnvironmentThatFailsLater) {
  Create();
  environmentHandler_->Invoke(E_ACCESSDENIED, nullptr);
  EXPECT_EQ(logged_, kEnvironmentFailed);
  EXPECT_EQ(failures_, kEnvironmentFailed);
  EXPECT_TRUE(calls_.empty());
}

TEST_F(WebHostTest, LogsAnEnvironmentThatIsMissingInASuccess) {
  Create();
  environmentHandler_->Invoke(S_OK, nullptr);
  EXPECT_EQ(logged_, kEnvironmentFailed);
}

TEST_F(WebHostTest, LogsAControllerThatFailsLater) {
  Create();
  CompleteEnvironment();
  environment_.handler->Invoke(E_ABORT, nullptr);
  EXPECT_EQ(logged_, kControllerFailed);
  EXPECT_TRUE(failures_.empty());
  EXPECT_FALSE(host_->IsUp());
}

TEST_F(WebHostTest, LogsAControllerThatIsMissingInASuccess) {
  Create();
  CompleteEnvironment();
  environment_.handler->Invoke(S_OK, nullptr);
  EXPECT_EQ(logged_, kControllerFailed);
}

TEST_F(WebHostTest, LogsAControllerThatIsRefusedAtOnce) {
  environment_.createResult = E_FAIL;
  Create();
  CompleteEnvironment();
  EXPECT_EQ(logged_, kControllerFailed);
}

TEST_F(WebHostTest, LogsAControllerWithoutAWebView) {
  controller_.getWebViewResult = E_FAIL;
  BringUp();
  EXPECT_EQ(logged_, kControllerFailed);
  EXPECT_FALSE(host_->IsUp());
}

TEST_F(WebHostTest, PassesOnStringsAndNothingElse) {
  BringUp();
  Post(L"{\"action\":\"ready\"}");
  Post(std::nullopt);
  Post(L"");
  webView_.handler->Invoke(webView_.As<ICoreWebView2>(), nullptr);
  EXPECT_EQ(messages_, (std::vector<std::wstring>{L"{\"action\":\"ready\"}", L""}));
}

TEST_F(WebHostTest, TellsTheControlOfTheWindow) {
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

TEST_F(WebHostTest, TellsWhichMessagesThePageRefuses) {
  BringUp();
  EXPECT_TRUE(host_->PostJson(L"{}"));
  webView_.postResult = E_INVALIDARG;
  EXPECT_FALSE(host_->PostJson(L"{\x01}"));
  EXPECT_EQ(webView_.posted.size(), 2u);
  // The runtime takes texts that end at the first U+0000 and would show a part for the whole.
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

TEST_F(WebHostTest, ClosesInTheOrderOfTheRuntimeAndKeepsNothing) {
  BringUp();
  host_->Close();
  EXPECT_EQ(calls_, (Calls{"remove_WebMessageReceived", "Close"}));
  EXPECT_FALSE(host_->IsUp());
  host_->Close();
  host_->PostJson(L"{}");
  host_->Focus();
  EXPECT_EQ(calls_.size(), 2u);
  EXPECT_TRUE(webView_.posted.empty());
  webView_.handler.Reset();
  EXPECT_EQ(webView_.References(), 1);
  EXPECT_EQ(controller_.References(), 1);
  EXPECT_EQ(environment_.References(), 1);
}

TEST_F(WebHostTest, GoesWithoutBeingClosed) {
  BringUp();
  host_.reset();
  EXPECT_EQ(calls_, (Calls{"remove_WebMessageReceived", "Close"}));
  EXPECT_EQ(controller_.References(), 1);
  Post(L"late");
  EXPECT_TRUE(messages_.empty());
}

TEST_F(WebHostTest, ClosesAControllerThatComesTooLate) {
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

TEST_F(WebHostTest, IgnoresAnEnvironmentThatComesTooLate) {
  Create();
  host_->Close();
  CompleteEnvironment();
  environmentHandler_->Invoke(E_ABORT, nullptr);
  EXPECT_TRUE(calls_.empty());
  EXPECT_TRUE(logged_.empty());
}

TEST_F(WebHostTest, StopsWhereItIsClosedInsideACallThatBringsItUp) {
  const Calls bringingUp = {"CreateCoreWebView2Controller",
                            "get_CoreWebView2",
                            "put_Bounds",
                            "add_WebMessageReceived",
                            "NavigateToString",
                            "Navigate",
                            "put_IsVisible"};
  ::ShowWindow(window_, SW_SHOWMINIMIZED);
  for (const std::string& call : bringingUp) {
    for (const bool destroyed : {false, true}) {
      SCOPED_TRACE(call + (destroyed ? ", destroyed" : ", closed"));
      page_ = call == "Navigate" ? L"" : L"<p></p>";
      // What a closed control answers; none of it is a failure that the engineer needs to know.
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
      host_.reset();
      EXPECT_EQ(webView_.References(), 1);
      EXPECT_EQ(controller_.References(), 1);
      EXPECT_EQ(environment_.References(), 1);
    }
  }
}

TEST_F(WebHostTest, GoesInsideEveryCallThatTheOwnerMakes) {
  const std::pair<const char*, std::function<void(WebHost&)>> rows[] = {
      {"put_Bounds", [](WebHost& host) { host.FitToWindow(); }},
      {"put_IsVisible", [](WebHost& host) { host.SetVisible(true); }},
      {"NotifyParentWindowPositionChanged", [](WebHost& host) { host.WindowMoved(); }},
      {"MoveFocus", [](WebHost& host) { host.Focus(); }},
      {"PostWebMessageAsJson", [](WebHost& host) { host.PostJson(L"{}"); }},
      {"remove_WebMessageReceived", [](WebHost& host) { host.Close(); }},
      {"Close", [](WebHost& host) { host.Close(); }},
  };
  for (const auto& [call, make] : rows) {
    SCOPED_TRACE(call);
    BringUp();
    interruption_ = {call, [this] { host_.reset(); }};
    make(*host_);
    EXPECT_EQ(host_, nullptr);
    EXPECT_EQ(std::ranges::count(calls_, "Close"), 1);
    webView_.handler.Reset();
    EXPECT_EQ(webView_.References(), 1);
    EXPECT_EQ(controller_.References(), 1);
  }
}

TEST_F(WebHostTest, IgnoresACancelledControllerWhileTheWindowGoes) {
  Create();
  CompleteEnvironment();
  host_->Close();
  environment_.handler->Invoke(E_ABORT, nullptr);
  EXPECT_TRUE(logged_.empty());
}

}  // namespace
}  // namespace webui
