#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

#include "checks/check.h"
#include "diag/proxy_note.h"
#include "settings/settings.h"
#include "webview/runtime_search.h"

// The program's own things: another run, its settings, the browser runtime it shows its page with.
// Pure.
namespace checks {

// `isClientRunning`: any client on this computer; `isThisProcess`: it is the one that checks.
Outcome JudgeRunning(bool isClientRunning, bool isThisProcess);

struct SettingsFacts {
  std::wstring path;
  bool exists = false;
  std::wstring complaint;  // SettingsFile::Load()'s line; empty when the file is good
  std::size_t profiles = 0;
  bool remembersConnection = false;
  std::vector<std::wstring> damagedFiles;  // names of files set aside
  std::vector<diag::NotedList> proxyNote;
};
// Tells numbers, but no name and no value.
Outcome JudgeSettings(const SettingsFacts& facts, bool isClientRunning);

// Names "Client.settings.damaged-<time>.json" among `names`.
std::vector<std::wstring> DamagedSettings(const std::vector<std::wstring>& names);

Outcome JudgeWebView(const std::vector<webview::ListedRuntime>& runtimes);

}  // namespace checks
