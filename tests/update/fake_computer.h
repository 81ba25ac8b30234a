#pragma once

#include <gtest/gtest.h>

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
// A file operation is one step; writing a file is two, with half of it there in between.
// `stepsLeft` counts down, and the step after the last throws PowerCut.
class FakeComputer {
 public:
  static constexpr std::uint32_t kFileNotFound = 2;
  static constexpr std::uint32_t kAccessDenied = 5;
  static constexpr std::uint32_t kWriteProtect = 19;
  static constexpr std::uint32_t kSharingViolation = 32;
  static constexpr std::uint32_t kDiskFull = 112;

  ApplyPorts Ports() {
    ApplyPorts ports;
    ports.files.isFile = [this](const std::wstring& path) { return files.count(path) == 1; };
    ports.files.hold = [this](const std::wstring& path) { return Hold(path); };
    ports.files.writeNew = [this](const std::wstring& path, const std::string& bytes) {
      return WriteNew(path, bytes);
    };
    ports.files.remove = [this](const std::wstring& path) { Remove(path); };
    ports.files.moveOver = [this](const std::wstring& from, const std::wstring& to) {
      return Move(from, to);
    };
    ports.whyNotTrusted = [this](const platform::HeldFile& file, const std::wstring& path) {
      events.push_back(L"trust " + path);
      EXPECT_EQ(file.bytes, files[path]);
      return distrust;
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
  std::set<std::wstring> locked;   // neither deleted, moved, written nor held
  std::set<std::wstring> folders;  // in the way of a file of that name
  bool isReadOnlyDisk = false;
  std::optional<std::size_t> freeBytes;  // of the disk; without a value it has no end
  std::optional<platform::SystemResult> writeFailure;
  std::uint32_t flushError = 0;  // why the disk may not have a file that was written
  std::wstring distrust;         // what speaks against the source
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
    if (locked.count(path) == 0 && !isReadOnlyDisk) files.erase(path);
  }

  platform::SystemResult Move(const std::wstring& from, const std::wstring& to) {
    Step(L"move " + from + L" > " + to);
    if (files.count(from) == 0) return {false, kFileNotFound};
    if (locked.count(from) == 1) return {false, kSharingViolation};
    if (isReadOnlyDisk) return {false, kWriteProtect};
    if (locked.count(to) == 1 || folders.count(to) == 1) return {false, kAccessDenied};
    files[to] = files[from];
    files.erase(from);
    return {true, 0};
  }

  platform::HeldFile Hold(const std::wstring& path) {
    events.push_back(L"hold " + path);
    platform::HeldFile held;
    held.result = {false, files.count(path) == 0 ? kFileNotFound : kSharingViolation};
    if (files.count(path) == 0 || locked.count(path) == 1) return held;
    held.result = {true, 0};
    held.bytes = files[path];
    return held;
  }

  platform::SystemResult WriteNew(const std::wstring& path, const std::string& bytes) {
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

  void WaitForEnd(std::uint32_t pid, std::chrono::milliseconds limit) {
    events.push_back(L"wait");
    if (pid != parentPid) return;
    const std::chrono::milliseconds latest = now + limit;
    now = parentEndsAt && *parentEndsAt < latest ? *parentEndsAt : latest;
  }
};

}  // namespace update
