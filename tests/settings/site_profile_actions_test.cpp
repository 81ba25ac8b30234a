#include "settings/site_profiles.h"

#include <gtest/gtest.h>

#include "settings/server_address.h"

namespace settings {
namespace {

using Lines = std::vector<std::wstring>;

constexpr wchar_t kNoName[] = L"档案未保存：请先填写档案名称。";
constexpr wchar_t kNoSecret[] = L"档案未保存：接入密钥为空。";
constexpr wchar_t kSaved[] = L"档案已保存。";

Settings SettingsOf(const std::wstring& name, const std::wstring& secret) {
  Settings settings;
  settings.profileName = name;
  settings.deviceSecret = secret;
  return settings;
}

SiteProfile ProfileOf(const std::wstring& name, const std::wstring& secret) {
  return {name, L"http://h", L"D", secret, L"ALL", {}};
}

// Saves a further profile, with this name and secret.
ProfileOutcome SaveAs(Settings& settings, const std::wstring& name, const std::wstring& secret) {
  settings.profileName = name;
  settings.deviceSecret = secret;
  return SaveSiteProfile(settings);
}

Lines NamesOf(const Settings& settings) {
  Lines names;
  for (const SiteProfile& profile : settings.siteProfiles) names.push_back(profile.name);
  return names;
}

TEST(ProfileFromSettings, TakesTheFieldsOfTheSite) {
  Settings settings = SettingsOf(L"Plant A", L"key");
  settings.serverUrl = L"http://192.0.2.10:31080";
  settings.deviceNumber = L"D-100";
  settings.deviceName = L"not taken";
  settings.targetNetwork = L"10.1.0.0/16";
  settings.routesText = L"10.1.0.0/16\r\n10.2.0.0/16";
  settings.accessRoutesText = L"not taken";
  settings.sharedNetworksText = L"not taken";
  const SiteProfile profile = ProfileFromSettings(settings);
  EXPECT_EQ(profile.name, L"Plant A");
  EXPECT_EQ(profile.serverUrl, L"http://192.0.2.10:31080");
  EXPECT_EQ(profile.deviceNumber, L"D-100");
  EXPECT_EQ(profile.deviceSecret, L"key");
  EXPECT_EQ(profile.targetNetwork, L"10.1.0.0/16");
  EXPECT_EQ(profile.sharedNetworks, (Lines{L"10.1.0.0/16", L"10.2.0.0/16"}));
}

struct NetworkRow {
  const char* name;
  const wchar_t* routes;
  const wchar_t* target;
  Lines networks;
  const wchar_t* kept;  // as the profile's target
};

TEST(ProfileFromSettings, UsesTheTargetOnlyWithoutNetworks) {
  const NetworkRow rows[] = {
      {"nothing known", L"", L"", {}, L"ALL"},
      {"all of nothing", L"", L"ALL", {}, L"ALL"},
      {"the target alone", L"", L"10.1.0.0/16", {L"10.1.0.0/16"}, L"10.1.0.0/16"},
      {"networks and target", L"10.2.0.0/16", L"10.1.0.0/16", {L"10.2.0.0/16"}, L"10.1.0.0/16"},
      {"networks and no target", L"10.2.0.0/16", L"", {L"10.2.0.0/16"}, L"ALL"},
      {"lines without a network", L"\r\n\r\n", L"10.1.0.0/16", {L"10.1.0.0/16"}, L"10.1.0.0/16"},
      {"every line break", L"\na\rb\nc\r\n\r\nd\r\n", L"ALL", {L"a", L"b", L"c", L"d"}, L"ALL"},
      {"no blank is a break", L"a b,c;d\te", L"ALL", {L"a b,c;d\te"}, L"ALL"},
      {"ALL in another case is no word", L"", L"all", {L"all"}, L"all"},
  };
  for (const NetworkRow& row : rows) {
    Settings settings = SettingsOf(L"A", L"key");
    settings.routesText = row.routes;
    settings.targetNetwork = row.target;
    const SiteProfile profile = ProfileFromSettings(settings);
    EXPECT_EQ(profile.sharedNetworks, row.networks) << row.name;
    EXPECT_EQ(profile.targetNetwork, row.kept) << row.name;
  }
}

TEST(SaveSiteProfile, IsRefusedWithoutANameOrASecretAndChangesNothing) {
  const struct {
    const wchar_t* name;
    const wchar_t* secret;
    const wchar_t* text;
  } rows[] = {{L"", L"key", kNoName}, {L"", L"", kNoName}, {L"Plant A", L"", kNoSecret}};
  for (const auto& row : rows) {
    Settings settings = SettingsOf(row.name, row.secret);
    // A refused save does not remove profiles of the same name or secret either.
    settings.siteProfiles = {ProfileOf(L"Plant A", L"key"), ProfileOf(L"Plant B", L"")};
    const std::wstring before = WriteSettingsText(settings);
    const ProfileOutcome outcome = SaveSiteProfile(settings);
    EXPECT_EQ(outcome.logText, row.text);
    EXPECT_FALSE(outcome.changed);
    EXPECT_EQ(WriteSettingsText(settings), before);
  }
}

TEST(SaveSiteProfile, ReportsThatItIsSaved) {
  Settings settings = SettingsOf(L"Plant A", L"key");
  const ProfileOutcome outcome = SaveSiteProfile(settings);
  EXPECT_EQ(outcome.logText, kSaved);
  EXPECT_TRUE(outcome.changed);
  ASSERT_EQ(NamesOf(settings), Lines{L"Plant A"});
  EXPECT_EQ(settings.siteProfiles[0].deviceSecret, L"key");
  EXPECT_EQ(settings.siteProfiles[0].serverUrl, DefaultServerUrl());
}

TEST(SaveSiteProfile, ListsTheNewestFirst) {
  Settings settings;
  SaveAs(settings, L"A", L"1");
  SaveAs(settings, L"B", L"2");
  SaveAs(settings, L"C", L"3");
  EXPECT_EQ(NamesOf(settings), (Lines{L"C", L"B", L"A"}));
}

TEST(SaveSiteProfile, ReplacesTheSameNameInAnotherCase) {
  Settings settings;
  SaveAs(settings, L"Plant A", L"S");
  SaveAs(settings, L"Other", L"O");
  SaveAs(settings, L"plant a", L"T");
  EXPECT_EQ(NamesOf(settings), (Lines{L"plant a", L"Other"}));
  EXPECT_EQ(settings.siteProfiles[0].deviceSecret, L"T");
}

TEST(SaveSiteProfile, ReplacesTheSameSecretUnderAnotherName) {
  for (const wchar_t* secret : {L"key", L"KEY"}) {
    Settings settings;
    SaveAs(settings, L"Plant A", L"key");
    SaveAs(settings, L"Plant B", secret);
    EXPECT_EQ(NamesOf(settings), Lines{L"Plant B"}) << secret;
    EXPECT_EQ(settings.siteProfiles[0].deviceSecret, secret);
  }
}

TEST(SaveSiteProfile, ReplacesEveryProfileOfTheSite) {
  Settings settings = SettingsOf(L"a", L"2");
  settings.siteProfiles = {ProfileOf(L"A", L"1"), ProfileOf(L"X", L"9"), ProfileOf(L"B", L"2"),
                           ProfileOf(L"A", L"3"), ProfileOf(L"Y", L"8")};
  SaveSiteProfile(settings);
  EXPECT_EQ(NamesOf(settings), (Lines{L"a", L"X", L"Y"}));
}

TEST(SaveSiteProfile, MatchesNamesOnlyWithNamesAndSecretsOnlyWithSecrets) {
  Settings settings = SettingsOf(L"same", L"other");
  settings.siteProfiles = {ProfileOf(L"other", L"same"), ProfileOf(L"same ", L"o"),
                           ProfileOf(L"sam", L"othe")};
  SaveSiteProfile(settings);
  EXPECT_EQ(NamesOf(settings), (Lines{L"same", L"other", L"same ", L"sam"}));
}

// A profile without a secret, from a file edited by hand, does not belong to any site.
TEST(SaveSiteProfile, LeavesProfilesWithoutASecretAlone) {
  Settings settings = SettingsOf(L"A", L"key");
  settings.siteProfiles = {ProfileOf(L"B", L""), ProfileOf(L"C", L"")};
  SaveSiteProfile(settings);
  EXPECT_EQ(NamesOf(settings), (Lines{L"A", L"B", L"C"}));
}

TEST(SaveSiteProfile, IgnoresTheCaseOfNamesInOtherAlphabets) {
  Settings settings;
  SaveAs(settings, L"\x041F\x043B\x0430\x043D", L"1");  // Cyrillic
  SaveAs(settings, L"\x043F\x041B\x0410\x041D", L"2");
  EXPECT_EQ(NamesOf(settings), Lines{L"\x043F\x041B\x0410\x041D"});
  SaveAs(settings, L"\x0141\x00D3\x0179", L"2");  // Polish, with the previous key
  SaveAs(settings, L"\x0142\x00F3\x017A", L"3");
  EXPECT_EQ(NamesOf(settings), Lines{L"\x0142\x00F3\x017A"});
  SaveAs(settings, L"泵站\xD83D\xDE00", L"4");
  SaveAs(settings, L"泵站\xD83D\xDE01", L"5");
  EXPECT_EQ(settings.siteProfiles.size(), 3u);
}

TEST(SaveSiteProfile, ReadsBackAsAllWithoutATarget) {
  Settings settings = SettingsOf(L"Plant A", L"key");
  settings.targetNetwork.clear();
  SaveSiteProfile(settings);
  Settings read;
  ReadSettingsText(WriteSettingsText(settings), read);
  ASSERT_EQ(read.siteProfiles.size(), 1u);
  EXPECT_EQ(read.siteProfiles[0].targetNetwork, L"ALL");
  EXPECT_TRUE(read.siteProfiles[0].sharedNetworks.empty());
}

TEST(SaveSiteProfile, KeepsAThousandAndMore) {
  Settings settings;
  for (int i = 0; i < 1200; ++i) SaveAs(settings, std::to_wstring(i), L"k" + std::to_wstring(i));
  ASSERT_EQ(settings.siteProfiles.size(), 1200u);
  EXPECT_EQ(settings.siteProfiles.front().name, L"1199");
  EXPECT_EQ(settings.siteProfiles.back().name, L"0");
}

Settings WithPlant() {
  Settings settings = SettingsOf(L"typed", L"typed");
  settings.deviceName = L"old device";
  settings.siteProfiles = {
      {L"Plant A", L"http://a:1", L"D-1", L"key", L"10.1.0.0/16", {L"10.1.0.0/16", L"10.2.0.0/16"}},
      {L"plant a", L"http://b:1", L"D-2", L"second", L"ALL", {}},
      {L"Bare", L"", L"", L"", L"", {}}};
  return settings;
}

TEST(LoadSiteProfile, CopiesItsValuesIntoTheSettings) {
  Settings settings = WithPlant();
  const ProfileOutcome outcome = LoadSiteProfile(settings, L"Plant A", ProfileChooser::Page);
  EXPECT_TRUE(outcome.changed);
  EXPECT_EQ(settings.profileName, L"Plant A");
  EXPECT_EQ(settings.deviceName, L"Plant A");
  EXPECT_EQ(settings.serverUrl, L"http://a:1");
  EXPECT_EQ(settings.deviceNumber, L"D-1");
  EXPECT_EQ(settings.deviceSecret, L"key");
  EXPECT_EQ(settings.targetNetwork, L"10.1.0.0/16");
  EXPECT_EQ(settings.routesText, L"10.1.0.0/16\r\n10.2.0.0/16");
  EXPECT_EQ(settings.siteProfiles.size(), 3u);
}

TEST(LoadSiteProfile, FillsInMissingValues) {
  Settings settings = WithPlant();
  settings.routesText = L"10.9.0.0/16";
  settings.targetNetwork = L"10.9.0.0/16";
  settings.deviceNumber = L"D-9";
  LoadSiteProfile(settings, L"Bare", ProfileChooser::Page);
  EXPECT_EQ(settings.serverUrl, DefaultServerUrl());
  EXPECT_EQ(settings.targetNetwork, L"ALL");
  EXPECT_EQ(settings.deviceNumber, L"");
  EXPECT_EQ(settings.deviceSecret, L"");
  EXPECT_EQ(settings.routesText, L"");
}

TEST(LoadSiteProfile, ChangesOnlyTheFieldsOfTheSite) {
  Settings settings = WithPlant();
  settings.connectionId = L"c1";
  settings.testIp = L"1.2.3.4";
  settings.accessRoutesText = L"10.9.0.0/16";
  settings.sharedNetworksText = L"10.9.0.0/16";
  settings.discoveryModeEnabled = true;
  LoadSiteProfile(settings, L"Plant A", ProfileChooser::Page);
  EXPECT_EQ(settings.connectionId, L"c1");
  EXPECT_EQ(settings.testIp, L"1.2.3.4");
  EXPECT_EQ(settings.accessRoutesText, L"10.9.0.0/16");
  EXPECT_EQ(settings.sharedNetworksText, L"10.9.0.0/16");
  EXPECT_TRUE(settings.discoveryModeEnabled);
}

TEST(LoadSiteProfile, ReportsInTheWordsOfItsChooser) {
  Settings settings = WithPlant();
  EXPECT_EQ(LoadSiteProfile(settings, L"bare", ProfileChooser::Window).logText,
            L"已加载档案：Bare");
  EXPECT_EQ(LoadSiteProfile(settings, L"BARE", ProfileChooser::Page).logText, L"已载入档案：Bare");
}

TEST(LoadSiteProfile, FindsTheFirstOfThatNameIgnoringCaseAndBlanks) {
  for (const wchar_t* name : {L"Plant A", L"PLANT A", L" \tplant a\r\n", L"\x3000Plant a\x00A0"}) {
    Settings settings = WithPlant();
    EXPECT_TRUE(LoadSiteProfile(settings, name, ProfileChooser::Page).changed) << name;
    EXPECT_EQ(settings.deviceNumber, L"D-1") << name;
    EXPECT_EQ(settings.profileName, L"Plant A") << name;
  }
}

TEST(LoadSiteProfile, IsSilentForAnEmptyAndForAnUnknownName) {
  for (const wchar_t* name : {L"", L" \t\r\n\x3000", L"Plant", L"Plant  A", L"Plant AB", L"D-1"}) {
    Settings settings = WithPlant();
    settings.siteProfiles.push_back(ProfileOf(L"", L"nameless"));
    const std::wstring before = WriteSettingsText(settings);
    const ProfileOutcome outcome = LoadSiteProfile(settings, name, ProfileChooser::Window);
    EXPECT_FALSE(outcome.changed) << name;
    EXPECT_EQ(outcome.logText, L"") << name;
    EXPECT_EQ(WriteSettingsText(settings), before) << name;
  }
}

// The name may be a view of a text in the settings, which loading changes.
TEST(LoadSiteProfile, AcceptsANameOwnedByTheSettings) {
  Settings settings = WithPlant();
  settings.profileName = L"bare";
  EXPECT_EQ(LoadSiteProfile(settings, settings.profileName, ProfileChooser::Page).logText,
            L"已载入档案：Bare");
}

TEST(LoadSiteProfile, RestoresASavedProfile) {
  Settings settings = SettingsOf(L"Plant A", L"key");
  settings.serverUrl = L"http://a:1";
  settings.deviceNumber = L"D-1";
  settings.targetNetwork = L"10.1.0.0/16";
  SaveSiteProfile(settings);
  Settings read;
  ReadSettingsText(WriteSettingsText(settings), read);
  SaveAs(read, L"Plant B", L"other");
  read.serverUrl = L"http://b:2";
  LoadSiteProfile(read, L"plant a", ProfileChooser::Page);
  EXPECT_EQ(read.profileName, L"Plant A");
  EXPECT_EQ(read.deviceSecret, L"key");
  EXPECT_EQ(read.serverUrl, L"http://a:1");
  EXPECT_EQ(read.targetNetwork, L"10.1.0.0/16");
  EXPECT_EQ(read.routesText, L"10.1.0.0/16");
  EXPECT_EQ(NamesOf(read), (Lines{L"Plant B", L"Plant A"}));
}

// A profile without an address gets the default when the file is read. An empty address stays empty
// until the profile is loaded.
TEST(LoadSiteProfile, ReplacesAnEmptyAddressOfTheFileWithTheDefault) {
  Settings settings;
  ReadSettingsText(L"{\"siteProfiles\":[{\"name\":\"A\"},{\"name\":\"B\",\"serverUrl\":\"\"}]}",
                   settings);
  ASSERT_EQ(settings.siteProfiles.size(), 2u);
  EXPECT_EQ(settings.siteProfiles[0].serverUrl, DefaultServerUrl());
  EXPECT_EQ(settings.siteProfiles[1].serverUrl, L"");
  for (const wchar_t* name : {L"A", L"B"}) {
    settings.serverUrl = L"http://elsewhere";
    LoadSiteProfile(settings, name, ProfileChooser::Page);
    EXPECT_EQ(settings.serverUrl, DefaultServerUrl()) << name;
  }
}

}  // namespace
}  // namespace settings
