#include "shell/client.h"

#include <utility>

#include "shell/hints.h"

namespace shell {
namespace {

constexpr std::size_t kMaxLoggedLines = 500;  // as many as the page shows

constexpr wchar_t kStarting[] = L"客户端启动中";

}  // namespace

settings::Settings InitialSettings() {
  settings::Settings settings;
  settings.sharedNetworksText = L"192.168.1.0/24";
  settings.targetNetwork = L"192.168.1.0/24";
  settings.latencyText = L"未测试";
  return settings;
}

Client::Client(ClientDeps& deps, settings::SettingsFile file,
               std::unique_ptr<tunnel::Tunnel> tunnel)
    : deps_(deps), settings_(std::move(file), InitialSettings()), tunnel_(std::move(tunnel)) {}

void Client::Start() {
  // The first form must already show the file, so it is read before any message is posted.
  settings_.Load();
  LogSettingsReports();
  // There is no page yet: the messages wait in its queue.
  PostApplyMessage();
  PostStateMessage();
  Log(kStarting);
}

void Client::SaveUnsaved() {
  if (!settings_.Unsaved().empty()) settings_.Save();
  LogSettingsReports();
}

void Client::Log(const std::wstring& text) {
  LogLine(text);
  LogHint(text);
}

void Client::Notice(const std::wstring& text) {
  if (!text.empty()) Log(text);
  deps_.Repaint();
}

void Client::Warn(const std::wstring& text) {
  if (text.empty()) return;
  Log(text);
  // After the current message: the start calls this while the window is being created.
  deps_.PostFailure(text);
}

void Client::LogSettingsReports() {
  for (const std::wstring& report : settings_.TakeReports()) Log(report);
}

void Client::LogLine(const std::wstring& text) {
  const page::TimeOfDay now = deps_.Now();
  // Kept while there is no page too: one that replaces a lost page shows all of them.
  if (page_.loggedLines.size() == kMaxLoggedLines) page_.loggedLines.pop_front();
  page_.loggedLines.push_back({now, text});
  deps_.PostToPage(page::BuildLogMessage(now, text));
  deps_.WriteLogLine(text);
}

// Once a run for each cause: retries against a service that stays down would repeat the hint every
// few seconds, all night.
void Client::LogHint(const std::wstring& text) {
  const HintFacts facts{settings_.Read().heartbeatMessage, requestFailed_};
  const Hint* const hint = FindHint(text, facts);
  // An entry without a text stands for a line that names its own cure, and keeps general entries
  // from matching it.
  if (hint == nullptr || hint->text.empty()) return;
  if (hintedCauses_.insert(hint->cause).second) LogLine(HintLine(*hint));
}

}  // namespace shell
