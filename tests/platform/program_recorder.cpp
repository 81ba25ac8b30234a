// A child program for tests: writes its command line and its working folder in UTF-8, one line
// each, to "<its file>.txt".
#include <array>

#include "platform/files.h"
#include "platform/path.h"
#include "platform/safe_files.h"
#include "platform/windows_sdk.h"
#include "text/utf8.h"

namespace {

std::wstring WorkingFolder() {
  std::array<wchar_t, MAX_PATH + 1> path{};
  ::GetCurrentDirectoryW(static_cast<DWORD>(path.size()), path.data());
  return path.data();
}

}  // namespace

int wmain() {
  const std::wstring record = std::wstring(::GetCommandLineW()) + L"\n" + WorkingFolder() + L"\n";
  const std::wstring target = platform::ProgramPath() + L".txt";
  if (!platform::WriteFileBytes(target + L".new", text::ToUtf8(record))) return 1;
  // Renamed so that a reader never sees half a file.
  return platform::MoveFileOver(target + L".new", target).succeeded ? 0 : 1;
}
