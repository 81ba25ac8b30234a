#include <gtest/gtest.h>

#include "settings/json.h"
#include "shell/window_fixture.h"
#include "shell/window_messages.h"

namespace shell {
namespace {

using Lines = std::vector<std::wstring>;
using Names = std::vector<std::string>;

constexpr wchar_t kSaved[] = L"档案已保存。";
constexpr wchar_t kNoName[] = L"档案未保存：请先填写档案名称。";
constexpr wchar_t kNoSecret[] = L"档案未保存：接入密钥为空。";
constexpr WPARAM kSaveCommand = 1012;
constexpr WPARAM kSelectionChange = MAKEWPARAM(1022, 1);

// Site profiles in the real window, from the page and from commands of native controls.
class WindowProfiles : public WindowTest {
 protected:
  WindowProfiles() {
    settings::Settings saved;
    saved.siteProfiles = {
        {L"Plant A", L"http://a:1", L"D-1", L"key a", L"10.1.0.0/16", {L"10.1.0.0/16", L"x"}},
        {L"Plant B", L"", L"D-2", L"key b", L"ALL", {}}};
    disk_.files[settings::kPath] = settings::FileBytes(saved);
    OpenWithReadyPage();
  }

  void Act(const wchar_t* action, const std::wstring& form) {
    ForgetRecords();
    PageSends(L"{\"action\":\"" + std::wstring(action) + L"\",\"f\":" + form + L"}");
    Pump();
  }
  // Makes `form` the page's form, then sends a native control's command.
  void Command(WPARAM command, const std::wstring& form) {
    PageSends(L"{\"action\":\"none\",\"f\":" + form + L"}");
    ForgetRecords();
    Send(WM_COMMAND, command);
    Pump();
  }

  // Returns the fields of the only posted apply message.
  settings::JsonValue Applied() const {
    for (const std::wstring& json : page_.posted) {
      const settings::JsonValue message = settings::ReadJsonDocument(json);
      if (settings::JsonStringOrEmpty(message, L"t") == L"apply") {
        return *settings::FindJsonMember(message, L"fields");
      }
    }
    return {};
  }
  std::wstring Applied(const wchar_t* key) const {
    return settings::JsonStringOrEmpty(Applied(), key);
  }

  static Lines NamesIn(const settings::Settings& settings) {
    Lines names;
    for (const settings::SiteProfile& profile : settings.siteProfiles) {
      names.push_back(profile.name);
    }
    return names;
  }

