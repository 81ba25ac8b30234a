#include <gtest/gtest.h>

#include <algorithm>
#include <future>

#include "settings/json.h"
#include "shell/window_fixture.h"
#include "shell/window_messages.h"

// The engineer's changes during a job or between two jobs are kept.
namespace shell {
namespace {

// A job that waits until the test releases it.
class WindowHeldJob : public WindowTest {
 protected:
  WindowHeldJob() {
    OpenWithReadyPage();
    jobBody_ = [this, opened = gate_.get_future().share()](settings::Settings& settings,
                                                           tunnel::Tunnel&) {
      opened.wait();
      change_(settings);
      return std::wstring(L"结果");
    };
  }
  void ReleaseJob(std::function<void(settings::Settings&)> change) {
    change_ = std::move(change);
    gate_.set_value();
    FinishJob();
  }
  // Returns a field of the last apply message.
  std::wstring Applied(const wchar_t* key) const {
    std::wstring value;
    for (const std::wstring& json : page_.posted) {
      const settings::JsonValue message = settings::ReadJsonDocument(json);
      const settings::JsonValue* fields = settings::FindJsonMember(message, L"fields");
      if (fields != nullptr) value = settings::JsonStringOrEmpty(*fields, key);
    }
    return value;
  }

  std::promise<void> gate_;
  std::function<void(settings::Settings&)> change_;
};

TEST_F(WindowHeldJob, ChangesDuringAJobAreKeptBesideItsResult) {
  PageSends(L"{\"action\":\"test\",\"f\":{\"secret\":\"mine\"}}");
  PageSends(
      L"{\"action\":\"saveProfile\",\"f\":{\"secret\":\"mine\",\"profileName\":\"A\",\"discovery\":"
      L"true}}");
  ReleaseJob([](settings::Settings& settings) { settings.latencyText = L"12 ms"; });
  for (const settings::Settings& settings : {OnDisk(), Record()}) {
    ASSERT_EQ(settings.siteProfiles.size(), 1u);
    EXPECT_EQ(settings.siteProfiles[0].name, L"A");
    EXPECT_TRUE(settings.discoveryModeEnabled);
    EXPECT_EQ(settings.latencyText, L"12 ms");
  }
}

TEST_F(WindowHeldJob, ProfileLoadedDuringAJobStaysInTheForm) {
  Edit([](settings::Settings& settings) {
    settings.siteProfiles = {{L"B", L"http://b:1", L"D-2", L"key b", L"ALL", {L"10.2.0.0/16"}}};
  });
  PageSends(L"{\"action\":\"connect\",\"f\":{\"secret\":\"key a\"}}");
  PageSends(L"{\"action\":\"loadProfile\",\"f\":{\"secret\":\"key a\",\"profileSel\":\"B\"}}");
  ReleaseJob([](settings::Settings& settings) {
    settings.connectionId = L"c1";
    settings.deviceNumber = L"D-1";
  });
  EXPECT_EQ(Applied(L"secret"), L"key b");
  EXPECT_EQ(OnDisk().deviceSecret, L"key b");
  EXPECT_EQ(OnDisk().deviceNumber, L"D-2");
  EXPECT_EQ(OnDisk().connectionId, L"c1");
}

// Changes between one job and the next.
class WindowMeanwhile : public WindowTest {
 protected:
  WindowMeanwhile() { OpenWithReadyPage(); }
};

// The tunnel comes online before the job that started it ends.
TEST_F(WindowMeanwhile, OnlineIsShownWithTheJobsConnection) {
  settings::JobSettings job(state_->settings);
  job.record.connectionId = L"c1";
  job.record.assignedAddress = L"10.8.0.2";
  job.Save();
  tunnel_->Start({});
  PageSends(L"{\"action\":\"discovery\",\"f\":{\"discovery\":true}}");
  Pump();
  const std::wstring& state = page_.posted.back();
  EXPECT_NE(state.find(L"\"state\":\"在线\""), std::wstring::npos) << "the tunnel's own word";
  EXPECT_NE(state.find(L"\"k\":\"组网 IP\",\"v\":\"10.8.0.2\""), std::wstring::npos);
  EXPECT_EQ(OnDisk().connectionId, L"c1") << "the discovery switch has saved, too";
}

// The form posted with the refused request is older than the profile.
TEST_F(WindowMeanwhile, RetryAfterLoadingAProfileUsesItsKey) {
  Edit([](settings::Settings& settings) {
    settings.siteProfiles = {{L"B", L"http://b:1", L"D-2", L"key b", L"ALL", {}}};
  });
  Connect(L"DEVICE_OFFLINE", L"");
  PageSends(L"{\"action\":\"loadProfile\",\"f\":{\"secret\":\"key\",\"profileSel\":\"B\"}}");
  std::wstring asked;
  jobBody_ = [&asked](settings::Settings& settings, tunnel::Tunnel&) {
    asked = settings.deviceSecret;
    return std::wstring(L"结果");
  };
  Send(WM_TIMER, kRetryTimer);
  FinishJob();
  EXPECT_EQ(asked, L"key b");
  EXPECT_EQ(Record().profileName, L"B");
}

TEST_F(WindowMeanwhile, RefusedRetriesWriteNothing) {
  Connect(L"DEVICE_OFFLINE", L"");
  disk_.written.clear();
  for (int i = 0; i < 3; ++i) {
    Send(WM_TIMER, kRetryTimer);
    FinishJob();
  }
  EXPECT_EQ(jobsRun_.size(), 4u);
  EXPECT_TRUE(disk_.written.empty());
}

TEST_F(WindowMeanwhile, FileDamagedBetweenJobsIsSetAsideBeforeTheNextSave) {
  jobBody_ = [this](settings::Settings& settings, tunnel::Tunnel&) {
    disk_.files[settings::kPath] = "damaged";
    settings.latencyText = L"12 ms";
    return std::wstring(L"结果");
  };
  PageSends(L"{\"action\":\"test\",\"f\":{\"secret\":\"mine\"}}");
  FinishJob();
  EXPECT_EQ(disk_.files[settings::kDamagedPath], "damaged");
  EXPECT_EQ(OnDisk().deviceSecret, L"mine");
  EXPECT_EQ(OnDisk().latencyText, L"12 ms");
  const std::wstring kept =
      std::wstring(L"警告：无法读取的设置文件已另行保留：") + settings::kDamagedPath;
  EXPECT_EQ(std::count(logged_.begin(), logged_.end(), kept), 1);
}

}  // namespace
}  // namespace shell
