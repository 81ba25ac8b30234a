#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "checks/finding.h"
#include "checks/system_services.h"
#include "tunnel/driver/windivert.h"

// The packet driver: its files, its kernel service, whether it opens, and its sums. Pure but for
// what is handed in.
namespace checks {

// One of the two files that the program carries, as it lies in the runtime folder.
struct DriverFile {
  std::wstring path;
  std::optional<std::uint64_t> sizeBytes;  // nothing: it is missing or cannot be read
  std::string sha256;
  std::string carriedSha256;  // of the one in the program
};
Outcome JudgeDriverFiles(const std::vector<DriverFile>& files);

// `runtimeFolder` is where this program's driver lies; `isClientRunning` makes a running driver the
// expected thing.
Outcome JudgeDriverServices(const ServiceList& list, const std::wstring& runtimeFolder,
                            bool isClientRunning);

// What the two checks below act through.
struct DriverDeps {
  // Keeps the files in the runtime folder as they are for as long as the result lives; null when
  // they are not those that the program carries: others are not loaded with an administrator's
  // rights only to be looked at.
  std::function<std::shared_ptr<void>()> holdFiles;
  std::function<std::unique_ptr<tunnel::WinDivertApi>()> load;  // throws as LoadWinDivert()
  std::function<bool()> isServiceThere;
  std::function<bool()> isClientRunning;
  std::function<bool(const std::wstring& commandLine, std::chrono::milliseconds wait)> runHidden;
};

// Loads the library, opens the capturing handle with the program's own filter for kMostRoutes
// networks that nobody uses (RFC 5737), and the injecting one, and closes both. Leaves no kernel
// service that was not there, unless a client runs, which takes it away itself.
inline constexpr int kMostRoutes = 124;
Outcome CheckDriverOpens(const DriverDeps& deps);

// Whether the driver's function writes the sums that RFC 1071 demands.
Outcome CheckDriverSums(const DriverDeps& deps);

}  // namespace checks
