#include "tunnel/driver/driver_service.h"

#include <exception>

namespace tunnel {
namespace {

// The kernel service goes by the first name in 2.x of the driver, by the second in older ones.
constexpr const wchar_t* kServiceCommands[] = {L"sc stop WinDivert64", L"sc delete WinDivert64",
                                               L"sc stop WinDivert", L"sc delete WinDivert"};
constexpr std::chrono::milliseconds kCommandWait{5000};

}  // namespace

void RemoveDriverService(const HiddenRunner& runHidden) noexcept {
  for (const wchar_t* const command : kServiceCommands) {
    try {
      runHidden(command, kCommandWait);
    } catch (const std::exception&) {
      // What cannot be started is skipped; the next may work.
    }
  }
}

}  // namespace tunnel
