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

// A host in its own window with a fake browser that the test controls.
class WebHostTest : public testing::Test {
 protected:
  WebHostTest();
  ~WebHostTest() override;

  void Create();
  // Complete the last requested environment or controller.
  void CompleteEnvironment();
  void CompleteController();
  // Creates the host, completes both and clears the recorded calls.
  void BringUp();
  // Posts `text` from the page, or a value that is not a string.
  void Post(std::optional<std::wstring> text);
  // Fails a process of the browser; nullopt: the runtime does not report which one.
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
  std::wstring otherFolder_;           // empty if there is none
  std::vector<std::wstring> folders_;  // requested, in order
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
