#include <dwmapi.h>

#include <string>
#include <utility>

#include "platform/detached_thread.h"
#include "shell/job.h"
#include "shell/page_link.h"
#include "shell/window_events.h"
#include "shell/window_messages.h"
#include "shell/worker.h"
#include "text/utf8.h"

namespace shell {
namespace {

constexpr wchar_t kStarting[] = L"客户端启动中";
constexpr wchar_t kNotReconnected[] = L"警告：自动重连未成功（";
constexpr wchar_t kTryingOn[] = L"），将继续重试。";

void AskForDarkTitleBar(HWND window) {
  constexpr DWORD kUseImmersiveDarkMode = 20;  // DWMWA_USE_IMMERSIVE_DARK_MODE
  const BOOL dark = TRUE;
  ::DwmSetWindowAttribute(window, kUseImmersiveDarkMode, &dark, sizeof(dark));
}

void StartPage(AppState& state) {
  webview::WebHostEvents events;
  events.log = [&state](const std::wstring& text) { Log(state, text); };
  events.pageMessage = [window = state.window](std::wstring message) {
    PostText(window, kFromPage, std::move(message));
  };
  events.environmentFailed = [window = state.window](const std::wstring& text) {
    PostText(window, kShowFailure, text);
  };
  events.processFailed = [window = state.window](webview::ProcessFailedKind kind) {
    ::PostMessageW(window, kBrowserFailed, static_cast<WPARAM>(kind), 0);
  };
  events.otherFolderWanted = [window = state.window] {
    ::PostMessageW(window, kMakePageAnew, 0, 0);
  };
  state.web = state.surroundings.createWebHost(state.window, std::move(events));
}

// The update check's thread.
void CheckForUpdate(HWND window, const UpdateCheck& check, const settings::Settings& settings,
                    const std::stop_token& closing) noexcept {
  std::wstring notice = RunUpdateCheck(check, settings, closing);
  if (!notice.empty()) PostText(window, kNotice, std::move(notice));
}

// No thread to be had ends the program.
void StartUpdateCheck(const AppState& state) noexcept {
  platform::StartDetached([window = state.window, check = state.surroundings.checkForUpdate,
                           settings = state.settings.Read(), closing = state.closing.get_token()] {
    CheckForUpdate(window, check, settings, closing);
  });
}

// The tunnel's threads tell the window by message.
void ObserveTunnel(AppState& state) {
  const HWND window = state.window;
  tunnel::TunnelObserver observer;
  observer.linkChanged = [window](bool connected) {
    ::PostMessageW(window, kLinkChanged, connected ? 1 : 0, 0);
  };
  observer.reconnectFailed = [window](const std::string& reason) {
    PostText(window, kNotice, kNotReconnected + text::FromUtf8(reason) + kTryingOn);
  };
  observer.notice = [window](const std::wstring& line) { PostText(window, kNotice, line); };
  observer.udpChanged = [window](bool ready) {
    ::PostMessageW(window, kUdpChanged, ready ? 1 : 0, 0);
  };
  state.tunnel->Observe(std::move(observer));
}

void WarnOfUnsuitableComputer(AppState& state) {
  const std::wstring warning = state.surroundings.unsuitableComputer();
  if (warning.empty()) return;
  Log(state, warning);
  PostText(state.window, kShowFailure, warning);
}

// Before any job of this run adds entries of its own.
void TakeOffLeftovers(AppState& state) {
  const std::wstring line = state.surroundings.takeOffLeftovers();
  if (!line.empty()) Log(state, line);
}

void Create(AppState& state, HWND window) {
  state.window = window;
  state.apartment = std::make_unique<ComApartment>();
  state.gdi.Create();
  ObserveTunnel(state);
  state.notices = state.surroundings.subscribeToSystem(window);
  AskForDarkTitleBar(window);
  AddReportItem(window);
  StartPage(state);
  state.settings.Load();
  LogSettingsReports(state);
  PostApplyMessage(state);
  PostStateMessage(state);
  LayOut(window);
  Log(state, kStarting);
  TakeOffLeftovers(state);
  WarnOfUnsuitableComputer(state);
  StartUpdateCheck(state);
}

void StopTunnel(AppState& state) noexcept {
  try {
    state.tunnel->StopForGood();
  } catch (...) {  // the window goes all the same
  }
}

}  // namespace

LRESULT OnCreate(HWND window, LPARAM lParam) noexcept {
  const auto* creation = reinterpret_cast<const CREATESTRUCTW*>(lParam);
  auto* state = static_cast<AppState*>(creation->lpCreateParams);
  ::SetWindowLongPtrW(window, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(state));
  try {
    Create(*state, window);
    return 0;
  } catch (...) {
    return -1;
  }
}

LRESULT OnClose(AppState& state) {
  state.closing.request_stop();
  if (state.web) state.web->Close();
  ::DestroyWindow(state.window);
  return 0;
}

// First all that could keep the worker waiting, then the wait, then what the job has left.
LRESULT OnDestroy(AppState& state) {
  state.closing.request_stop();
  if (state.web) state.web->Close();
  DisarmRetry(state);
  state.notices.reset();
  state.endings.clear();  // waits for them
  StopTunnel(state);
  JoinWorker(state);
  ForgetPassword(state);  // which the worker might have copied until now
  if (!state.settings.Unsaved().empty()) state.settings.Save();
  LogSettingsReports(state);
  state.gdi.Delete();
  DropPostedTexts(state.window);
  ::PostQuitMessage(0);
  return 0;
}

LRESULT OnGone(AppState& state, WPARAM wParam, LPARAM lParam) {
  const HWND window = std::exchange(state.window, nullptr);
  ::SetWindowLongPtrW(window, GWLP_USERDATA, 0);
  state.web.reset();
  state.apartment.reset();
  return ::DefWindowProcW(window, WM_NCDESTROY, wParam, lParam);
}

}  // namespace shell
