#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace checks {

// A kernel driver, as registered with the service manager.
struct ServiceFacts {
  std::wstring name;
  std::wstring displayName;
  bool isRunning = false;
  // Set only for WinDivert's:
  bool isDisabled = false;
  bool isMarkedForDeletion = false;
  std::wstring path;  // of its file, as registered
};

struct ServiceList {
  std::uint32_t error = 0;  // of listing them
  std::vector<ServiceFacts> drivers;
};

// "WinDivert", "WinDivert64", "WinDivert1.4" ..., in any letter case.
bool IsWinDivertService(const std::wstring& name);

// All kernel drivers. Windows only; any thread.
ServiceList ListDrivers();

}  // namespace checks
