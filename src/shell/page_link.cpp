#include "shell/page_link.h"

#include <utility>

#include "shell/window_messages.h"
#include "webui/actions.h"
#include "webui/messages.h"

namespace shell {
namespace {

constexpr wchar_t kReplaced[] = L"警告：一条消息含有页面无法接受的字符，已替换后重新发送。";

webui::TimeOfDay LocalTimeOfDay() {
  SYSTEMTIME now{};
  ::GetLocalTime(&now);
  return {now.wHour, now.wMinute, now.wSecond};
}

// Without this a text of the service with a control character would be lost, and the page would
// wait for it for ever. The warning comes once a run: it goes to the page, too.
void DeliverRefused(AppState& state, const std::wstring& json) {
  const std::wstring clean = webui::WithoutControlCharacters(json);
  // The control may have gone during the first try.
  if (clean == json || !state.web) return;
  state.web->PostJson(clean);
  if (!std::exchange(state.refusalLogged, true)) Log(state, kReplaced);
}

}  // namespace

void PostToPage(const AppState& state, std::wstring json) {
  if (state.window != nullptr) PostText(state.window, kToPage, std::move(json));
}

void DeliverToPage(AppState& state, std::wstring json) {
  if (state.pageReady && state.web && state.web->IsUp()) {
    if (!state.web->PostJson(json)) DeliverRefused(state, json);
  } else {
    state.pageQueue.push_back(std::move(json));
  }
}

void DeliverKept(AppState& state) {
  for (std::wstring& json : std::exchange(state.pageQueue, {})) {
    DeliverToPage(state, std::move(json));
  }
}

void PostStateMessage(const AppState& state) {
  const webui::TunnelStatus tunnel{state.tunnel->IsRunning(), state.tunnel->IsRelayConnected()};
  PostToPage(state, webui::BuildStateMessage(state.settings.Read(), tunnel, state.lastMessage));
}

// Otherwise a retry would put back what stood in the form before a profile was loaded.
void PostApplyMessage(AppState& state) {
  const settings::Settings settings = state.settings.Read();
  state.form = webui::FormOf(settings);
  PostToPage(state, webui::BuildApplyMessage(settings));
}

void TakeFields(AppState& state) {
  state.settings.Edit(
      [&state](settings::Settings& settings) { webui::TakeFields(state.form, settings); });
}

void Log(const AppState& state, const std::wstring& text) {
  PostToPage(state, webui::BuildLogMessage(LocalTimeOfDay(), text));
  state.surroundings.writeLogLine(text);
}

void LogSettingsReports(AppState& state) {
  for (const std::wstring& report : state.settings.TakeReports()) Log(state, report);
}

}  // namespace shell
