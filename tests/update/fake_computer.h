#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "update/idle_update_deps.h"

namespace update {

// Thrown when the power fails or the process is killed.
struct PowerCut {};

// A computer in memory for ApplyUpdate(): files, one other process, a clock that only waiting
// advances, and the update log. Records every action in `events`.
//
// A file operation is one step; writing a file is two, and half of it exists between them.
// `stepsLeft` counts down, and the step after the last throws PowerCut.
class FakeComputer : public IdleUpdateDeps {
 public:
  static constexpr std::uint32_t kFileNotFound = 2;
  static constexpr std::uint32_t kAccessDenied = 5;
  static constexpr std::uint32_t kWriteProtect = 19;
  static constexpr std::uint32_t kSharingViolation = 32;
  static constexpr std::uint32_t kDiskFull = 112;

  bool IsFile(const std::wstring& path) override { return files.count(path) == 1; }

  platform::HeldFile Hold(const std::wstring& path) override {
    events.push_back(L"hold " + path);
    platform::HeldFile held;
    held.result = {false, files.count(path) == 0 ? kFileNotFound : kSharingViolation};
    if (files.count(path) == 0 || locked.count(path) == 1) return held;
    held.result = {true, 0};
    held.bytes = files[path];
    return held;
  }

  platform::SystemResult WriteNew(const std::wstring& path, const std::string& bytes) override {
    Step(L"write " + path);
    if (isReadOnlyDisk) return {false, kWriteProtect};
    if (locked.count(path) == 1 || folders.count(path) == 1) return {false, kAccessDenied};
    files[path] = bytes.substr(0, bytes.size() / 2);
    Step(L"write, second half");
    if (writeFailure || (freeBytes && *freeBytes < bytes.size())) {
      files.erase(path);
      return writeFailure.value_or(platform::SystemResult{false, kDiskFull});
    }
    files[path] = bytes;
    return {true, flushError};
  }

  platform::SystemResult MoveOver(const std::wstring& from, const std::wstring& to) override {
    if (from == unmovable) return moveFailure;
    Step(L"move " + from + L" > " + to);
    if (files.count(from) == 0) return {false, kFileNotFound};
    if (locked.count(from) == 1) return {false, kSharingViolation};
    if (isReadOnlyDisk) return {false, kWriteProtect};
    if (locked.count(to) == 1 || folders.count(to) == 1) return {false, kAccessDenied};
    files[to] = files[from];
    files.erase(from);
    return {true, 0};
  }

  void Remove(const std::wstring& path) override {
    if (path == undeletable) return;
    Step(L"remove " + path);
    if (locked.count(path) == 0 && !isReadOnlyDisk) files.erase(path);
  }

  std::wstring WhyNotTrusted(const std::wstring& path, const platform::HeldFile* held) override {
    events.push_back(L"trust " + path);
    EXPECT_EQ(held->bytes, files[path]);
    if (replacedAfterCheck) files[path] = *replacedAfterCheck;
    return distrust;
  }

  void WaitForEnd(std::uint32_t pid, std::chrono::milliseconds limit) override {
    events.push_back(L"wait");
    if (pid != parentPid) return;
    const std::chrono::milliseconds latest = now + limit;
    now = parentEndsAt && *parentEndsAt < latest ? *parentEndsAt : latest;
  }

  void Pause(std::chrono::milliseconds duration) override {
    events.push_back(L"pause");
    now += duration;
  }

  platform::SystemResult Start(const std::wstring& commandLine) override {
    Step(L"start " + commandLine);
    startedAt = now;
    return startResult;
  }

  void PrepareLogFiles() override { events.push_back(L"prepare log files"); }

  void WriteLog(std::wstring_view message) override {
    events.push_back(L"log");
    log.emplace_back(message);
  }

  [[nodiscard]] std::optional<std::string> File(const std::wstring& path) const {
    const auto found = files.find(path);
    if (found == files.end()) return std::nullopt;
    return found->second;
  }

  std::map<std::wstring, std::string> files;
  std::set<std::wstring> locked;   // cannot be deleted, moved, written or held
  std::set<std::wstring> folders;  // names of folders
  std::wstring unmovable;          // moving this file fails with `moveFailure`, and is not recorded
  platform::SystemResult moveFailure;
  std::wstring undeletable;                       // removing this file is ignored, not recorded
  std::optional<std::string> replacedAfterCheck;  // what another program writes after the check
  bool isReadOnlyDisk = false;
  std::optional<std::size_t> freeBytes;  // on the disk; without a value it never fills
  std::optional<platform::SystemResult> writeFailure;
  std::uint32_t flushError = 0;  // the error code of flushing a written file
  std::wstring distrust;         // why the source is not trusted
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
};

}  // namespace update
