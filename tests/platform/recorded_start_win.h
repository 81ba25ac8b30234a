#pragma once

#include <string>

namespace platform {

// The start recorded by program_recorder.exe.
struct RecordedStart {
  std::wstring commandLine;
  std::wstring workingFolder;
};

// Copies the recorder to `path`. Returns false on failure.
bool PutRecorder(const std::wstring& path);

// Waits until the copy at `path` has run and ended, then removes it. A timeout fails the test and
// returns empty texts.
RecordedStart AwaitStart(const std::wstring& path);

}  // namespace platform
