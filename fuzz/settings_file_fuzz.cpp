// The three files of the settings, behind a line that chooses where the program is killed: the
// settings themselves, the last good text, the connection in force, with a line "====" between; "-"
// stands for a file that is not there. Whatever lies there is read without complaint, and at
// whatever step of a save the program ends, the next start finds the old settings or the new ones.

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

// As they are compared: an engineer id that is made anew at each start is left out.
std::string Text(Settings settings, bool hasOwnId) {
  if (!hasOwnId) settings.engineerId.clear();
  return FileBytes(settings);
}

Settings Changed(Settings settings, const std::string& choices) {
  // One of slashes and blanks only changes each time it is normalised.
  settings.serverUrl = DefaultServerUrl();
  settings.engineerId = L"ENG-12345678";
  settings.deviceName += L"x";
  if (settings.profileName.empty()) settings.profileName = L"p";  // or a start would name it
  if (choices.find('c') == std::string::npos) return settings;
  settings.connectionId = L"c2";
  settings.granted = {L"c2", L"http://h", L"ENG-12345678", {L"10.0.0.0/8"}};
  return settings;
}

// The settings are saved; the program may be killed on the way.
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
  // Of an empty file, which has none, or of one without any, a start may make one.
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
  // Still there, whatever was written over it.
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
