#include "shell/actions.h"

#include <algorithm>
#include <optional>
#include <string>

#include "page/actions.h"
#include "platform/clipboard.h"
#include "settings/site_profiles.h"
#include "shell/page_link.h"
#include "shell/window_events.h"
#include "shell/worker.h"

namespace shell {
namespace {

constexpr wchar_t kConnectBusy[] = L"正在请求连接授权...";
constexpr wchar_t kStopBusy[] = L"正在停止软件隧道...";
constexpr wchar_t kLatencyBusy[] = L"正在测试通讯延迟...";
constexpr wchar_t kDesktopBusy[] = L"正在请求远程桌面...";
constexpr wchar_t kResolveBusy[] = L"正在获取现场端网段...";

constexpr wchar_t kDiscoveryOn[] = L"局域网发现模式已开启：支持 PLC 广播扫描。";
constexpr wchar_t kDiscoveryOff[] = L"局域网发现模式已关闭：仅支持已知 IP 访问。";
constexpr wchar_t kDiscoveryOnCaption[] = L"PLC发现模式：开";
constexpr wchar_t kDiscoveryOffCaption[] = L"PLC发现模式：关";
constexpr wchar_t kSecretCopied[] = L"接入密钥已复制。";
constexpr wchar_t kNoSecret[] = L"当前没有可复制的密钥。";
constexpr wchar_t kCopyFailed[] = L"接入密钥复制失败：剪贴板不可用。";

constexpr int kSelectionChanged = 1;  // of list and combo boxes

void Connect(AppState& state) {
  StartWorker(state, kConnectBusy, state.surroundings.jobs.connect);
}
void Stop(AppState& state) {
  StartWorker(state, kStopBusy, state.surroundings.jobs.stop);
}
void TestLatency(AppState& state) {
  StartWorker(state, kLatencyBusy, state.surroundings.jobs.testLatency);
}
void OpenDesktop(AppState& state) {
  StartWorker(state, kDesktopBusy, state.surroundings.jobs.openDesktop);
}
void ResolveDevice(AppState& state) {
  StartWorker(state, kResolveBusy, state.surroundings.jobs.resolveDevice);
}

void LogDiscovery(AppState& state) {
  Log(state, state.settings.Read().discoveryModeEnabled ? kDiscoveryOn : kDiscoveryOff);
}

void TakeDiscovery(AppState& state) {
  TakeFields(state);
  state.settings.Save();
  LogDiscovery(state);
  PostStateMessage(state);
}

// Behind a line that calls something saved: it must not stand alone when that is not on the disk,
// however often the cause has been told.
void LogUnsaved(AppState& state) {
  const std::vector<std::wstring> reports = state.settings.TakeReports();
  for (const std::wstring& report : reports) Log(state, report);
  const std::wstring unsaved = state.settings.Unsaved();
  if (!unsaved.empty() && std::ranges::find(reports, unsaved) == reports.end()) Log(state, unsaved);
}

void SaveProfile(AppState& state) {
  TakeFields(state);
  settings::ProfileOutcome outcome;
  state.settings.Edit([&](settings::Settings& settings) { outcome = SaveSiteProfile(settings); });
  if (outcome.changed) state.settings.Save();
  Log(state, outcome.logText);
  if (outcome.changed) LogUnsaved(state);
  PostApplyMessage(state);
  PostStateMessage(state);
}

void LoadProfile(AppState& state, settings::ProfileChooser chooser) {
  TakeFields(state);
  const std::wstring name = settings::JsonStringOrEmpty(state.form, L"profileSel");
  settings::ProfileOutcome outcome;
  state.settings.Edit(
      [&](settings::Settings& settings) { outcome = LoadSiteProfile(settings, name, chooser); });
  if (!outcome.changed) return;
  state.settings.Save();
  PostApplyMessage(state);
  PostStateMessage(state);
  Log(state, outcome.logText);
}
// The page gives up what was typed for the profile's own fields.
void LoadProfileFromPage(AppState& state) {
  state.changedFields = {};
  LoadProfile(state, settings::ProfileChooser::Page);
}

constexpr std::wstring_view kReady = L"ready";
// The form's fields that the engineer has changed, while he types; no action.
constexpr std::wstring_view kTyped = L"typed";

struct PageAction {
  std::wstring_view name;
  void (*run)(AppState& state);
};

constexpr PageAction kPageActions[] = {
    {kReady, WelcomePage},
    {L"connect", Connect},
    {L"stop", Stop},
    {L"test", TestLatency},
    {L"desktop", OpenDesktop},
    {L"secondary", ResolveDevice},
    {L"discovery", TakeDiscovery},
    {L"saveProfile", SaveProfile},
    {L"loadProfile", LoadProfileFromPage},
};

void CopySecret(AppState& state) {
  TakeFields(state);
  const std::wstring secret = state.settings.Read().deviceSecret;
  if (secret.empty()) return Log(state, kNoSecret);
  const bool copied = platform::CopySecretToClipboard(secret, state.window);
  Log(state, copied ? kSecretCopied : kCopyFailed);
}

void ToggleDiscovery(AppState& state, HWND toggle) {
  bool enabled = false;
  state.settings.Edit([&enabled](settings::Settings& settings) {
    enabled = !settings.discoveryModeEnabled;
    settings.discoveryModeEnabled = enabled;
  });
  if (toggle != nullptr) {
    ::SetWindowTextW(toggle, enabled ? kDiscoveryOnCaption : kDiscoveryOffCaption);
  }
  state.settings.Save();
  LogDiscovery(state);
}

}  // namespace

void HandlePageMessage(AppState& state, std::wstring_view json) {
  std::optional<page::PageMessage> message = page::ParsePageMessage(json);
  if (!message) return;
  state.pageFailures.OnPageAlive();
  if (message->action == kTyped) {
    if (message->form) state.changedFields = *std::move(message->form);
    return;
  }
  // The form of a page that stands in for another one is still empty.
  const bool isBlank = state.pageLost && message->action == kReady;
  if (message->form && !isBlank) state.form = *std::move(message->form);
  for (const PageAction& action : kPageActions) {
    if (message->action == action.name) return action.run(state);
  }
}

bool HandleCommand(AppState& state, int id, int notification, HWND control) {
  switch (id) {
    case 1009:
      Connect(state);
      return true;
    case 1010:
      ResolveDevice(state);
      return true;
    case 1011:
      OpenDesktop(state);
      return true;
    case 1012:
      SaveProfile(state);
      Repaint(state.window);
      return true;
    case 1013:
      Stop(state);
      return true;
    case 1014:
      CopySecret(state);
      return true;
    case 1022:
      if (notification == kSelectionChanged) {
        LoadProfile(state, settings::ProfileChooser::Window);
      }
      return true;
    case 1023:
      TestLatency(state);
      return true;
    case 1025:
      ToggleDiscovery(state, control);
      return true;
    case 1016:
    case 1019:
    case 1020:
    case 1021:
    case 1024:
      return true;
    default:
      return false;
  }
}

}  // namespace shell
