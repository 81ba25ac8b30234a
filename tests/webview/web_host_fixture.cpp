#include "webview/web_host_fixture.h"

#include <utility>

namespace webview {

WebHostTest::WebHostTest() {
  window_ = ::CreateWindowExW(0, L"STATIC", L"", WS_POPUP, 0, 0, 300, 200, nullptr, nullptr,
                              nullptr, nullptr);
}

WebHostTest::~WebHostTest() {
  host_.reset();
  if (window_ != nullptr) ::DestroyWindow(window_);
}

void WebHostTest::Create() {
  host_ = WebCreate(
      window_, {L"C:\\data", otherFolder_}, [this](const WebEvent& event) { Record(event); },
      [this](const std::wstring& folder,
             ICoreWebView2CreateCoreWebView2EnvironmentCompletedHandler* handler) {
        folders_.push_back(folder);
        environmentHandler_ =
            ComPtr<ICoreWebView2CreateCoreWebView2EnvironmentCompletedHandler>::Share(handler);
        if (completeAtOnce_) CompleteEnvironment();
        if (failAtOnce_) handler->Invoke(E_FAIL, nullptr);
        return createResult_;
      },
      [this] { return page_; });
}

void WebHostTest::Record(const WebEvent& event) {
  switch (event.kind) {
    case WebEvent::Kind::Log:
      return logged_.push_back(event.text);
    case WebEvent::Kind::PageMessage:
      return messages_.push_back(event.text);
    case WebEvent::Kind::EnvironmentFailed:
      return failures_.push_back(event.text);
    case WebEvent::Kind::ProcessFailed:
      return failedProcesses_.push_back(event.process);
    case WebEvent::Kind::OtherFolderWanted:
      ++otherFolderWanted_;
      return;
  }
}

void WebHostTest::CompleteEnvironment() {
  environmentHandler_->Invoke(S_OK, environment_.As<ICoreWebView2Environment>());
}

void WebHostTest::CompleteController() {
  environment_.handler->Invoke(S_OK, controller_.As<ICoreWebView2Controller>());
}

void WebHostTest::BringUp() {
  Create();
  CompleteEnvironment();
  CompleteController();
  calls_.clear();
}

void WebHostTest::Post(std::optional<std::wstring> text) {
  FakeMessage message(std::move(text));
  webView_.handler->Invoke(webView_.As<ICoreWebView2>(),
                           message.As<ICoreWebView2WebMessageReceivedEventArgs>());
}

void WebHostTest::FailProcess(std::optional<int> kind) {
  FakeFailure failure(kind);
  webView_.failureHandler->Invoke(webView_.As<ICoreWebView2>(),
                                  failure.As<ICoreWebView2ProcessFailedEventArgs>());
}

}  // namespace webview
