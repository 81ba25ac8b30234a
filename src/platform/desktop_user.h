#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

// Whose desktop the program runs on. A standard user who starts it and names an administrator gets
// a program that runs as that administrator on his own desktop: what belongs to the desktop (the
// browser's processes, the proxy settings of other programs) is still his.
namespace platform {

struct DesktopUser {
  std::wstring sid;           // as text, "S-1-5-21-..."
  std::wstring localAppData;  // without a trailing slash; empty when the system cannot tell
};

// What the system tells of the two users; each is empty when it cannot tell.
struct DesktopUserPorts {
  std::function<std::wstring()> ownSid;
  std::function<std::wstring()> desktopSid;
  std::function<std::wstring(const std::wstring& sid)> localAppData;  // of the desktop's user
};

// The desktop's user where that is surely another one than the program's own. Pure.
std::optional<DesktopUser> FindOtherDesktopUser(const DesktopUserPorts& ports);

// The process that owns the desktop, 0 when there is none: the shell's. Windows only.
std::uint32_t ShellProcess();

// The system's. The desktop's user is that of the process `shellProcess`, else, where that process
// does not let itself be asked, the one who has signed in to this session. Windows only.
DesktopUserPorts RealDesktopUserPorts(std::uint32_t shellProcess);

// With the system's ports and the shell. A user once found stays for the life of the process, also
// while the shell is away. Any thread. Windows only.
std::optional<DesktopUser> OtherDesktopUser();

}  // namespace platform