  void ExpectNothingHappened(const std::wstring& name) {
    EXPECT_TRUE(logged_.empty()) << name;
    EXPECT_TRUE(page_.posted.empty()) << name;
    EXPECT_EQ(Saves(), 0) << name;
  }
};

TEST_F(WindowProfiles, AreSavedFromThePageAndShownThere) {
  Act(L"saveProfile",
      L"{\"secret\":\" key c \",\"profileName\":\" Plant C \",\"target\":\"10.3.0.0/16\","
      L"\"testip\":\"10.3.0.1\",\"discovery\":true}");
  EXPECT_EQ(Saves(), 1);
  EXPECT_EQ(logged_, Lines{kSaved});
  EXPECT_EQ(PostedKinds(), (Names{"log", "apply", "state"}));
  EXPECT_EQ(NamesIn(OnDisk()), (Lines{L"Plant C", L"Plant A", L"Plant B"}));
  EXPECT_EQ(OnDisk().siteProfiles.at(0).deviceSecret, L"key c");
  EXPECT_EQ(OnDisk().siteProfiles.at(0).targetNetwork, L"10.3.0.0/16");
  EXPECT_EQ(OnDisk().siteProfiles.at(0).sharedNetworks, Lines{L"10.3.0.0/16"});
  EXPECT_EQ(OnDisk().testIp, L"10.3.0.1");
  EXPECT_TRUE(OnDisk().discoveryModeEnabled);
  EXPECT_EQ(settings::JsonStringsOf(Applied(), L"profiles"),
            (Lines{L"Plant C", L"Plant A", L"Plant B"}));
  EXPECT_EQ(Applied(L"profileSel"), L"Plant C");
  EXPECT_EQ(Applied(L"profileName"), L"Plant C");
}

TEST_F(WindowProfiles, ReplaceTheSameNameAndTheSameSecretInAnyCase) {
  Act(L"saveProfile", L"{\"secret\":\"new\",\"profileName\":\"plant a\"}");
  EXPECT_EQ(NamesIn(OnDisk()), (Lines{L"plant a", L"Plant B"}));
  Act(L"saveProfile", L"{\"secret\":\"KEY B\",\"profileName\":\"Other\"}");
  EXPECT_EQ(NamesIn(OnDisk()), (Lines{L"Other", L"plant a"}));
}

TEST_F(WindowProfiles, AreNotSavedWithoutANameOrASecret) {
  const struct {
    const wchar_t* form;
    const wchar_t* text;
  } rows[] = {
      {L"{}", kNoName},
      {L"{\"secret\":\"key a\"}", kNoName},
      {L"{\"secret\":\"key a\",\"profileName\":\" \\t\"}", kNoName},
      {L"{\"profileName\":\"Plant A\"}", kNoSecret},
      {L"{\"profileName\":\"Plant A\",\"secret\":\"\\u3000\"}", kNoSecret},
      {L"{\"profileName\":\"Plant A\",\"secret\":7}", kNoSecret},
  };
  for (const auto& row : rows) {
    Act(L"saveProfile", row.form);
    EXPECT_EQ(logged_, Lines{row.text}) << row.form;
    EXPECT_EQ(Saves(), 0) << row.form;
    EXPECT_EQ(PostedKinds(), (Names{"log", "apply", "state"})) << row.form;
    EXPECT_EQ(NamesIn(Record()), (Lines{L"Plant A", L"Plant B"})) << row.form;
  }
}

TEST_F(WindowProfiles, AreSavedByTheirCommandAndTheWindowIsRepainted) {
  ::ShowWindow(state_->window, SW_SHOWNOACTIVATE);
  Pump();
  ::ValidateRect(state_->window, nullptr);
  PageSends(L"{\"action\":\"none\",\"f\":{\"secret\":\"key c\",\"profileName\":\"Plant C\"}}");
  ForgetRecords();
  Send(WM_COMMAND, kSaveCommand);
  EXPECT_NE(::GetUpdateRect(state_->window, nullptr, FALSE), FALSE);
  Pump();
  EXPECT_EQ(Saves(), 1);
  EXPECT_EQ(logged_, Lines{kSaved});
  EXPECT_EQ(PostedKinds(), (Names{"log", "apply", "state"}));
  EXPECT_EQ(NamesIn(OnDisk()), (Lines{L"Plant C", L"Plant A", L"Plant B"}));
}

TEST_F(WindowProfiles, AreRefusedByTheirCommandWithTheSameText) {
  Command(kSaveCommand, L"{\"secret\":\"key c\"}");
  EXPECT_EQ(logged_, Lines{kNoName});
  Command(kSaveCommand, L"{\"profileName\":\"Plant C\"}");
  EXPECT_EQ(logged_, Lines{kNoSecret});
  EXPECT_EQ(Saves(), 0);
}

TEST_F(WindowProfiles, AreLoadedFromThePage) {
  Act(L"loadProfile",
      L"{\"secret\":\"typed\",\"target\":\"typed\",\"profileName\":\"typed\",\"testip\":\"1.2.3."
      L"4\","
      L"\"profileSel\":\" plant a \"}");
  EXPECT_EQ(Saves(), 1);
  EXPECT_EQ(logged_, Lines{L"已载入档案：Plant A"});
  EXPECT_EQ(PostedKinds(), (Names{"apply", "state", "log"}));
  EXPECT_EQ(OnDisk().profileName, L"Plant A");
  EXPECT_EQ(OnDisk().deviceName, L"Plant A");
  EXPECT_EQ(OnDisk().serverUrl, L"http://a:1");
  EXPECT_EQ(OnDisk().deviceNumber, L"D-1");
  EXPECT_EQ(OnDisk().deviceSecret, L"key a");
  EXPECT_EQ(OnDisk().targetNetwork, L"10.1.0.0/16");
  EXPECT_EQ(OnDisk().routesText, L"10.1.0.0/16\r\nx");
  EXPECT_EQ(OnDisk().testIp, L"1.2.3.4");
  EXPECT_EQ(Applied(L"secret"), L"key a");
  EXPECT_EQ(Applied(L"target"), L"10.1.0.0/16");
  EXPECT_EQ(Applied(L"profileSel"), L"Plant A");
  EXPECT_EQ(settings::JsonStringsOf(Applied(), L"targets"), (Lines{L"自动", L"10.1.0.0/16", L"x"}));
  EXPECT_EQ(NamesIn(OnDisk()), (Lines{L"Plant A", L"Plant B"}));
}

TEST_F(WindowProfiles, AreLoadedByASelectionOnly) {
  for (const int notification : {0, 2, 3, 5, 9, 0xFFFF}) {
    Command(MAKEWPARAM(1022, notification), L"{\"profileSel\":\"Plant A\"}");
    ExpectNothingHappened(L"no change of selection");
  }
  Command(kSelectionChange, L"{\"profileSel\":\"PLANT A\"}");
  EXPECT_EQ(Saves(), 1);
  EXPECT_EQ(logged_, Lines{L"已加载档案：Plant A"});
  EXPECT_EQ(PostedKinds(), (Names{"apply", "state", "log"}));
  EXPECT_EQ(OnDisk().deviceNumber, L"D-1");
}

TEST_F(WindowProfiles, UnknownOrUnnamedAreSilentlyNotLoaded) {
  for (const wchar_t* form :
       {L"{}", L"{\"profileSel\":\"\"}", L"{\"profileSel\":\" \\u3000\\t\"}",
        L"{\"profileSel\":\"Plant\"}", L"{\"profileSel\":7}", L"{\"profileName\":\"Plant A\"}"}) {
    Act(L"loadProfile", form);
    ExpectNothingHappened(form);
    Command(kSelectionChange, form);
    ExpectNothingHappened(form);
    EXPECT_EQ(Record().deviceNumber, L"") << form;
  }
}

// The warning repeats even for a known cause: the line above says that the profile is saved.
TEST_F(WindowProfiles, NotSavedToDiskAreFollowedByTheWarning) {
  disk_.refuse = [](const std::wstring&) { return std::wstring(L"拒绝访问。"); };
  const std::wstring warning =
      std::wstring(L"警告：设置未能保存：拒绝访问。（") + settings::kLastPath + L"）";
  for (const wchar_t* name : {L"Plant C", L"Plant D"}) {
    Act(L"saveProfile", L"{\"secret\":\"key c\",\"profileName\":\"" + std::wstring(name) + L"\"}");
    const bool isFirst = name == std::wstring(L"Plant C");
    ASSERT_EQ(logged_.size(), isFirst ? 3u : 2u) << "the hint comes once";
    EXPECT_EQ(Lines(logged_.begin(), logged_.begin() + 2), (Lines{kSaved, warning}));
    EXPECT_EQ(NamesIn(Record()).front(), name) << "the record stands";
  }
  Act(L"loadProfile", L"{\"profileSel\":\"Plant A\"}");
  EXPECT_EQ(logged_, Lines{L"已载入档案：Plant A"}) << "the cause has been told";
  EXPECT_EQ(NamesIn(OnDisk()), (Lines{L"Plant A", L"Plant B"}));

  disk_.refuse = nullptr;
  Act(L"discovery", L"{\"secret\":\"key a\",\"discovery\":true}");
  EXPECT_EQ(NamesIn(OnDisk()), (Lines{L"Plant D", L"Plant A", L"Plant B"}));
}

TEST_F(WindowProfiles, MayBeSavedAndLoadedByTheThousand) {
  Edit([](settings::Settings& settings) {
    for (int i = 0; i < 1000; ++i) {
      settings.siteProfiles.push_back(
          {L"S" + std::to_wstring(i), L"", std::to_wstring(i), L"k" + std::to_wstring(i), L"", {}});
    }
  });
  Act(L"saveProfile", L"{\"secret\":\"k500\",\"profileName\":\"Plant C\"}");
  EXPECT_EQ(OnDisk().siteProfiles.size(), 1002u);
  EXPECT_EQ(settings::JsonStringsOf(Applied(), L"profiles").size(), 1002u);
  Act(L"loadProfile", L"{\"profileSel\":\"s999\"}");
  EXPECT_EQ(logged_, Lines{L"已载入档案：S999"});
  EXPECT_EQ(OnDisk().deviceNumber, L"999");
}

}  // namespace
}  // namespace shell
