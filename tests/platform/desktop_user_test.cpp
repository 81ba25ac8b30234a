#include "platform/desktop_user.h"

#include <gtest/gtest.h>

namespace platform {
namespace {

DesktopUserPorts PortsFor(const std::wstring& own, const std::wstring& desktop) {
  return {[own] { return own; }, [desktop] { return desktop; },
          [](const std::wstring& sid) { return L"C:\\Users\\" + sid; }};
}

TEST(DesktopUser, IsAnotherOneWhereTheIdsDiffer) {
  const auto user = FindOtherDesktopUser(PortsFor(L"S-1-5-21-1-2-3-500", L"S-1-5-21-1-2-3-1001"));
  ASSERT_TRUE(user.has_value());
  EXPECT_EQ(user->sid, L"S-1-5-21-1-2-3-1001");
  EXPECT_EQ(user->localAppData, L"C:\\Users\\S-1-5-21-1-2-3-1001");
}

TEST(DesktopUser, IsNobodyElseWhereTheIdsAreTheSameOrUnknown) {
  const std::pair<const wchar_t*, const wchar_t*> rows[] = {
      {L"S-1-5-21-1-2-3-500", L"S-1-5-21-1-2-3-500"},
      {L"S-1-5-21-1-2-3-500", L"s-1-5-21-1-2-3-500"},
      {L"S-1-5-21-1-2-3-500", L""},
      {L"", L"S-1-5-21-1-2-3-500"},
      {L"", L""},
  };
  for (const auto& [own, desktop] : rows) {
    DesktopUserPorts ports = PortsFor(own, desktop);
    ports.localAppData = [](const std::wstring&) -> std::wstring { throw 7; };  // not asked
    EXPECT_FALSE(FindOtherDesktopUser(ports).has_value());
  }
}

TEST(DesktopUser, MayBeOneWhoseFolderIsUnknown) {
  DesktopUserPorts ports = PortsFor(L"S-1-5-21-1-2-3-500", L"S-1-5-21-1-2-3-1001");
  ports.localAppData = [](const std::wstring&) { return std::wstring(); };
  const auto user = FindOtherDesktopUser(ports);
  ASSERT_TRUE(user.has_value());
  EXPECT_EQ(user->localAppData, L"");
}

}  // namespace
}  // namespace platform
