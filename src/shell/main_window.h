#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <future>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "platform/handles_win.h"
#include "platform/windows_sdk.h"
#include "shell/client.h"
#include "shell/native_controls.h"
#include "shell/window_deps.h"
#include "shell/window_size.h"
#include "webview/web_host.h"
// After the SDK, which it needs.
#include <objbase.h>

namespace shell {

inline constexpr wchar_t kWindowClass[] = L"VelmarineNativeWindow";
inline constexpr wchar_t kWindowTitle[] = L"Velmarine.Client 维马林";

// Keeps its thread in a COM apartment.
class ComApartment {
 public:
  ComApartment() noexcept
      : entered_(SUCCEEDED(::CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED))) {}
  ~ComApartment() {
    if (entered_) ::CoUninitialize();
  }
  ComApartment(const ComApartment&) = delete;
  ComApartment& operator=(const ComApartment&) = delete;

 private:
  const bool entered_;
};

// The program's one window. It turns messages into calls of the client, and owns everything that
// needs Windows: the browser control, timers, the worker and the other threads.
//
// Threads: the one that creates the window. Owned by the start; outlives the window.
class MainWindow final : public ClientDeps {
 public:
  explicit MainWindow(std::shared_ptr<WindowDeps> deps);
  ~MainWindow() override = default;

  // The window procedure's messages.
  LRESULT Handle(UINT message, WPARAM wParam, LPARAM lParam);
  // Logs an exception that reached the window procedure.
  void Report(const std::wstring& text) noexcept;

  // ---- its life (window_life.cpp)

  // -1 ends the window's creation: memory is short. Ends the program when a thread cannot start.
  LRESULT OnCreate(HWND window) noexcept;
  // Closes the browser control while its window is still whole.
  LRESULT OnClose();
  // Ends retry, tunnel, worker and requests; sends nothing to the central service.
  LRESULT OnDestroy();
  LRESULT OnNcDestroy(WPARAM wParam, LPARAM lParam);

  // ---- the computer (window_system.cpp)

  LRESULT OnPowerBroadcast(WPARAM event);
  LRESULT OnSessionChange(WPARAM change);
  // Waits for further changes within half a second, then logs one line.
  LRESULT OnAddressesChanged();
  // Agrees to the end of the session.
  LRESULT OnQueryEndSession();
  // Cleans up when `ends`; otherwise the end was cancelled. Returns within three seconds, even if
  // stopping and cleaning up take longer.
  LRESULT OnEndSession(bool ends);

  // ---- its place and looks (window_view.cpp)

  LRESULT OnSize(WPARAM wParam);
  LRESULT OnMoved(UINT message, WPARAM wParam, LPARAM lParam);
  LRESULT OnFocus();
  LRESULT OnActivate(WPARAM wParam, LPARAM lParam);
  LRESULT OnDpiChanged(LPARAM lParam);
  LRESULT OnPaint();

  // ---- other threads (window_threads.cpp)

  // Starts the report for the system menu's item; other items go to the system.
  LRESULT OnSystemCommand(WPARAM wParam, LPARAM lParam);

 private:
  friend struct WindowState;  // lets tests look inside

  // ---- ClientDeps

  void WriteLogLine(const std::wstring& text) override { deps_->WriteLogLine(text); }
  void PostToPage(std::wstring json) override;
  void PostFailure(const std::wstring& text) override;
  webview::WebHost* Page() noexcept override { return web_.get(); }
  void StartTimer(ClientTimer timer) override;
  void StopTimer(ClientTimer timer) noexcept override;
  void Repaint() override;
  void StartWorker(JobKind job, std::unique_ptr<settings::JobSettings> settings) override;
  void JoinWorker() noexcept override;
  page::TimeOfDay Now() override;

  void HandleText(UINT message, std::wstring text);
  LRESULT HandleWindow(UINT message, WPARAM wParam, LPARAM lParam);
  LRESULT HandleView(UINT message, WPARAM wParam, LPARAM lParam);
  LRESULT OnTimer(WPARAM wParam, LPARAM lParam);
  LRESULT Default(UINT message, WPARAM wParam, LPARAM lParam) const;
  void Create();
  void StartPage();
  void OnWebEvent(webview::WebEvent event);
  void ObserveTunnel();
  void StopTunnel() noexcept;
  void Work(HWND window, JobKind job, std::unique_ptr<settings::JobSettings> settings) noexcept;
  [[nodiscard]] bool HasWorkerEnded() const;
  void StartUpdateCheck() noexcept;
  void StartReport();
  // Takes the remote desktop's password off the clipboard, for at most three seconds.
  void ForgetPassword() noexcept;
  void StartEndings();
  [[nodiscard]] bool HaveEndingsEnded() const;

  const std::shared_ptr<WindowDeps> deps_;
  HWND window_ = nullptr;  // null before WM_CREATE and after the window's end
  Client client_;
  NativeControls controls_;
  std::thread worker_;                      // joined before the next job starts and in OnDestroy()
  platform::FileHandle workerEnded_;        // an event for each job; the worker sets it last
  std::vector<std::future<void>> endings_;  // threads of the session's end
  // A report is being written; its thread may outlive the window.
  std::shared_ptr<std::atomic<bool>> isReporting_ = std::make_shared<std::atomic<bool>>(false);
  std::unique_ptr<ComApartment> apartment_;  // destroyed after the page, which needs it
  std::shared_ptr<void> notices_;            // while the window exists
  std::unique_ptr<webview::WebHost> web_;
};

// To be called once, before the window is created. False when the system refuses.
bool RegisterMainWindow(HINSTANCE instance);

// Creates the window, hidden, and starts the page and the update check. Null on failure.
HWND CreateMainWindow(HINSTANCE instance, MainWindow& window);

// Sets icons and size, and shows the window as `showCommand` asks.
void ShowMainWindow(HINSTANCE instance, HWND window, int showCommand);

// Answers WM_GETMINMAXINFO, which comes before WM_CREATE too.
LRESULT OnMinMaxInfo(HWND window, LPARAM lParam) noexcept;

// The monitor's area without the task bar; empty when the system does not report it.
PixelArea WorkAreaOf(HWND window) noexcept;

// Invalidates and erases.
void LayOut(HWND window);
// Invalidates without erasing.
void Repaint(HWND window);

// Adds the report's item to the system menu.
void AddReportItem(HWND window);

// Sends the window WM_POWERBROADCAST on computers with connected standby too,
// WM_WTSSESSION_CHANGE of its own session, and kAddressesChanged for every change of an IPv4
// address. Ends with the returned object, which must be destroyed while the window exists. A
// subscription that the system refuses is left out.
std::shared_ptr<void> SubscribeToSystem(HWND window);

// Handles messages that other threads send to this one's windows until `haveEnded` returns true.
// False after two and a half seconds.
bool AnswerUntil(const std::function<bool()>& haveEnded);

}  // namespace shell
