#pragma once

#include <memory>
#include <stop_token>
#include <string>
#include <vector>

#include "platform/windows_sdk.h"
#include "settings/settings.h"
#include "settings/settings_file.h"
#include "shell/job.h"
#include "tunnel/tunnel.h"
#include "update/trusted_update.h"
#include "webview/web_host.h"

namespace shell {

// The parts of the program that start and window use; fakes in tests. Calls come on the window's
// thread unless a comment says otherwise. Detached threads share ownership, so an object may
// outlive its window.
class WindowDeps {
 public:
  WindowDeps() = default;
  virtual ~WindowDeps() = default;
  WindowDeps(const WindowDeps&) = delete;
  WindowDeps& operator=(const WindowDeps&) = delete;

  // ---- the start, in this order

  // Returns the log's path.
  virtual std::wstring StartLog() = 0;
  // Returns a line for the log, or nothing.
  virtual std::wstring LayOutRuntimeFiles() = 0;
  virtual settings::SettingsFile OpenSettings() = 0;
  virtual std::unique_ptr<tunnel::Tunnel> MakeTunnel() = 0;
  // Before any job: removes proxy entries that an earlier run left behind. Returns a line, or
  // nothing.
  virtual std::wstring RemoveLeftovers() = 0;
  // Returns a warning when the program cannot fully work on this computer.
  virtual std::wstring UnsuitableComputer() = 0;

  // ---- the window

  virtual void WriteLogLine(const std::wstring& text) = 0;
  virtual std::unique_ptr<webview::WebHost> CreateWebHost(HWND window,
                                                          webview::WebEventHandler onEvent) = 0;
  // System notices come as messages until the returned object is destroyed; see
  // SubscribeToSystem().
  virtual std::shared_ptr<void> Subscribe(HWND window) = 0;
  virtual void ShowMessageBox(HWND window, const std::wstring& text) = 0;

  // ---- any thread

  virtual std::wstring RunJob(JobKind job, settings::JobSettings& settings, tunnel::Tunnel& tunnel,
                              const JobLink& link) = 0;
  // Posts a job's result; false when the window's queue is full.
  virtual bool PostJobResult(HWND window, const std::wstring& text) = 0;
  // Returns a notice for the engineer, or nothing. Ends soon once `closing` is requested.
  virtual std::wstring CheckForUpdate(const settings::Settings& settings,
                                      const std::stop_token& closing) = 0;
  virtual void RemoveProxyBypass(const std::vector<std::wstring>& routes) = 0;
  // Takes the remote desktop's password off the clipboard and prevents any further copy.
  virtual void ForgetPassword() = 0;
  // Writes the report for a question and returns the line with its path. Takes up to 20 seconds.
  virtual std::wstring WriteReport(const settings::Settings& settings) = 0;
};

// The program itself; `self` is its own version and signer.
std::shared_ptr<WindowDeps> RealWindowDeps(const update::ProgramIdentity& self);

}  // namespace shell
