#include "platform/desktop_user.h"

#include <gtest/gtest.h>

namespace platform {
namespace {

std::wstring FolderOf(const std::wstring& sid) {
  return L"C:\\Users\\" + sid;
}

TEST(DesktopUser, IsAnotherUserIfTheIdsDiffer) {
  const auto user = FindOtherDesktopUser(L"S-1-5-21-1-2-3-500", L"S-1-5-21-1-2-3-1001", FolderOf);
  ASSERT_TRUE(user.has_value());
  EXPECT_EQ(user->sid, L"S-1-5-21-1-2-3-1001");
  EXPECT_EQ(user->localAppData, L"C:\\Users\\S-1-5-21-1-2-3-1001");
}

TEST(DesktopUser, IsNotAnotherUserIfTheIdsAreEqualOrUnknown) {
  const std::pair<const wchar_t*, const wchar_t*> rows[] = {
      {L"S-1-5-21-1-2-3-500", L"S-1-5-21-1-2-3-500"},
      {L"S-1-5-21-1-2-3-500", L"s-1-5-21-1-2-3-500"},
      {L"S-1-5-21-1-2-3-500", L""},
      {L"", L"S-1-5-21-1-2-3-500"},
      {L"", L""},
  };
  for (const auto& [own, desktop] : rows) {
    const auto neverCalled = [](const std::wstring&) -> std::wstring { throw 7; };
    EXPECT_FALSE(FindOtherDesktopUser(own, desktop, neverCalled).has_value());
  }
}

TEST(DesktopUser, MayHaveAnUnknownFolder) {
  const auto user = FindOtherDesktopUser(L"S-1-5-21-1-2-3-500", L"S-1-5-21-1-2-3-1001",
                                         [](const std::wstring&) { return std::wstring(); });
  ASSERT_TRUE(user.has_value());
  EXPECT_EQ(user->localAppData, L"");
}

}  // namespace
}  // namespace platform
