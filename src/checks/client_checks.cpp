#include "checks/client_checks.h"

#include <algorithm>

#include "text/strings.h"

namespace checks {
namespace {

std::wstring VersionText(const webview::RuntimeVersion& version) {
  std::vector<std::wstring> parts;
  for (const std::uint32_t part : version) parts.push_back(std::to_wstring(part));
  return text::Join(parts, L".");
}

std::wstring Describe(const webview::ListedRuntime& runtime) {
  const auto version = webview::ParseRuntimeVersion(runtime.folder);
  // The folder's name is the runtime's version.
  return (version ? VersionText(*version) : L"版本不明") + L"，" +
         (runtime.root == webview::RuntimeRoot::AllUsers ? L"为所有用户安装" : L"为当前用户安装") +
         L"，" + runtime.channel + L"，" + runtime.folder;
}

}  // namespace

Outcome JudgeRunning(bool isClientRunning, bool isThisProcess) {
  Outcome outcome;
  if (isThisProcess) {
    outcome.Line(L"由正在运行的客户端做的诊断");
  } else if (isClientRunning) {
    outcome.Note(L"客户端正在运行；一台电脑同时只能运行一个",
                 L"如果看不到它的窗口，也许在另一个用户的桌面上，或在任务管理器里结束 "
                 L"Velmarine.Client.exe。");
  } else {
    outcome.Line(L"没有客户端在运行");
  }
  return outcome;
}

Outcome JudgeSettings(const SettingsFacts& facts, bool isClientRunning) {
  Outcome outcome;
  outcome.Line(facts.path + (facts.exists ? L"" : L"（还没有）"));
  outcome.Line(L"站点档案 " + std::to_wstring(facts.profiles) + L" 个");
  if (!facts.complaint.empty()) {
    outcome.Fault(L"设置文件坏了：" + facts.complaint,
                  L"看一眼客户端里的档案是否都在；原文件会另行保留，求助时不要删除。");
  }
  if (!facts.damagedFiles.empty()) {
    outcome.Note(
        L"以前有设置文件坏过，另存了 " + std::to_wstring(facts.damagedFiles.size()) + L" 个",
        L"档案都在的话可以删除它们；文件里有密钥，不要发给别人。");
    for (const std::wstring& name : facts.damagedFiles) outcome.Line(name);
  }
  // While a client runs, its connection and its bypass entries are as they should be.
  if (facts.remembersConnection && !isClientRunning) {
    outcome.Note(L"上次的连接没有正常断开，下次连接前会先向服务报告它已结束");
  }
  std::size_t entries = 0;
  for (const diag::NotedList& list : facts.proxyNote) entries += list.entries.size();
  if (entries != 0 && !isClientRunning) {
    outcome.Note(L"上次运行在代理旁路名单里留下了 " + std::to_wstring(entries) + L" 条",
                 L"启动一次客户端，会自动拿掉。");
  } else if (entries != 0) {
    outcome.Line(L"代理旁路名单里有本程序加的 " + std::to_wstring(entries) + L" 条");
  }
  return outcome;
}

std::vector<std::wstring> DamagedSettings(const std::vector<std::wstring>& names) {
  std::vector<std::wstring> damaged;
  for (const std::wstring& name : names) {
    if (name.starts_with(L"Client.settings.damaged-")) damaged.push_back(name);
  }
  return damaged;
}

Outcome JudgeWebView(const std::vector<webview::ListedRuntime>& runtimes) {
  Outcome outcome;
  // In the order of the search at start-up, so the first usable one is the one that is used.
  const auto chosen = std::ranges::find(runtimes, true, &webview::ListedRuntime::isUsable);
  if (chosen == runtimes.end()) {
    outcome.Fault(L"没有可用的 WebView2 运行时，界面打不开",
                  L"从微软网站安装“WebView2 运行时”（Evergreen），为所有用户安装。");
  } else {
    outcome.Line(L"会用的：" + Describe(*chosen));
  }
  for (auto other = runtimes.begin(); other != runtimes.end(); ++other) {
    if (other == chosen) continue;
    outcome.Line((other->isUsable ? L"还有：" : L"用不了（太旧或缺文件）：") + Describe(*other));
  }
  outcome.Line(L"按注册表 EdgeUpdate\\ClientState 的登记查找，先所有用户，后当前用户");
  return outcome;
}

}  // namespace checks
