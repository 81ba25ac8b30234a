#include "settings/site_profiles.h"

#include <gtest/gtest.h>

#include "settings/server_address.h"

namespace settings {
namespace {

std::vector<SiteProfile> ReadProfiles(const std::wstring& members) {
  return ReadSiteProfiles(ReadJsonDocument(L"{\"siteProfiles\":" + members + L"}"));
}

TEST(WriteSiteProfiles, PutsTheWholeListOnOneLine) {
  EXPECT_EQ(WriteSiteProfiles({}), L"[]");
  const SiteProfile plant{L"Plant \"A\"", L"http://h:1",  L"D1",
                          L"s\\1",        L"10.1.0.0/16", {L"10.1.0.0/16", L"10.2.0.0/16"}};
  const SiteProfile bare{L"B", L"", L"", L"", L"", {}};
  EXPECT_EQ(WriteSiteProfiles({plant, bare}),
            L"[{\"name\":\"Plant \\\"A\\\"\",\"serverUrl\":\"http://h:1\",\"deviceNumber\":\"D1\","
            L"\"deviceSecret\":\"s\\\\1\",\"targetNetwork\":\"10.1.0.0/16\","
            L"\"sharedNetworks\":[\"10.1.0.0/16\",\"10.2.0.0/16\"]},"
            L"{\"name\":\"B\",\"serverUrl\":\"\",\"deviceNumber\":\"\",\"deviceSecret\":\"\","
            L"\"targetNetwork\":\"ALL\",\"sharedNetworks\":[]}]");
}

TEST(ReadSiteProfiles, ReadsBackWhatWasWritten) {
  const std::vector<SiteProfile> profiles = {
      {L"A\n\x5DE5", L"http://h", L"1", L"s\"", L"10.0.0.0/8", {L"", L"x"}},
      {L"B", L"", L"", L"", L"", {}}};
  const auto read = ReadProfiles(WriteSiteProfiles(profiles));
  ASSERT_EQ(read.size(), 2u);
  EXPECT_EQ(read[0].name, L"A\n\x5DE5");
  EXPECT_EQ(read[0].serverUrl, L"http://h");
  EXPECT_EQ(read[0].deviceNumber, L"1");
  EXPECT_EQ(read[0].deviceSecret, L"s\"");
  EXPECT_EQ(read[0].targetNetwork, L"10.0.0.0/8");
  EXPECT_EQ(read[0].sharedNetworks, (std::vector<std::wstring>{L"", L"x"}));
  EXPECT_EQ(read[1].targetNetwork, L"ALL");
}

TEST(ReadSiteProfiles, FillsInMissingMembers) {
  const auto read = ReadProfiles(
      L"[{\"name\":\"A\"},{\"name\":\"B\",\"serverUrl\":\"\",\"targetNetwork\":\"\"}]");
  ASSERT_EQ(read.size(), 2u);
  EXPECT_EQ(read[0].serverUrl, DefaultServerUrl());
  EXPECT_EQ(read[0].targetNetwork, L"ALL");
  EXPECT_EQ(read[0].deviceNumber, L"");
  EXPECT_EQ(read[0].deviceSecret, L"");
  EXPECT_TRUE(read[0].sharedNetworks.empty());
  EXPECT_EQ(read[1].serverUrl, L"");
  EXPECT_EQ(read[1].targetNetwork, L"");
}

TEST(ReadSiteProfiles, ReadsOnlyMembersOfTheRightType) {
  const auto read = ReadProfiles(
      L"[{\"name\":\"A\",\"serverUrl\":1,\"deviceNumber\":2,\"deviceSecret\":null,"
      L"\"targetNetwork\":[],\"sharedNetworks\":[\"x\",1,null,[\"y\"],\"z\"]},"
      L"{\"name\":\"B\",\"sharedNetworks\":\"x\"}]");
  ASSERT_EQ(read.size(), 2u);
  EXPECT_EQ(read[0].serverUrl, DefaultServerUrl());
  EXPECT_EQ(read[0].deviceNumber, L"");
  EXPECT_EQ(read[0].targetNetwork, L"ALL");
  EXPECT_EQ(read[0].sharedNetworks, (std::vector<std::wstring>{L"x", L"z"}));
  EXPECT_TRUE(read[1].sharedNetworks.empty());
}

TEST(ReadSiteProfiles, DropsNamelessProfilesAndOtherMembers) {
  const auto read = ReadProfiles(
      L"[null,{},{\"name\":\"\"},{\"name\":1},\"text\",[{\"name\":\"inner\"}],{\"name\":\"kept\"},"
      L"{\"name\":\"kept too\"}]");
  ASSERT_EQ(read.size(), 2u);
  EXPECT_EQ(read[0].name, L"kept");
  EXPECT_EQ(read[1].name, L"kept too");
}

TEST(ReadSiteProfiles, FindsNoneWithoutAnArray) {
  for (const wchar_t* members : {L"null", L"{}", L"\"\"", L"1"}) {
    EXPECT_TRUE(ReadProfiles(members).empty()) << members;
  }
  EXPECT_TRUE(ReadSiteProfiles(ReadJsonDocument(L"{}")).empty());
  EXPECT_TRUE(ReadSiteProfiles(ReadJsonDocument(L"[]")).empty());
}

}  // namespace
}  // namespace settings
