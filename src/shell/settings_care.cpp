#include "shell/settings_care.h"

#include <exception>
#include <string>
#include <utility>
#include <vector>

#include "settings/engineer_id.h"
#include "shell/page_link.h"

namespace shell {
namespace {

constexpr wchar_t kDamagedAtStart[] =
    L"警告：设置文件无法读取，已使用默认设置；原文件将在首次保存前另行保留。";
constexpr wchar_t kDamagedLater[] =
    L"警告：设置文件无法读取，沿用当前设置；原文件将在下次保存前另行保留。";
constexpr wchar_t kKept[] = L"警告：无法读取的设置文件已另行保留：";
constexpr wchar_t kNotKept[] = L"警告：无法读取的设置文件未能另行保留。";

// False when the file is damaged; nothing has changed then.
bool TryLoad(AppState& state) {
  try {
    state.surroundings.store.load(state.settings);
    state.settingsDamaged = false;
    return true;
  } catch (const std::exception&) {
    state.settingsDamaged = true;
    return false;
  }
}

void SetDamagedFileAside(AppState& state) {
  state.settingsDamaged = false;
  const std::wstring kept = state.surroundings.store.keepDamaged();
  Log(state, kept.empty() ? kNotKept : kKept + kept);
}

}  // namespace

void LoadSettings(AppState& state) {
  if (TryLoad(state)) return;
  if (state.settings.engineerId.empty()) state.settings.engineerId = settings::MakeEngineerId();
  Log(state, kDamagedAtStart);
}

void ReloadSettings(AppState& state) {
  std::vector<settings::SiteProfile> profiles = state.settings.siteProfiles;
  const bool discoveryMode = state.settings.discoveryModeEnabled;
  if (!TryLoad(state)) Log(state, kDamagedLater);
  if (!std::exchange(state.changedWhileBusy, false)) return;
  state.settings.siteProfiles = std::move(profiles);
  state.settings.discoveryModeEnabled = discoveryMode;
  SaveSettings(state);
}

void SaveSettings(AppState& state) {
  if (state.settingsDamaged) SetDamagedFileAside(state);
  state.surroundings.store.save(state.settings);
}

void SaveWindowsChange(AppState& state) {
  state.changedWhileBusy = state.busy;
  SaveSettings(state);
}

}  // namespace shell
