#include "platform/desktop_user.h"

#include "text/strings.h"

namespace platform {

std::optional<DesktopUser> FindOtherDesktopUser(const DesktopUserPorts& ports) {
  const std::wstring own = ports.ownSid();
  std::wstring sid = ports.desktopSid();
  if (own.empty() || sid.empty() || text::EqualsIgnoreCase(own, sid)) return std::nullopt;
  std::wstring folder = ports.localAppData(sid);
  return DesktopUser{std::move(sid), std::move(folder)};
}

}  // namespace platform
