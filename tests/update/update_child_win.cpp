// The other process in the update's tests. Each run writes the file "<own path>.ran": "shown" or
// "hidden", then its arguments, one per line, in UTF-8.
//   update_child.exe                              does nothing else
//   update_child.exe sleep MILLISECONDS           ends after this time
//   update_child.exe end CODE                     ends at once, from a second thread, while another
//                                                 holds a lock and destructors are pending
//   update_child.exe swap STEP SOURCE DESTINATION replaces a file and ends with kCutCode before the
//                                                 given step (a write is two steps)
#include <cstdlib>
#include <mutex>
#include <string>
#include <thread>

#include "platform/files.h"
#include "platform/path.h"
#include "platform/process_win.h"
#include "platform/windows_sdk.h"
#include "text/utf8.h"
#include "update/apply_update.h"
#include "update/update_child.h"

namespace update {
namespace {

// Its destructor must not run.
struct ExitMarker {
  ~ExitMarker() { platform::WriteFileBytes(platform::ProgramPath() + L".tidied", "x"); }
};
const ExitMarker exitMarker;

void RecordThisRun(int count, wchar_t** arguments) {
  STARTUPINFOW startup{};
  startup.cb = sizeof(startup);
  ::GetStartupInfoW(&startup);
  const bool isHidden =
      (startup.dwFlags & STARTF_USESHOWWINDOW) != 0 && startup.wShowWindow == SW_HIDE;
  std::wstring lines = isHidden ? L"hidden\n" : L"shown\n";
  for (int i = 1; i < count; ++i) lines.append(arguments[i]).append(L"\n");
  platform::WriteFileBytes(platform::ProgramPath() + L".ran", text::ToUtf8(lines));
}

// The program's own operations, with a power cut before the step `stepsLeft`.
class CutUpdateDeps : public RealUpdateDeps {
 public:
  explicit CutUpdateDeps(int stepsLeft) : RealUpdateDeps({}), stepsLeft_(stepsLeft) {}

  void Remove(const std::wstring& path) override {
    Step();
    RealUpdateDeps::Remove(path);
  }
  platform::SystemResult MoveOver(const std::wstring& from, const std::wstring& to) override {
    Step();
    return RealUpdateDeps::MoveOver(from, to);
  }
  platform::SystemResult WriteNew(const std::wstring& path, const std::string& bytes) override {
    Step();
    if (stepsLeft_ == 0) platform::WriteFileBytes(path, bytes.substr(0, bytes.size() / 2));
    Step();
    return RealUpdateDeps::WriteNew(path, bytes);
  }
  platform::SystemResult Start(const std::wstring& commandLine) override {
    Step();
    return RealUpdateDeps::Start(commandLine);
  }
  void Pause(std::chrono::milliseconds) override {}
  void WriteLog(std::wstring_view) override {}

 private:
  void Step() {
    if (stepsLeft_-- == 0) platform::EndProcessAtOnce(kCutCode);
  }

  int stepsLeft_;
};

int EndFromAnotherThread(int code) {
  static std::mutex held;
  held.lock();
  std::thread([] { const std::lock_guard<std::mutex> never(held); }).detach();
  std::thread([code] { platform::EndProcessAtOnce(code); }).join();
  return 1;
}

int Run(int count, wchar_t** arguments) {
  const auto is = [&](const wchar_t* mode, int needed) {
    return count == needed + 2 && std::wstring(arguments[1]) == mode;
  };
  if (is(L"swap", 3)) {
    CutUpdateDeps deps(std::stoi(arguments[2]));
    return ApplyUpdate(0, arguments[3], arguments[4], deps);
  }
  RecordThisRun(count, arguments);
  if (is(L"sleep", 1)) ::Sleep(std::stoul(arguments[2]));
  if (is(L"end", 1)) return EndFromAnotherThread(std::stoi(arguments[2]));
  return 0;
}

}  // namespace
}  // namespace update

int wmain(int count, wchar_t** arguments) {
  return update::Run(count, arguments);
}
