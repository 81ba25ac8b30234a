#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "webview/com.h"
#include "webview/fake_browser.h"
#include "webview/web_create.h"

namespace webview {

// A host in a window of its own, with a browser that does what the test makes it do.
class WebHostTest : public testing::Test {
 protected:
  WebHostTest();
  ~WebHostTest() override;

  void Create();
  // The last environment or controller asked for comes.
  void CompleteEnvironment();
  void CompleteController();
  // All of that, with the calls forgotten.
  void BringUp();
  // The page posts `text`, or something that is no string.
  void Post(std::optional<std::wstring> text);
  // A process of the browser fails; nothing = the runtime does not tell which.
  void FailProcess(std::optional<int> kind);

  Calls calls_;
  Interruption interruption_;
  FakeWebView webView_{calls_, interruption_};
  FakeController controller_{calls_, interruption_, webView_};
  FakeEnvironment environment_{calls_, interruption_};
  ComPtr<ICoreWebView2CreateCoreWebView2EnvironmentCompletedHandler> environmentHandler_;
  bool completeAtOnce_ = false;
  bool failAtOnce_ = false;
  HRESULT createResult_ = S_OK;
  std::wstring page_;                  // in the resources
  std::wstring otherFolder_;           // empty: there is none
  std::vector<std::wstring> folders_;  // asked for, in order
  std::vector<std::wstring> logged_;
  std::vector<std::wstring> messages_;
  std::vector<std::wstring> failures_;
  std::vector<ProcessFailedKind> failedProcesses_;
  int otherFolderWanted_ = 0;
  HWND window_ = nullptr;
  std::unique_ptr<WebHost> host_;

 private:
  void Record(const WebEvent& event);
};

}  // namespace webview
