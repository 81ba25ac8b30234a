#include "platform/recorded_start_win.h"

#include <gtest/gtest.h>

#include <chrono>
#include <vector>

#include "platform/files.h"
#include "platform/path.h"
#include "platform/windows_sdk.h"
#include "text/strings.h"
#include "text/utf8.h"

namespace platform {
namespace {

constexpr std::chrono::seconds kLongest{60};

template <typename Condition>
bool Await(const Condition& condition) {
  const auto end = std::chrono::steady_clock::now() + kLongest;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > end) return false;
    ::Sleep(20);
  }
  return true;
}

}  // namespace

bool PutRecorder(const std::wstring& path) {
  const std::wstring recorder = JoinPath(ProgramFolder(), L"program_recorder.exe");
  return ::CopyFileW(recorder.c_str(), path.c_str(), TRUE) != FALSE;
}

RecordedStart AwaitStart(const std::wstring& path) {
  const std::wstring record = path + L".txt";
  RecordedStart start;
  if (!Await([&] { return IsFile(record); })) {
    ADD_FAILURE() << "not started";
    return start;
  }
  const std::vector<std::wstring> lines =
      text::SplitLines(text::FromUtf8(ReadFileBytes(record).value_or("")));
  EXPECT_EQ(lines.size(), 2U);
  if (lines.size() == 2) start = {lines[0], lines[1]};
  DeleteFileAt(record);
  EXPECT_TRUE(Await([&] { return DeleteFileAt(path); })) << "still running";
  return start;
}

}  // namespace platform
