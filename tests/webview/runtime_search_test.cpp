#include "webview/runtime_search.h"

#include <gtest/gtest.h>

#include <map>
#include <set>
#include <vector>

namespace webview {
namespace {

struct VersionRow {
  const wchar_t* folder;
  std::optional<RuntimeVersion> wanted;
};

TEST(ParseRuntimeVersion, ReadsFourNumbersFromTheLastPart) {
  const VersionRow rows[] = {
      {L"C:\\Program Files (x86)\\Microsoft\\EdgeWebView\\Application\\121.0.2277.106",
       RuntimeVersion{121, 0, 2277, 106}},
      {L"C:\\x\\121.0.2277.106\\", RuntimeVersion{121, 0, 2277, 106}},
      {L"86.0.616.0", RuntimeVersion{86, 0, 616, 0}},
      {L"C:/x/1.2.3.4", RuntimeVersion{1, 2, 3, 4}},
      {L"C:\\x\\999999999.0.0.0", RuntimeVersion{999999999, 0, 0, 0}},
      {L"", std::nullopt},
      {L"C:\\x\\", std::nullopt},
      {L"C:\\x\\Application", std::nullopt},
      {L"C:\\x\\121.0.2277", std::nullopt},
      {L"C:\\x\\121.0.2277.", std::nullopt},
      {L"C:\\x\\121.0.2277.106.5", std::nullopt},
      {L"C:\\x\\121.0.2277.106 beta", std::nullopt},
      {L"C:\\x\\.0.2277.106", std::nullopt},
      {L"C:\\x\\-1.0.0.0", std::nullopt},
      {L"C:\\x\\9999999999.0.0.0", std::nullopt},
  };
  for (const VersionRow& row : rows) {
    EXPECT_EQ(ParseRuntimeVersion(row.folder), row.wanted) << testing::PrintToString(row.folder);
  }
}

constexpr wchar_t kStable[] = L"{F3017226-FE2A-4295-8BDF-00C3A9A7E4C5}";
constexpr wchar_t kBeta[] = L"{2CD8A007-E189-409D-A2C8-9AF4EF3C72AA}";
constexpr wchar_t kDev[] = L"{0D50BFEC-CD6A-4F9A-964C-C7416E3ACB10}";
constexpr wchar_t kCanary[] = L"{65C35B14-6C1D-4122-AC46-7148CC9D6497}";
constexpr wchar_t kInternal[] = L"{BE59E8FD-089A-411B-A3B0-051D9E417818}";

std::wstring Library(const std::wstring& folder) {
  return folder + L"\\EBWebView\\x64\\EmbeddedBrowserWebView.dll";
}

// A fake registry and file system for the search.
class FindInstalledRuntimeTest : public testing::Test {
 protected:
  void Register(RuntimeRoot root, const std::wstring& channel, const std::wstring& folder,
                bool withLibrary = true) {
    registered_[{root, channel}] = folder;
    if (withLibrary) files_.insert(Library(folder));
  }

  std::optional<std::wstring> Find() {
    return FindInstalledRuntime(
        [this](RuntimeRoot root, std::wstring_view channel) -> std::optional<std::wstring> {
          asked_.emplace_back(root, channel);
          const auto found = registered_.find({root, std::wstring(channel)});
          if (found == registered_.end()) return std::nullopt;
          return found->second;
        },
        [this](const std::wstring& path) { return files_.count(path) != 0; });
  }

  using Place = std::pair<RuntimeRoot, std::wstring>;
  std::map<Place, std::wstring> registered_;
  std::set<std::wstring> files_;
  std::vector<Place> asked_;
};

TEST_F(FindInstalledRuntimeTest, ChecksAllUsersChannelsBeforeTheUsersOwn) {
  EXPECT_FALSE(Find());
  const std::vector<Place> wanted = {
      {RuntimeRoot::AllUsers, kStable},    {RuntimeRoot::AllUsers, kBeta},
      {RuntimeRoot::AllUsers, kDev},       {RuntimeRoot::AllUsers, kCanary},
      {RuntimeRoot::AllUsers, kInternal},  {RuntimeRoot::CurrentUser, kStable},
      {RuntimeRoot::CurrentUser, kBeta},   {RuntimeRoot::CurrentUser, kDev},
      {RuntimeRoot::CurrentUser, kCanary}, {RuntimeRoot::CurrentUser, kInternal}};
  EXPECT_EQ(asked_, wanted);
}

TEST_F(FindInstalledRuntimeTest, TakesTheFirstExistingRuntime) {
  Register(RuntimeRoot::CurrentUser, kStable, L"C:\\mine\\120.0.0.0");
  EXPECT_EQ(Find(), Library(L"C:\\mine\\120.0.0.0"));
  Register(RuntimeRoot::AllUsers, kBeta, L"C:\\beta\\130.0.0.0");
  EXPECT_EQ(Find(), Library(L"C:\\beta\\130.0.0.0"));
  Register(RuntimeRoot::AllUsers, kStable, L"C:\\all\\119.0.0.0");
  EXPECT_EQ(Find(), Library(L"C:\\all\\119.0.0.0"));
}

TEST_F(FindInstalledRuntimeTest, SkipsOutdatedAndBrokenRuntimes) {
  Register(RuntimeRoot::AllUsers, kStable, L"C:\\old\\86.0.615.99");
  Register(RuntimeRoot::CurrentUser, kStable, L"C:\\odd\\newest");
  Register(RuntimeRoot::AllUsers, kBeta, L"C:\\empty\\130.0.0.0", false);
  Register(RuntimeRoot::CurrentUser, kBeta, L"");
  EXPECT_FALSE(Find());
  Register(RuntimeRoot::AllUsers, kDev, L"C:\\oldest\\86.0.616.0");
  EXPECT_EQ(Find(), Library(L"C:\\oldest\\86.0.616.0"));
}

TEST(InstalledRuntimes, AreListedInTheOrderOfTheSearch) {
  const auto registered = [](RuntimeRoot root,
                             std::wstring_view channel) -> std::optional<std::wstring> {
    const bool isStable = channel.starts_with(L"{F3017226");
    if (root == RuntimeRoot::AllUsers && isStable) return L"C:\\R\\85.0.1.1";
    if (root == RuntimeRoot::CurrentUser && isStable) return L"C:\\U\\121.0.2277.106";
    if (root == RuntimeRoot::CurrentUser && channel.starts_with(L"{2CD8A007"))
      return L"C:\\gone\\99.0.0.0";
    return std::nullopt;
  };
  const auto exists = [](const std::wstring& path) {
    return path.starts_with(L"C:\\U") || path.starts_with(L"C:\\R");
  };
  const std::vector<ListedRuntime> listed = ListInstalledRuntimes(registered, exists);
  ASSERT_EQ(listed.size(), 3u);
  EXPECT_EQ(listed[0].folder, L"C:\\R\\85.0.1.1");
  EXPECT_FALSE(listed[0].isUsable) << "too old";
  EXPECT_EQ(listed[1].root, RuntimeRoot::CurrentUser);
  EXPECT_EQ(listed[1].channel, L"stable");
  EXPECT_TRUE(listed[1].isUsable);
  EXPECT_EQ(listed[2].channel, L"beta");
  EXPECT_FALSE(listed[2].isUsable) << "without its library";
}

}  // namespace
}  // namespace webview
