#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

namespace update {

// What StartUpdater acts through: the program's own operations, or fakes in tests.
struct UpdaterPorts {
  std::wstring programPath;  // the running program's file; empty when the system cannot tell
  std::uint32_t processId = 0;
  std::function<void(const std::wstring& from, const std::wstring& to)> copyOver;
  std::function<bool(const std::wstring& path)> isFile;
  std::function<bool(const std::wstring& commandLine)> startHidden;
};

// The command line of the replacement process, in the order that ParseApplyUpdate reads.
std::wstring UpdaterCommandLine(std::wstring_view updater, std::uint32_t processId,
                                std::wstring_view downloadedPath, std::wstring_view programPath);

// Starts the process that will put the file `downloadedPath` into the place of the running program
// once that has ended: a copy of the program beside it, named as it with ".updater.exe" behind, or
// the program itself where no such copy can be made. The copy stays; the next update overwrites it.
// False when the process could not be started. Any thread.
bool StartUpdater(const std::wstring& downloadedPath, const UpdaterPorts& ports);

// The program's own. Windows only.
UpdaterPorts RealUpdaterPorts();

}  // namespace update
