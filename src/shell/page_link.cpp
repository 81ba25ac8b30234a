#include "shell/page_link.h"

#include <chrono>
#include <utility>

#include "page/actions.h"
#include "page/messages.h"
#include "shell/hints.h"
#include "shell/window_messages.h"

namespace shell {
namespace {

constexpr std::size_t kMaxLoggedLines = 500;  // as many as the page shows

constexpr wchar_t kReplaced[] = L"警告：一条消息含有页面无法接受的字符，已替换后重新发送。";

page::TimeOfDay LocalTimeOfDay() {
  SYSTEMTIME now{};
  ::GetLocalTime(&now);
  return {now.wHour, now.wMinute, now.wSecond};
}

void DeliverKept(AppState& state) {
  for (std::wstring& json : std::exchange(state.pageQueue, {})) {
    DeliverToPage(state, std::move(json));
  }
}

// Without this a text of the service with a control character would be lost, and the page would
// wait for it for ever. The warning comes once a run: it goes to the page, too.
void DeliverRefused(AppState& state, const std::wstring& json) {
  const std::wstring clean = page::WithoutControlCharacters(json);
  // The control may have gone during the first try.
  if (clean == json || !state.web) return;
  state.web->PostJson(clean);
  if (!std::exchange(state.refusalLogged, true)) Log(state, kReplaced);
}

void LogLine(AppState& state, const std::wstring& text) {
  const page::TimeOfDay now = LocalTimeOfDay();
  if (state.loggedLines.size() == kMaxLoggedLines) state.loggedLines.pop_front();
  state.loggedLines.push_back({now, text});
  PostToPage(state, page::BuildLogMessage(now, text));
  state.surroundings.writeLogLine(text);
}

// Once a run for each cause: a retry in vain brings the same lines every few seconds, all night.
void LogHint(AppState& state, const std::wstring& text) {
  const HintFacts facts{state.settings.Read().heartbeatMessage, state.requestFailed};
  const Hint* const hint = FindHint(text, facts);
  if (hint == nullptr || hint->text.empty()) return;
  if (state.toldCauses.insert(hint->cause).second) LogLine(state, HintLine(*hint));
}

}  // namespace

void PostToPage(const AppState& state, std::wstring json) {
  if (state.window != nullptr) PostText(state.window, kToPage, std::move(json));
}

void DeliverToPage(AppState& state, std::wstring json) {
  if (state.pageReady && state.web && state.web->IsUp()) {
    if (!state.web->PostJson(json)) DeliverRefused(state, json);
  } else if (!state.pageLost) {
    state.pageQueue.push_back(std::move(json));
  }
}

// The second state message behind the first is wanted: the page draws its side panel anew with it.
// The lines come last and by way of the queue, so that one that is under way is among them and not
// behind them.
void WelcomePage(AppState& state) {
  const bool standsIn = std::exchange(state.pageLost, false);
  state.pageReady = true;
  DeliverKept(state);
  const settings::JsonValue form = state.form;
  PostApplyMessage(state);
  PostStateMessage(state);
  PostStateMessage(state);
  if (!standsIn) {
    state.changedFields = {};
    return;
  }
  state.form = form;
  PostToPage(state, page::BuildFormMessage(state.changedFields));
  PostToPage(state, page::BuildLogsMessage(state.loggedLines));
}

void LosePage(AppState& state) noexcept {
  if (std::exchange(state.pageReady, false)) state.pageLost = true;
}

void OnBrowserFailed(AppState& state, webview::ProcessFailedKind kind) {
  const webview::PageFailureResponse response =
      state.pageFailures.OnFailure(kind, std::chrono::steady_clock::now());
  if (response.recovery != webview::PageRecovery::None) LosePage(state);
  if (!response.text.empty()) Log(state, response.text);
  if (!state.web) return;
  switch (response.recovery) {
    case webview::PageRecovery::None:
      return;
    case webview::PageRecovery::ShowPage:
      return state.web->ShowPage();
    case webview::PageRecovery::MakeAnew:
      return state.web->MakeAnew();
    case webview::PageRecovery::GiveUp:
      state.web->Close();
      PostText(state.window, kShowFailure, webview::kPageGivenUp);
      return;
  }
}

void PostStateMessage(const AppState& state) {
  const page::TunnelStatus tunnel{state.tunnel->IsRunning(), state.tunnel->IsRelayConnected()};
  PostToPage(state, page::BuildStateMessage(state.settings.Read(), tunnel, state.lastMessage));
}

// Otherwise a retry would put back what stood in the form before a profile was loaded.
void PostApplyMessage(AppState& state) {
  const settings::Settings settings = state.settings.Read();
  state.form = page::FormOf(settings);
  PostToPage(state, page::BuildApplyMessage(settings));
}

void TakeFields(AppState& state) {
  state.settings.Edit(
      [&state](settings::Settings& settings) { page::TakeFields(state.form, settings); });
}

void Log(AppState& state, const std::wstring& text) {
  LogLine(state, text);
  LogHint(state, text);
}

void LogSettingsReports(AppState& state) {
  for (const std::wstring& report : state.settings.TakeReports()) Log(state, report);
}

}  // namespace shell
