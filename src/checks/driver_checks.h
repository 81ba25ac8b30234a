#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "checks/check.h"
#include "checks/system_services.h"
#include "tunnel/driver/windivert.h"

// The packet driver: its files, its kernel service, whether it opens, and its checksums. Pure
// except for DriverDeps.
namespace checks {

// One of the two files that the program carries, as found in the runtime folder.
struct DriverFile {
  std::wstring path;
  std::optional<std::uint64_t> sizeBytes;  // empty: missing or unreadable
  std::string sha256;
  std::string carriedSha256;  // of the one in the program
};
Outcome JudgeDriverFiles(const std::vector<DriverFile>& files);

// `runtimeFolder` contains this program's driver. While a client runs, so should the driver.
Outcome JudgeDriverServices(const ServiceList& list, const std::wstring& runtimeFolder,
                            bool isClientRunning);

// The driver as the two checks below reach it. Made just before a check runs.
struct DriverDeps {
  // Keeps the files in the runtime folder unchanged while it lives. Null when they are not the ones
  // that the program carries: others are never loaded with administrator rights just for a look.
  std::shared_ptr<void> heldFiles;
  bool wasServiceThere = false;  // a WinDivert service, before the check
  std::function<std::unique_ptr<tunnel::WinDivertApi>()> load;  // throws as LoadWinDivert()
  std::function<bool()> isClientRunning;
  std::function<bool(const std::wstring& commandLine, std::chrono::milliseconds wait)> runHidden;
};

// Loads the library, opens and closes the capturing handle with the program's own filter for
// kMaxRoutes unused networks (RFC 5737) and the injecting handle. Removes the kernel service again
// if the check created it, unless a client runs, which removes it itself.
inline constexpr int kMaxRoutes = 124;
Outcome CheckDriverOpens(const DriverDeps& deps);

// Checks that the driver's function writes the checksums of RFC 1071.
Outcome CheckDriverSums(const DriverDeps& deps);

// A packet with zeros where its checksums belong.
struct ChecksumProbe {
  std::wstring name;
  std::vector<std::byte> packet;  // IPv4 header first
  std::size_t sumOffset = 0;      // of the ICMP, TCP or UDP checksum; the IP header's is at 10
  bool hasPseudoHeader = false;   // TCP and UDP sum addresses, protocol and length (RFC 9293)
};

// One ICMP echo, one TCP segment of odd length and one UDP datagram.
std::vector<ChecksumProbe> MakeChecksumProbes();

// Lets `recalculate` write the packet's checksums and compares them with those of RFC 1071. Returns
// the text of an exception or of the differences, empty when both are right.
std::wstring FindWrongSums(const ChecksumProbe& probe,
                           const std::function<void(std::span<std::byte> packet)>& recalculate);

}  // namespace checks
