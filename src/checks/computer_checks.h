#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "checks/check.h"

// The program's file, Windows, this run's rights, the folders it writes to and the power settings.
// Judge functions are pure; Read and Probe functions are Windows only.
namespace checks {

struct ProgramFacts {
  std::wstring version;
  std::wstring path;
  std::uint64_t sizeBytes = 0;
  std::string sha256;
  std::string signerPin;         // key that must sign updates, as in ProgramIdentity
  std::uint32_t trustError = 0;  // of the program's own file, as in platform::Signature
  std::string signerKeySha256;
};
Outcome JudgeProgram(const ProgramFacts& facts);
// `version` and `signerPin` are set by the build.
ProgramFacts ReadProgramFacts(const std::wstring& version, const std::string& signerPin);

struct SystemFacts {
  std::uint32_t major = 0;
  std::uint32_t minor = 0;
  std::uint32_t build = 0;  // 0: unknown
  bool isArm64 = false;
  std::uint32_t dpi = 0;  // 96 is 100 %; 0: unknown
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
  std::wstring name;  // its purpose, Chinese
  std::wstring path;
  std::wstring probed;      // the folder or, before it exists, its nearest existing parent
  std::uint32_t error = 0;  // of the write
  std::optional<std::uint64_t> freeBytes;
};
Outcome JudgeFolders(const std::vector<FolderFacts>& folders);
// Writes 4 KiB to a file that the system deletes with its handle.
FolderFacts ProbeFolder(const std::wstring& name, const std::wstring& path);

// A setting of the active power plan; empty where the system has none.
struct PowerSetting {
  std::optional<std::uint32_t> onMains;
  std::optional<std::uint32_t> onBattery;
};

struct PowerFacts {
  std::uint32_t error = 0;  // of reading the plan
  bool hasBattery = false;
  bool hasModernStandby = false;
  PowerSetting sleepSeconds;  // 0: never
  PowerSetting lidAction;     // 0: none, 1: sleep, 2: hibernate, 3: shut down
  PowerSetting usbSuspend;    // 1: ports may be switched off
  PowerSetting wifiSaving;    // 0: none ... 3: the most
};

// Finds settings that end a connection while the computer is idle.
Outcome JudgePower(const PowerFacts& facts);

PowerFacts ReadPowerFacts();

}  // namespace checks
