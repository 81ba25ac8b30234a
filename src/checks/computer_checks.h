#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "checks/check.h"

// The program's file, Windows, the rights of this run and the folders it writes to. What judges is
// pure; what fetches the facts is Windows only.
namespace checks {

struct ProgramFacts {
  std::wstring version;
  std::wstring path;
  std::uint64_t sizeBytes = 0;
  std::string sha256;
  std::string signerPin;         // key whose updates are taken, as ProgramIdentity has it
  std::uint32_t trustError = 0;  // of the program's own signature, as platform::Signature has it
  std::string signerKeySha256;
};
Outcome JudgeProgram(const ProgramFacts& facts);
// `version` and `signerPin` as the build named them.
ProgramFacts ReadProgramFacts(const std::wstring& version, const std::string& signerPin);

struct SystemFacts {
  std::uint32_t major = 0;
  std::uint32_t minor = 0;
  std::uint32_t build = 0;  // 0: the system does not tell
  bool isArm64 = false;
  std::uint32_t dpi = 0;  // of the system; 96 is 100 %, 0 is unknown
};
Outcome JudgeSystem(const SystemFacts& facts);
SystemFacts ReadSystemFacts();

struct RightsFacts {
  std::optional<bool> isElevated;
  bool isOtherUsersDesktop = false;
};
Outcome JudgeRights(const RightsFacts& facts);
RightsFacts ReadRightsFacts();

struct FolderFacts {
  std::wstring name;  // what it is for
  std::wstring path;
  std::wstring probed;      // the folder itself or, while it is not there, its nearest parent
  std::uint32_t error = 0;  // of writing there
  std::optional<std::uint64_t> freeBytes;
};
Outcome JudgeFolders(const std::vector<FolderFacts>& folders);
// Writes 4 KiB there, in a file that goes with its handle.
FolderFacts ProbeFolder(const std::wstring& name, const std::wstring& path);

// One setting of the active power plan; nothing where the system has none.
struct PowerSetting {
  std::optional<std::uint32_t> onMains;
  std::optional<std::uint32_t> onBattery;
};

struct PowerFacts {
  std::uint32_t error = 0;  // why the system does not tell its plan
  bool hasBattery = false;
  bool hasModernStandby = false;
  PowerSetting sleepSeconds;  // 0: never
  PowerSetting lidAction;     // 0: none, 1: sleep, 2: hibernate, 3: shut down
  PowerSetting usbSuspend;    // 1: ports may be switched off
  PowerSetting wifiSaving;    // 0: none ... 3: the most
};

// Which settings end a connection while nobody touches the computer. Pure.
Outcome JudgePower(const PowerFacts& facts);

// Of the active plan. Windows only.
PowerFacts ReadPowerFacts();

}  // namespace checks
