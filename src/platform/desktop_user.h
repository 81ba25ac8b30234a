#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <utility>

#include "text/strings.h"

// The user of the desktop on which the program runs. A standard user who starts it and enters an
// administrator's name gets a program that runs as that administrator on the standard user's
// desktop. The desktop's belongings (browser processes, other programs' proxy settings) remain the
// standard user's.
namespace platform {

struct DesktopUser {
  std::wstring sid;           // as text, "S-1-5-21-..."
  std::wstring localAppData;  // without a trailing slash; empty when unknown
};

// The desktop's user if that is certainly another one than the program's. An unknown sid is empty.
// Pure.
inline std::optional<DesktopUser> FindOtherDesktopUser(
    const std::wstring& ownSid, std::wstring desktopSid,
    const std::function<std::wstring(const std::wstring& sid)>& localAppData) {
  if (ownSid.empty() || desktopSid.empty() || text::EqualsIgnoreCase(ownSid, desktopSid)) {
    return std::nullopt;
  }
  std::wstring folder = localAppData(desktopSid);
  return DesktopUser{std::move(desktopSid), std::move(folder)};
}

// ---- Windows only; any thread

// The process that owns the desktop: the shell's; 0 without one.
std::uint32_t ShellProcess();

// The account under which the program runs; empty when unknown.
std::wstring OwnSid();

// The user of the process `shellProcess`; of the session when that process denies access. Empty
// when unknown.
std::wstring DesktopSid(std::uint32_t shellProcess);

// That user's local application data; from the registry below `sid` when the process denies access.
std::wstring DesktopLocalAppData(std::uint32_t shellProcess, const std::wstring& sid);

// FindOtherDesktopUser() for this computer. Once found, the user stays for the life of the process,
// even while the shell restarts.
std::optional<DesktopUser> OtherDesktopUser();

}  // namespace platform
