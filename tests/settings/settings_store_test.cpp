#include "settings/settings_store.h"

#include <gtest/gtest.h>

#include <atomic>
#include <optional>
#include <thread>
#include <utility>

#include "settings/memory_disk.h"

namespace settings {
namespace {

using Lines = std::vector<std::wstring>;

class SettingsStoreTest : public testing::Test {
 protected:
  void Edit(const std::function<void(Settings&)>& change) { store_.Edit(change); }

  void RefuseAll(const wchar_t* reason) {
    disk_.refuse = [reason](const std::wstring&) { return std::wstring(reason); };
  }
  static std::wstring Warning(const std::wstring& reason) {
    return L"警告：设置未能保存：" + reason + L"（" + kPath + L"）";
  }

  MemoryDisk disk_;
  SettingsStore store_{disk_.File(), Settings()};
};

TEST_F(SettingsStoreTest, LoadsEditsAndSaves) {
  disk_.files[kPath] = "{\"engineerId\":\"ENG-12345678\",\"deviceName\":\"d\"}";
  store_.Load();
  EXPECT_EQ(store_.Read().deviceName, L"d");
  Edit([](Settings& settings) { settings.testIp = L"1.2.3.4"; });
  EXPECT_EQ(store_.Read().testIp, L"1.2.3.4");
  EXPECT_TRUE(disk_.written.empty()) << "editing alone writes nothing";
  store_.Save();
  EXPECT_EQ(disk_.Load().testIp, L"1.2.3.4");
  EXPECT_EQ(store_.TakeReports(), Lines{});
  EXPECT_EQ(store_.Unsaved(), L"");
}

TEST_F(SettingsStoreTest, ReportsADamagedFileAtItsLoadAndWhenItIsSetAside) {
  disk_.files[kPath] = "damaged";
  store_.Load();
  const Lines atStart = store_.TakeReports();
  ASSERT_EQ(atStart.size(), 1u);
  EXPECT_NE(atStart[0].find(L"设置文件无法读取"), std::wstring::npos);
  store_.Save();
  const Lines atSave = store_.TakeReports();
  ASSERT_EQ(atSave.size(), 1u);
  EXPECT_NE(atSave[0].find(kDamagedPath), std::wstring::npos);
  store_.Save();
  EXPECT_EQ(store_.TakeReports(), Lines{});
}

TEST_F(SettingsStoreTest, FailedSaveIsReportedOncePerCauseAndKeepsTheRecord) {
  RefuseAll(L"拒绝访问。");
  Edit([](Settings& settings) { settings.connectionId = L"c1"; });
  store_.Save();
  store_.Save();
  EXPECT_EQ(store_.TakeReports(), Lines{Warning(L"拒绝访问。")});
  EXPECT_EQ(store_.Unsaved(), Warning(L"拒绝访问。"));
  RefuseAll(L"磁盘空间不足。");
  store_.Save();
  RefuseAll(L"拒绝访问。");
  store_.Save();
  EXPECT_EQ(store_.TakeReports(), Lines{Warning(L"磁盘空间不足。")});
  EXPECT_EQ(store_.Read().connectionId, L"c1");

  disk_.refuse = nullptr;
  store_.Save();
  EXPECT_EQ(store_.Unsaved(), L"");
  EXPECT_EQ(disk_.Load().connectionId, L"c1");
  RefuseAll(L"拒绝访问。");
  Edit([](Settings& settings) { settings.connectionId = L"c2"; });
  store_.Save();
  EXPECT_EQ(store_.TakeReports(), Lines{Warning(L"拒绝访问。")}) << "news again after a success";
}

// ---- a job beside the window

TEST_F(SettingsStoreTest, JobWorksOnACopyThatIsMergedWhenItEnds) {
  Edit([](Settings& settings) { settings.testIp = L"1.2.3.4"; });
  {
    JobSettings job(store_);
    EXPECT_EQ(job.record.testIp, L"1.2.3.4");
    job.record.latencyText = L"12 ms";
    EXPECT_EQ(store_.Read().latencyText, L"");
    EXPECT_TRUE(disk_.written.empty());
  }
  EXPECT_EQ(store_.Read().latencyText, L"12 ms");
  EXPECT_EQ(disk_.Load().latencyText, L"12 ms");
}

TEST_F(SettingsStoreTest, SaveDuringAJobIsReadAndSurvivesTheWindowsSaves) {
  JobSettings job(store_);
  job.record.connectionId = L"c1";
  job.Save();
  job.record.connectionId = L"not yet";
  EXPECT_EQ(store_.Read().connectionId, L"c1");
  Edit([](Settings& settings) {
    EXPECT_EQ(settings.connectionId, L"") << "the window's record stays its own";
    settings.discoveryModeEnabled = true;
  });
  store_.Save();
  EXPECT_EQ(disk_.Load().connectionId, L"c1");
  EXPECT_TRUE(disk_.Load().discoveryModeEnabled);
}

TEST_F(SettingsStoreTest, WindowEditsDuringAJobAreKept) {
  Edit([](Settings& settings) { settings.deviceSecret = L"first key"; });
  std::optional<JobSettings> job(std::in_place, store_);
  job->record.connectionId = L"c1";
  job->record.deviceNumber = L"first number";
  Edit([](Settings& settings) {
    settings.deviceSecret = L"second key";
    settings.siteProfiles.push_back({L"P", L"", L"", L"k", L"", {}});
  });
  store_.Save();
  EXPECT_EQ(disk_.Load().siteProfiles.size(), 1u);
  job.reset();
  const std::vector<Settings> ends = {store_.Read(), disk_.Load()};
  for (const Settings& end : ends) {
    EXPECT_EQ(end.connectionId, L"c1");
    EXPECT_EQ(end.deviceSecret, L"second key");
    EXPECT_EQ(end.deviceNumber, L"") << "the job's belongs to the first key";
    EXPECT_EQ(end.siteProfiles.size(), 1u);
  }
}

TEST_F(SettingsStoreTest, ConflictsAreResolvedByTheFieldsOwner) {
  std::optional<JobSettings> job(std::in_place, store_);
  job->record.targetNetwork = L"ALL";
  job->record.deviceNumber = L"job's";
  job->Save();
  Edit([](Settings& settings) {
    settings.targetNetwork = L"10.1.0.0/16";
    settings.deviceNumber = L"window's";
  });
  store_.Save();
  const Settings during = disk_.Load();
  job.reset();
  for (const Settings& end : {during, store_.Read(), disk_.Load()}) {
    EXPECT_EQ(end.targetNetwork, L"10.1.0.0/16");
    EXPECT_EQ(end.deviceNumber, L"job's");
  }
}

// After the job, the engineer loads a profile or restores the form's old values.
TEST_F(SettingsStoreTest, EveryLaterEditOverridesAFinishedJob) {
  Edit([](Settings& settings) { settings.targetNetwork = L"10.1.0.0/16"; });
  {
    JobSettings job(store_);
    job.record.targetNetwork = L"ALL";
    job.record.deviceNumber = L"job's";
  }
  Edit([](Settings& settings) {
    settings.targetNetwork = L"10.1.0.0/16";
    settings.deviceNumber = L"profile's";
  });
  store_.Save();
  for (const Settings& end : {store_.Read(), disk_.Load()}) {
    EXPECT_EQ(end.targetNetwork, L"10.1.0.0/16");
    EXPECT_EQ(end.deviceNumber, L"profile's");
  }
}

// A profile saved during a job describes the form, not the fields that the job has cleared.
TEST_F(SettingsStoreTest, WindowEditDoesNotSeeFieldsClearedByTheJob) {
  Edit([](Settings& settings) { settings.routesText = L"10.1.0.0/16"; });
  JobSettings job(store_);
  job.record.routesText.clear();
  job.Save();
  std::wstring seen;
  Edit([&seen](Settings& settings) { seen = settings.routesText; });
  EXPECT_EQ(seen, L"10.1.0.0/16");
  EXPECT_EQ(store_.Read().routesText, L"");
}

TEST_F(SettingsStoreTest, NextJobStartsFromTheResultOfTheFirst) {
  {
    JobSettings first(store_);
    first.record.connectionId = L"c1";
  }
  JobSettings second(store_);
  EXPECT_EQ(second.record.connectionId, L"c1");
}

TEST_F(SettingsStoreTest, JobIsMergedEvenIfTheFileCannotBeWritten) {
  RefuseAll(L"拒绝访问。");
  {
    JobSettings job(store_);
    job.record.connectionId = L"c1";
    job.Save();
  }
  EXPECT_EQ(store_.Read().connectionId, L"c1");
  EXPECT_EQ(store_.TakeReports(), Lines{Warning(L"拒绝访问。")});
}

TEST_F(SettingsStoreTest, RetriesThatChangeNothingWriteNothing) {
  store_.Save();
  disk_.written.clear();
  for (int i = 0; i < 3; ++i) {
    store_.Save();
    JobSettings job(store_);
    job.record.targetNetwork = L"ALL";
    job.record.heartbeatMessage = L"DEVICE_OFFLINE";
    job.Save();
  }
  EXPECT_EQ(disk_.written, (Lines{kPath, kLastPath})) << "the first refusal, and no other";
}

// Consecutive jobs on one thread, the window on another, with interleaved saves.
TEST_F(SettingsStoreTest, NothingIsLostBetweenTwoThreads) {
  constexpr int kRounds = 300;
  std::atomic<bool> done{false};
  std::thread worker([&] {
    for (int i = 1; i <= kRounds; ++i) {
      JobSettings job(store_);
      job.record.connectionId = L"c" + std::to_wstring(i);
      job.Save();
      job.record.latencyText = std::to_wstring(i);
    }
    done = true;
  });
  int saved = 0;
  while (!done || saved < kRounds) {
    ++saved;
    Edit([&](Settings& settings) { settings.profileName = std::to_wstring(saved); });
    store_.Save();
    EXPECT_EQ(store_.Read().profileName, std::to_wstring(saved));
  }
  worker.join();
  for (const Settings& end : {store_.Read(), disk_.Load()}) {
    EXPECT_EQ(end.connectionId, L"c" + std::to_wstring(kRounds));
    EXPECT_EQ(end.latencyText, std::to_wstring(kRounds));
    EXPECT_EQ(end.profileName, std::to_wstring(saved));
  }
}

// The window takes the reports while a job's saves alternately fail and succeed.
TEST_F(SettingsStoreTest, ReportsAreTakenWhileAJobSaves) {
  constexpr int kRounds = 300;
  int saves = 0;  // the disk is used under the store's lock
  disk_.refuse = [&saves](const std::wstring& path) {
    const bool refused = path == kPath && ++saves % 2 == 0;
    return std::wstring(refused ? L"拒绝访问。" : L"");
  };
  std::atomic<bool> done{false};
  std::thread worker([&] {
    JobSettings job(store_);
    for (int i = 1; i <= kRounds; ++i) {
      job.record.latencyText = std::to_wstring(i);
      job.Save();
    }
    done = true;
  });
  Lines taken;
  while (!done) {
    for (std::wstring& report : store_.TakeReports()) taken.push_back(std::move(report));
    const std::wstring unsaved = store_.Unsaved();
    EXPECT_TRUE(unsaved.empty() || unsaved == Warning(L"拒绝访问。"));
  }
  worker.join();
  for (std::wstring& report : store_.TakeReports()) taken.push_back(std::move(report));
  EXPECT_EQ(taken, Lines(kRounds / 2, Warning(L"拒绝访问。"))) << "each a success apart";
}

}  // namespace
}  // namespace settings
