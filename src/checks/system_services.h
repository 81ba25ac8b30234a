#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace checks {

// A kernel driver as the system's service manager knows it.
struct ServiceFacts {
  std::wstring name;
  std::wstring displayName;
  bool isRunning = false;
  // Only of those whose name begins with "WinDivert":
  bool isDisabled = false;
  bool isMarkedForDeletion = false;
  std::wstring path;  // of its file, as the manager holds it
};

struct ServiceList {
  std::uint32_t error = 0;  // why the manager does not list them
  std::vector<ServiceFacts> drivers;
};

// "WinDivert", "WinDivert64", "WinDivert1.4" ..., in any letter case.
bool IsWinDivertService(const std::wstring& name);

// All kernel drivers. Windows only; any thread.
ServiceList ListDrivers();

}  // namespace checks
