// Input: a line that picks the step of a save at which the program is killed, then the three
// settings files, separated by "====" lines: the settings, their last good copy, and the granted
// connection ("-" for a missing file). Any files load without an exception, and whenever the
// program is killed, the next start finds the old settings or the new ones.

#include <map>

#include "fuzz_input.h"
#include "settings/memory_disk.h"
#include "settings/server_address.h"

namespace settings {
namespace {

using fuzz::Require;

constexpr std::string_view kBetween = "\n====\n";
constexpr int kSteps = 16;

void Fill(MemoryDisk& disk, std::string bytes) {
  for (const wchar_t* const path : {kPath, kLastPath, kGrantPath}) {
    const std::size_t end = std::min(bytes.find(kBetween), bytes.size());
    const std::string file = bytes.substr(0, end);
    if (file != "-") disk.files[path] = file;
    bytes.erase(0, end + kBetween.size());
  }
}

// The text to compare. Leaves out an engineer id that every start generates again.
std::string Text(Settings settings, bool hasOwnId) {
  if (!hasOwnId) settings.engineerId.clear();
  return FileBytes(settings);
}

Settings Changed(Settings settings, const std::string& choices) {
  // An address of only slashes and blanks changes each time it is normalised.
  settings.serverUrl = DefaultServerUrl();
  settings.engineerId = L"ENG-12345678";
  settings.deviceName += L"x";
  if (settings.profileName.empty()) settings.profileName = L"p";  // otherwise a start would name it
  if (choices.find('c') == std::string::npos) return settings;
  settings.connectionId = L"c2";
  settings.granted = {L"c2", L"http://h", L"ENG-12345678", {L"10.0.0.0/8"}};
  return settings;
}

// Saves the settings; false if the program was killed before the end.
bool IsSaved(MemoryDisk& disk, const Settings& settings, int steps) {
  disk.stepsToLive = steps;
  try {
    SettingsFile file = disk.File();
    Require(file.Save(settings).failure.empty());
    const std::size_t writes = disk.written.size();
    Require(file.Save(settings).failure.empty() && disk.written.size() == writes);
  } catch (const Killed&) {
    disk.stepsToLive = -1;
    return false;
  }
  disk.stepsToLive = -1;
  return true;
}

void Run(fuzz::Input input) {
  const std::string choices = input.Line();
  const int steps = choices.empty() ? -1 : choices[0] % kSteps;
  MemoryDisk disk;
  Fill(disk, input.Rest());
  const Settings old = disk.Load();
  // A start may generate an id if the file is empty or contains none.
  const bool hasOwnId = !old.engineerId.empty() && disk.Load().engineerId == old.engineerId;
  const bool isDamaged = !disk.loadReport.empty() && !disk.files[kPath].empty();
  const std::map<std::wstring, std::string> before = disk.files;

  const Settings fresh = Changed(old, choices);
  const bool isSaved = IsSaved(disk, fresh, steps);
  const Settings next = disk.Load();
  const bool isNew = Text(next, true) == Text(fresh, true);
  const bool isOld = Text(next, hasOwnId) == Text(old, hasOwnId);
  Require(isNew || (isOld && !isSaved));
  if (isSaved) {
    Require(disk.loadReport.empty());
    Require(ConnectionInForce(next) == ConnectionInForce(fresh) || fresh.connectionId != L"c2");
  }
  if (!isDamaged) return;
  // The damaged text must still exist in some file.
  const std::string damaged = before.find(kPath)->second;
  Require(
      std::ranges::any_of(disk.files, [&](const auto& kept) { return kept.second == damaged; }));
}

}  // namespace
}  // namespace settings

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t sizeBytes) {
  settings::Run(fuzz::Input(data, sizeBytes));
  return 0;
}
