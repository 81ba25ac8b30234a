#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "update/apply_update.h"

namespace update {

// The power failed, or somebody ended the process.
struct PowerCut {};

// A computer in memory for ApplyUpdate: files, one other process, a clock that only waiting moves,
// the update log. Every call that does something is kept in `events`.
//
// A file operation is one step; a copy is two, with half of the file there in between. `stepsLeft`
// counts down, and the step after the last throws PowerCut.
class FakeComputer {
 public:
  ApplyPorts Ports() {
    ApplyPorts ports;
    ports.files.isFile = [this](const std::wstring& path) { return files.count(path) == 1; };
    ports.files.remove = [this](const std::wstring& path) { Remove(path); };
    ports.files.moveOver = [this](const std::wstring& from, const std::wstring& to) {
      Move(from, to);
    };
    ports.files.copyOver = [this](const std::wstring& from, const std::wstring& to) {
      return Copy(from, to);
    };
    ports.waitForEnd = [this](std::uint32_t pid, std::chrono::milliseconds limit) {
      WaitForEnd(pid, limit);
    };
    ports.pause = [this](std::chrono::milliseconds duration) {
      events.push_back(L"pause");
      now += duration;
    };
    ports.start = [this](const std::wstring& commandLine) {
      Step(L"start " + commandLine);
      startedAt = now;
      return startResult;
    };
    ports.prepareLogFiles = [this] { events.push_back(L"prepare log files"); };
    ports.writeLog = [this](std::wstring_view message) {
      events.push_back(L"log");
      log.emplace_back(message);
    };
    return ports;
  }

  [[nodiscard]] std::optional<std::string> File(const std::wstring& path) const {
    const auto found = files.find(path);
    if (found == files.end()) return std::nullopt;
    return found->second;
  }

  std::map<std::wstring, std::string> files;
  std::set<std::wstring> locked;  // neither deleted, moved nor written
  std::optional<platform::SystemResult> copyFailure;
  bool leavesHalfACopy = false;  // when it fails
  std::uint32_t flushError = 0;  // why the disk may not have a copy that succeeded
  platform::SystemResult startResult{true, 0};
  std::uint32_t parentPid = 0;  // 0: no such process
  std::optional<std::chrono::milliseconds> parentEndsAt;
  std::chrono::milliseconds now{0};
  std::optional<std::chrono::milliseconds> startedAt;
  std::optional<int> stepsLeft;
  std::vector<std::wstring> events;
  std::vector<std::wstring> log;

 private:
  void Step(const std::wstring& event) {
    if (stepsLeft && (*stepsLeft)-- == 0) throw PowerCut();
    events.push_back(event);
  }

  void Remove(const std::wstring& path) {
    Step(L"remove " + path);
    if (locked.count(path) == 0) files.erase(path);
  }

  void Move(const std::wstring& from, const std::wstring& to) {
    Step(L"move " + from + L" > " + to);
    if (files.count(from) == 0 || locked.count(from) == 1 || locked.count(to) == 1) return;
    files[to] = files[from];
    files.erase(from);
  }

  platform::SystemResult Copy(const std::wstring& from, const std::wstring& to) {
    constexpr std::uint32_t kFileNotFound = 2;
    constexpr std::uint32_t kSharingViolation = 32;
    Step(L"copy " + from + L" > " + to);
    if (copyFailure && !leavesHalfACopy) return *copyFailure;
    if (files.count(from) == 0) return {false, kFileNotFound};
    if (locked.count(to) == 1) return {false, kSharingViolation};
    const std::string whole = files[from];
    files[to] = whole.substr(0, whole.size() / 2);
    Step(L"copy, second half");
    if (copyFailure) return *copyFailure;
    files[to] = whole;
    return {true, flushError};
  }

  void WaitForEnd(std::uint32_t pid, std::chrono::milliseconds limit) {
    events.push_back(L"wait");
    if (pid != parentPid) return;
    const std::chrono::milliseconds latest = now + limit;
    now = parentEndsAt && *parentEndsAt < latest ? *parentEndsAt : latest;
  }
};

}  // namespace update
