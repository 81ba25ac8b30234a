#pragma once

#include <string>

namespace platform {

// What program_recorder.exe tells of its start.
struct RecordedStart {
  std::wstring commandLine;
  std::wstring workingFolder;
};

// Puts a copy of the recorder at `path`. False on failure.
bool PutRecorder(const std::wstring& path);

// Waits for the copy at `path` to have been started and to have ended; removes it. Empty texts, and
// a failure of the test, when that takes too long.
RecordedStart AwaitStart(const std::wstring& path);

}  // namespace platform
