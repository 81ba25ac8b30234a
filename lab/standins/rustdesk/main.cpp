// Stands in for RustDesk: a program that is started with an ID and asks for a password. It behaves
// as plan.txt says, and tells record.jsonl what it was started with and what reached its window.
// Both lie in the folder that RecordFolder() gives. See README.md.
#include <windows.h>

#include <array>

#include "rustdesk/password_window.h"
#include "rustdesk/plan.h"
#include "rustdesk/record.h"

namespace {

std::wstring ProgramFile() {
  std::array<wchar_t, 4096> file{};
  return {file.data(), ::GetModuleFileNameW(nullptr, file.data(), static_cast<DWORD>(file.size()))};
}

}  // namespace

int WINAPI wWinMain(HINSTANCE, HINSTANCE, PWSTR, int) {
  const std::wstring folder = rustdesk::RecordFolder();
  const rustdesk::Record record(folder + L"\\record.jsonl");
  const rustdesk::Plan plan = rustdesk::ReadPlan(rustdesk::ReadBytes(folder + L"\\plan.txt"));
  const rustdesk::PasswordWindow window(plan, record);
  record.Add("started", {{"commandLine", ::GetCommandLineW()}, {"file", ProgramFile()}});
  MSG message;
  while (::GetMessageW(&message, nullptr, 0, 0) > 0) {
    ::TranslateMessage(&message);
    ::DispatchMessageW(&message);
  }
  return 0;
}
