#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

#include "checks/check.h"
#include "diag/proxy_note.h"
#include "settings/settings.h"
#include "webview/runtime_search.h"

// The program itself: other instances, its settings, the browser runtime for its page. Pure.
namespace checks {

// `isClientRunning`: any client on this computer. `isThisProcess`: that client makes the report.
Outcome JudgeRunning(bool isClientRunning, bool isThisProcess);

struct SettingsFacts {
  std::wstring path;
  bool exists = false;
  std::wstring complaint;  // the line of SettingsFile::Load(); empty for a good file
  std::size_t profiles = 0;
  bool remembersConnection = false;
  std::vector<std::wstring> damagedFiles;  // names of copies that were set aside
  std::vector<diag::NotedList> proxyNote;
};
// Reports numbers, never names or values.
Outcome JudgeSettings(const SettingsFacts& facts, bool isClientRunning);

// Names "Client.settings.damaged-<time>.json" among `names`.
std::vector<std::wstring> DamagedSettings(const std::vector<std::wstring>& names);

Outcome JudgeWebView(const std::vector<webview::ListedRuntime>& runtimes);

}  // namespace checks
