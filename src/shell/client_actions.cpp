#include <algorithm>
#include <utility>

#include "settings/site_profiles.h"
#include "shell/client.h"
#include "text/page_texts.h"

namespace shell {
namespace {

constexpr wchar_t kDiscoveryOn[] = L"局域网发现模式已开启：支持 PLC 广播扫描。";
constexpr wchar_t kDiscoveryOff[] = L"局域网发现模式已关闭：仅支持已知 IP 访问。";
// None of these contains the key: engineers send the log to others.
constexpr wchar_t kSecretCopied[] = L"接入密钥已复制。";
constexpr wchar_t kNoSecret[] = L"当前没有可复制的密钥。";
constexpr wchar_t kCopyFailed[] = L"接入密钥复制失败：剪贴板不可用。";

}  // namespace

void Client::Act(std::wstring_view action) {
  if (action == L"connect") return Connect();
  if (action == L"stop") return Stop();
  if (action == L"test") return TestLatency();
  if (action == L"desktop") return OpenRemoteDesktop();
  if (action == L"secondary") return ResolveDevice();
  if (action == L"discovery") return TakeDiscovery();
  if (action == L"saveProfile") return SaveProfile();
  if (action == L"loadProfile") {
    // The profile replaces everything typed for its fields.
    page_.changedFields = {};
    LoadProfile(settings::ProfileChooser::Page);
  }
  // Any other action is ignored: a page can ask for no more than its buttons do.
}

void Client::Connect() {
  StartJob(JobKind::Connect, text::kConnectBusy);
}

void Client::Stop() {
  StartJob(JobKind::Stop, text::kStopBusy);
}

void Client::TestLatency() {
  StartJob(JobKind::TestLatency, text::kLatencyBusy);
}

void Client::OpenRemoteDesktop() {
  StartJob(JobKind::OpenRemoteDesktop, text::kDesktopBusy);
}

void Client::ResolveDevice() {
  StartJob(JobKind::ResolveDevice, text::kResolveBusy);
}

void Client::TakeFields() {
  settings_.Edit([this](settings::Settings& settings) { page::TakeFields(page_.form, settings); });
}

void Client::TakeDiscovery() {
  // The switch arrives as one of the form's fields.
  TakeFields();
  settings_.Save();
  LogDiscovery();
  PostStateMessage();
}

bool Client::ToggleDiscovery() {
  bool enabled = false;
  settings_.Edit([&enabled](settings::Settings& settings) {
    enabled = !settings.discoveryModeEnabled;
    settings.discoveryModeEnabled = enabled;
  });
  settings_.Save();
  LogDiscovery();
  return enabled;
}

void Client::LogDiscovery() {
  Log(settings_.Read().discoveryModeEnabled ? kDiscoveryOn : kDiscoveryOff);
}

void Client::SaveProfile() {
  TakeFields();
  settings::ProfileOutcome outcome;
  settings_.Edit([&](settings::Settings& settings) { outcome = SaveSiteProfile(settings); });
  // Outside Edit(), which holds the store's lock while its function runs.
  if (outcome.changed) settings_.Save();
  Log(outcome.logText);
  if (outcome.changed) LogUnsaved();
  PostApplyMessage();
  PostStateMessage();
}

// The line before this one calls the profile saved. The warning must follow it whenever that is not
// true of the disk, even if the cause has been logged before.
void Client::LogUnsaved() {
  // TakeReports() returns each cause once; Unsaved() returns it as long as it lasts.
  const std::vector<std::wstring> reports = settings_.TakeReports();
  for (const std::wstring& report : reports) Log(report);
  const std::wstring unsaved = settings_.Unsaved();
  if (!unsaved.empty() && std::ranges::find(reports, unsaved) == reports.end()) Log(unsaved);
}

void Client::LoadProfile(settings::ProfileChooser chooser) {
  // The profile replaces only its own fields; the others keep what was posted with the action.
  TakeFields();
  const std::wstring name = settings::JsonStringOrEmpty(page_.form, L"profileSel");
  settings::ProfileOutcome outcome;
  settings_.Edit(
      [&](settings::Settings& settings) { outcome = LoadSiteProfile(settings, name, chooser); });
  if (!outcome.changed) return;
  settings_.Save();
  PostApplyMessage();
  PostStateMessage();
  Log(outcome.logText);
}

std::wstring Client::SecretToCopy() {
  TakeFields();
  std::wstring secret = settings_.Read().deviceSecret;
  if (secret.empty()) Log(kNoSecret);
  return secret;
}

void Client::OnSecretCopied(bool copied) {
  Log(copied ? kSecretCopied : kCopyFailed);
}

}  // namespace shell
