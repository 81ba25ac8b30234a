#include <gtest/gtest.h>

#include <set>
#include <vector>

#include "update/apply_update.h"
#include "update/idle_update_deps.h"

namespace update {
namespace {

constexpr wchar_t kSelf[] = L"D:\\工具 箱\\Velmarine.Client.exe";
constexpr wchar_t kCopy[] = L"D:\\工具 箱\\Velmarine.Client.exe.updater.exe";
constexpr wchar_t kDownload[] = L"C:\\Temp\\Velmarine.Client.update.exe";

class UpdaterStart : public testing::Test, protected IdleUpdateDeps {
 protected:
  UpdaterStart() {
    programPath = kSelf;
    processId = 4711;
  }

  platform::SystemResult CopyOver(const std::wstring& from, const std::wstring& to) override {
    events_.push_back(L"copy " + from + L" > " + to);
    if (canCopy_) files_.insert(to);
    return {canCopy_, 0};
  }
  bool IsFile(const std::wstring& path) override { return files_.count(path) == 1; }
  platform::SystemResult StartHidden(const std::wstring& commandLine) override {
    events_.push_back(L"start " + commandLine);
    return {canStart_, 0};
  }

  const std::wstring copied_ = std::wstring(L"copy ") + kSelf + L" > " + kCopy;
  const std::wstring arguments_ =
      std::wstring(L" --apply-update \"4711\" \"") + kDownload + L"\" \"" + kSelf + L"\"";
  std::set<std::wstring> files_{kSelf};
  bool canCopy_ = true;
  bool canStart_ = true;
  std::vector<std::wstring> events_;
};

TEST_F(UpdaterStart, StartsACopyOfTheProgramBesideIt) {
  EXPECT_TRUE(StartUpdater(kDownload, *this));
  EXPECT_EQ(events_, (std::vector<std::wstring>{
                         copied_, L"start \"" + std::wstring(kCopy) + L"\"" + arguments_}));
}

TEST_F(UpdaterStart, StartsTheProgramItselfIfNoCopyCanBeMade) {
  canCopy_ = false;
  EXPECT_TRUE(StartUpdater(kDownload, *this));
  EXPECT_EQ(events_, (std::vector<std::wstring>{
                         copied_, L"start \"" + std::wstring(kSelf) + L"\"" + arguments_}));
}

TEST_F(UpdaterStart, UsesTheCopyOfAnEarlierUpdateThatCannotBeOverwritten) {
  canCopy_ = false;
  files_.insert(kCopy);
  EXPECT_TRUE(StartUpdater(kDownload, *this));
  EXPECT_EQ(events_.back(), L"start \"" + std::wstring(kCopy) + L"\"" + arguments_);
}

TEST_F(UpdaterStart, ReportsThatTheProcessCouldNotBeStarted) {
  canStart_ = false;
  EXPECT_FALSE(StartUpdater(kDownload, *this));
  EXPECT_EQ(events_.size(), 2u) << "one attempt";
}

TEST_F(UpdaterStart, DoesNothingWhenTheProgramsOwnPathIsUnknown) {
  programPath.clear();
  EXPECT_FALSE(StartUpdater(kDownload, *this));
  EXPECT_TRUE(events_.empty());
}

TEST(UpdaterCommandLine, QuotesEveryArgumentButTheMode) {
  EXPECT_EQ(UpdaterCommandLine(L"u", 0, L"s \"x\"", L"维 马"),
            L"\"u\" --apply-update \"0\" \"s \\\"x\\\"\" \"维 马\"");
  EXPECT_EQ(UpdaterCommandLine(L"u", 4294967295u, L"s", L"d"),
            L"\"u\" --apply-update \"4294967295\" \"s\" \"d\"");
}

}  // namespace
}  // namespace update
