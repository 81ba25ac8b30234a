#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

#include "platform/handles_win.h"
#include "platform/scratch_folder.h"

namespace update {

// A process that a test started; ended with this object if it still runs.
class TestProcess {
 public:
  // In the working folder `folder`. Fails the test when it cannot be started.
  TestProcess(const std::wstring& commandLine, const std::wstring& folder);
  ~TestProcess();
  TestProcess(const TestProcess&) = delete;
  TestProcess& operator=(const TestProcess&) = delete;

  [[nodiscard]] std::uint32_t Id() const { return id_; }
  [[nodiscard]] bool HasEnded() const;
  // Waits for its end, up to a minute and a half.
  [[nodiscard]] std::optional<int> ExitCode() const;

 private:
  platform::ProcessHandle process_;
  std::uint32_t id_ = 0;
};

// Another folder as the temporary one of this process, and of those that it starts.
class TemporaryFolderScope {
 public:
  explicit TemporaryFolderScope(const std::wstring& folder);
  ~TemporaryFolderScope();
  TemporaryFolderScope(const TemporaryFolderScope&) = delete;
  TemporaryFolderScope& operator=(const TemporaryFolderScope&) = delete;

 private:
  std::wstring before_;
};

// The programs of the build.
std::wstring UpdateChildPath();
std::wstring ClientPath();
// Where the lab's next, signed and pinned programs lie.
std::wstring LabUpdateFolder();

// The lines that update_child.exe at `path` left of its run, once they are there; empty if they do
// not come. Takes them away.
std::wstring TakeRunOf(const std::wstring& path);

}  // namespace update
