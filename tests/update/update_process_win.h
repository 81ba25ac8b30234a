#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

#include "platform/handles_win.h"
#include "platform/scratch_folder.h"

namespace update {

// A process started by a test; killed with this object if it still runs.
class TestProcess {
 public:
  // Runs in the folder `folder`. Fails the test if it cannot be started.
  TestProcess(const std::wstring& commandLine, const std::wstring& folder);
  ~TestProcess();
  TestProcess(const TestProcess&) = delete;
  TestProcess& operator=(const TestProcess&) = delete;

  [[nodiscard]] std::uint32_t Id() const { return id_; }
  [[nodiscard]] bool HasEnded() const;
  // Waits for its end, up to 90 seconds.
  [[nodiscard]] std::optional<int> ExitCode() const;

 private:
  platform::ProcessHandle process_;
  std::uint32_t id_ = 0;
};

// Changes the temporary folder of this process and its children during its lifetime.
class TemporaryFolderScope {
 public:
  explicit TemporaryFolderScope(const std::wstring& folder);
  ~TemporaryFolderScope();
  TemporaryFolderScope(const TemporaryFolderScope&) = delete;
  TemporaryFolderScope& operator=(const TemporaryFolderScope&) = delete;

 private:
  std::wstring before_;
};

// Programs of the build.
std::wstring UpdateChildPath();
std::wstring ClientPath();
// The folder of the lab's next, signed and pinned programs.
std::wstring LabUpdateFolder();

// Waits for the lines that a run of update_child.exe at `path` writes, and deletes them. Empty if
// they do not appear.
std::wstring TakeRunOf(const std::wstring& path);

}  // namespace update
