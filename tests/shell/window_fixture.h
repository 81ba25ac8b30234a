#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "settings/memory_disk.h"
#include "shell/fake_tunnel.h"
#include "shell/main_window.h"

namespace shell {

// Records the calls to the browser control.
struct PageRecord {
  bool up = true;
  bool refusesAll = false;
  std::vector<std::wstring> posted;   // accepted by the page
  std::vector<std::wstring> refused;  // control character, as in the real page, or refusesAll
  std::function<void()> duringPost;   // once
  std::vector<std::string> calls;
};

// Raises the browser control's events.
struct PageEvents {
  webview::WebEventHandler handler;

  void log(const std::wstring& text) const { handler({webview::WebEvent::Kind::Log, text}); }
  void pageMessage(const std::wstring& text) const {
    handler({webview::WebEvent::Kind::PageMessage, text});
  }
  void environmentFailed(const std::wstring& text) const {
    handler({webview::WebEvent::Kind::EnvironmentFailed, text});
  }
  void processFailed(webview::ProcessFailedKind kind) const {
    handler({webview::WebEvent::Kind::ProcessFailed, {}, kind});
  }
  void otherFolderWanted() const { handler({webview::WebEvent::Kind::OtherFolderWanted, {}}); }
};

// Names the private state of the window and its client.
struct WindowState {
  explicit WindowState(MainWindow& main)
      : window(main.window_),
        gdi(main.controls_.gdi),
        selectedPage(main.controls_.selectedPage),
        worker(main.worker_),
        workerEnded(main.workerEnded_),
        isReporting(main.isReporting_),
        apartment(main.apartment_),
        web(main.web_),
        client(main.client_),
        busy(client.busy_),
        heartbeatRunning(client.heartbeatRunning_),
        retryArmed(client.retryArmed_),
        closing(client.closing_),
        settings(client.settings_),
        pageReady(client.page_.ready),
        pageQueue(client.page_.queue),
        lastMessage(client.page_.lastMessage),
        form(client.page_.form) {}

  const HWND& window;
  const GdiObjects& gdi;
  const int& selectedPage;
  const std::thread& worker;
  const platform::FileHandle& workerEnded;
  const std::shared_ptr<std::atomic<bool>>& isReporting;
  const std::unique_ptr<ComApartment>& apartment;
  std::unique_ptr<webview::WebHost>& web;
  Client& client;
  std::atomic<bool>& busy;
  std::atomic<bool>& heartbeatRunning;
  const bool& retryArmed;
  std::stop_source& closing;
  settings::SettingsStore& settings;
  const bool& pageReady;
  const std::vector<std::wstring>& pageQueue;
  const std::wstring& lastMessage;
  const settings::JsonValue& form;
};

// The real main window, window procedure and message queue with fake dependencies.
class WindowTest : public testing::Test {
 protected:
  WindowTest();
  ~WindowTest() override;

  // Creates the window without showing it. Posted messages wait until they are pumped.
  void Open();
  // Dispatches posted messages until the queue is empty.
  void Pump();
  // Dispatches messages until `done` returns true; fails after kPatienceMs.
  void PumpUntil(const std::function<bool()>& done);
  // Pumps until the running job's result and all messages that it posted have been handled.
  void FinishJob();
  // Calls Open and Pump, makes the page ready and clears all records.
  void OpenWithReadyPage();
  // Closes the window as its close button does.
  void Close();

  // Sends `json` from the page; returns once it has been handled.
  void PageSends(const std::wstring& json);
  void Log(const std::wstring& text) { state_->client.Log(text); }
  // PostToPage uses the window's queue; DeliverToPage delivers at once.
  void PostToPage(const std::wstring& json);
  void DeliverToPage(const std::wstring& json) { state_->client.DeliverToPage(json); }
  // Sends one of the window's own messages with a text.
  void SendText(UINT message, const std::wstring& text);
  LRESULT Send(UINT message, WPARAM wParam = 0, LPARAM lParam = 0);
  // The engineer clicks 连接, and the job leaves `refusal` and `connectionId` in its settings.
  void Connect(const std::wstring& refusal, const std::wstring& connectionId);
  void ForgetRecords();

  // The members named t of the posted messages, in order: "state", "apply", "log".
  std::vector<std::string> PostedKinds() const;

  // The settings in the window, and those that the next start would load.
  settings::Settings Record() const { return state_->settings.Read(); }
  settings::Settings OnDisk() { return disk_.Load(); }
  // Changes the window's settings without saving them.
  void Edit(const std::function<void(settings::Settings&)>& change) {
    state_->settings.Edit(change);
  }
  // Replaces the settings file with the defaults plus `change`. Call it before Open().
  void PutOnDisk(const std::function<void(settings::Settings&)>& change);
  // Counts the writes of the settings file.
  int Saves() const;

  // Controls and records of the fakes.
  settings::MemoryDisk disk_;
  bool hostFails_ = false;      // creating the browser control throws
  int refusedResultPosts_ = 0;  // how many more job results the window refuses
  std::vector<std::string> jobsRun_;
  std::function<std::wstring(settings::Settings&, tunnel::Tunnel&)> jobBody_;
  JobLink link_;  // passed to the last job
  // Set it before Open(). It may outlive the window and the test: capture nothing of theirs.
  const std::shared_ptr<UpdateCheck> checkForUpdate_ =
      std::make_shared<UpdateCheck>([](const settings::Settings& settings, const std::stop_token&) {
        return settings.deviceName;
      });
  std::vector<std::wstring> logged_;
  HWND subscribed_ = nullptr;  // the window subscribed to the system's notices
  std::function<void(const std::vector<std::wstring>& routes)> onProxyRemoval_;
  // Called on any thread, at the latest when the window is destroyed. May outlive the window, too.
  const std::shared_ptr<std::function<void()>> forgetPassword_ =
      std::make_shared<std::function<void()>>([] {});
  std::wstring leftovers_;  // the line about leftover proxy entries
  std::wstring unsuitableComputer_;
  // Called on a thread that may outlive the window, like the functions above.
  const std::shared_ptr<std::function<std::wstring(const settings::Settings&)>> writeReport_ =
      std::make_shared<std::function<std::wstring(const settings::Settings&)>>();
  std::vector<std::wstring> boxes_;
  PageRecord page_;
  PageEvents events_;
  std::wstring environmentFailure_;  // if set, creating the environment fails at once
  FakeTunnel* tunnel_ = nullptr;     // the window's
  // Steps of the start.
  std::function<std::wstring()> onStartLog_;
  std::function<std::wstring()> onLayOut_;
  std::function<void()> onOpenSettings_;
  std::shared_ptr<WindowDeps> deps_;
  std::unique_ptr<MainWindow> window_;
  std::unique_ptr<WindowState> state_;

 private:
  class FakeDeps;
};

}  // namespace shell
