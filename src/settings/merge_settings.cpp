#include "settings/merge_settings.h"

#include "settings/settings_members.h"

namespace settings {
namespace {

template <typename Value>
const Value& Merge(const Value& base, const Value& window, const Value& job, bool windowWins) {
  if (job == base) return window;
  if (window == base) return job;
  return windowWins ? window : job;
}

}  // namespace

Settings MergeSettings(const Settings& base, const Settings& window, const Settings& job) {
  const bool anotherKey = window.deviceSecret != base.deviceSecret;
  Settings merged = window;
  for (const SettingsMember& member : kSettingsMembers) {
    if (member.winner == Winner::Site && anotherKey) continue;
    std::visit(
        [&](auto field) {
          merged.*field =
              Merge(base.*field, window.*field, job.*field, member.winner == Winner::Window);
        },
        member.field);
  }
  merged.siteProfiles = Merge(base.siteProfiles, window.siteProfiles, job.siteProfiles, true);
  merged.granted = Merge(base.granted, window.granted, job.granted, false);
  return merged;
}

}  // namespace settings
