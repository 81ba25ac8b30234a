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

// A browser control that only remembers what it was told.
struct PageRecord {
  bool up = true;
  bool refusesAll = false;
  std::vector<std::wstring> posted;   // what the page took
  std::vector<std::wstring> refused;  // with a control character, as the real page, or refusesAll
  std::function<void()> duringPost;   // once
  std::vector<std::string> calls;
};

// What the browser control reports.
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

// The state of window and client, by name.
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

// The real main window, with its real procedure and message queue, among fakes.
class WindowTest : public testing::Test {
 protected:
  WindowTest();
  ~WindowTest() override;

  // Makes the window, not shown. Posted messages wait until they are pumped.
  void Open();
  // Dispatches posted messages until there are none left.
  void Pump();
  // Dispatches messages until `done`, for at most some seconds.
  void PumpUntil(const std::function<bool()>& done);
  // Pumps until the running job's result has been handled, and all that it posted.
  void FinishJob();
  // As Open and Pump, with the page ready and all records empty.
  void OpenWithReadyPage();
  // Destroys the window as its close button does.
  void Close();

  // The page posts `json`; handled at once.
  void PageSends(const std::wstring& json);
  void Log(const std::wstring& text) { state_->client.Log(text); }
  // Through the window's queue, or at once.
  void PostToPage(const std::wstring& json);
  void DeliverToPage(const std::wstring& json) { state_->client.DeliverToPage(json); }
  // Posts one of the window's own messages with a text and handles it.
  void SendText(UINT message, const std::wstring& text);
  LRESULT Send(UINT message, WPARAM wParam = 0, LPARAM lParam = 0);
  // The engineer clicks 连接, and the job leaves `refusal` and `connectionId` in its settings.
  void Connect(const std::wstring& refusal, const std::wstring& connectionId);
  void ForgetRecords();

  // The members named t of the posted messages, in order: "state", "apply", "log".
  std::vector<std::string> PostedKinds() const;

  // The record as the window shows it, and as the next start would find it.
  settings::Settings Record() const { return state_->settings.Read(); }
  settings::Settings OnDisk() { return disk_.Load(); }
  // Puts a field of the window's record, without saving.
  void Edit(const std::function<void(settings::Settings&)>& change) {
    state_->settings.Edit(change);
  }
  // Changes what lies on the disk before the start.
  void PutOnDisk(const std::function<void(settings::Settings&)>& change);
  // How often the settings file was written.
  int Saves() const;

  // What the fakes do and what they saw.
  settings::MemoryDisk disk_;
  bool hostFails_ = false;      // making the browser control throws
  int refusedResultPosts_ = 0;  // so many times the window does not take a job's result
  std::vector<std::string> jobsRun_;
  std::function<std::wstring(settings::Settings&, tunnel::Tunnel&)> jobBody_;
  JobLink link_;  // what the last job was given
  // Set before Open(). It outlives the window and is given nothing of the test's own.
  const std::shared_ptr<UpdateCheck> checkForUpdate_ =
      std::make_shared<UpdateCheck>([](const settings::Settings& settings, const std::stop_token&) {
        return settings.deviceName;
      });
  std::vector<std::wstring> logged_;
  HWND subscribed_ = nullptr;  // the window that gets the system's notices
  std::function<void(const std::vector<std::wstring>& routes)> onProxyRemoval_;
  // On any thread, as the window goes at the latest. It outlives the window, too.
  const std::shared_ptr<std::function<void()>> forgetPassword_ =
      std::make_shared<std::function<void()>>([] {});
  std::wstring leftovers_;  // the line about what was left on the proxy list
  std::wstring unsuitableComputer_;
  // On a thread that may outlive the window, like the functions above.
  const std::shared_ptr<std::function<std::wstring(const settings::Settings&)>> writeReport_ =
      std::make_shared<std::function<std::wstring(const settings::Settings&)>>();
  std::vector<std::wstring> boxes_;
  PageRecord page_;
  PageEvents events_;
  std::wstring environmentFailure_;  // when set, making the environment fails at once
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
