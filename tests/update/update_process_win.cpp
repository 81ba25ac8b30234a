#include "update/update_process_win.h"

#include <gtest/gtest.h>

#include "platform/files.h"
#include "platform/path.h"
#include "text/utf8.h"

namespace update {

TestProcess::TestProcess(const std::wstring& commandLine, const std::wstring& folder) {
  std::wstring writable = commandLine;
  STARTUPINFOW startup{};
  startup.cb = sizeof(startup);
  PROCESS_INFORMATION started{};
  if (!::CreateProcessW(nullptr, writable.data(), nullptr, nullptr, FALSE, 0, nullptr,
                        folder.c_str(), &startup, &started)) {
    ADD_FAILURE() << "not started: " << text::ToUtf8(commandLine) << ", " << ::GetLastError();
    return;
  }
  process_.Reset(started.hProcess);
  id_ = started.dwProcessId;
  const platform::ThreadHandle thread(started.hThread);
}

TestProcess::~TestProcess() {
  if (process_ && ::WaitForSingleObject(process_.Get(), 0) == WAIT_TIMEOUT) {
    ::TerminateProcess(process_.Get(), 1);
    ::WaitForSingleObject(process_.Get(), 10000);
  }
}

bool TestProcess::HasEnded() const {
  return process_ && ::WaitForSingleObject(process_.Get(), 0) == WAIT_OBJECT_0;
}

std::optional<int> TestProcess::ExitCode() const {
  DWORD code = 0;
  if (!process_ || ::WaitForSingleObject(process_.Get(), 90000) != WAIT_OBJECT_0 ||
      !::GetExitCodeProcess(process_.Get(), &code)) {
    return std::nullopt;
  }
  return static_cast<int>(code);
}

TemporaryFolderScope::TemporaryFolderScope(const std::wstring& folder)
    : before_(platform::TemporaryFolder()) {
  ::SetEnvironmentVariableW(L"TMP", folder.c_str());
}

TemporaryFolderScope::~TemporaryFolderScope() {
  ::SetEnvironmentVariableW(L"TMP", before_.c_str());
}

std::wstring UpdateChildPath() {
  return platform::ProgramFolder() + L"\\update_child.exe";
}

std::wstring ClientPath() {
  return platform::ProgramFolder() + L"\\..\\Velmarine.Client.exe";
}

std::wstring LabUpdateFolder() {
  return platform::ProgramFolder() + L"\\..\\lab\\update";
}

std::wstring TakeRunOf(const std::wstring& path) {
  const std::wstring outputPath = path + L".ran";
  for (int i = 0; i < 300; ++i) {
    const auto bytes = platform::ReadFileBytes(outputPath);
    if (bytes && !bytes->empty()) {
      ::Sleep(100);  // the process is about to end
      platform::DeleteFileAt(outputPath);
      return text::FromUtf8(*bytes);
    }
    ::Sleep(100);
  }
  return {};
}

}  // namespace update
