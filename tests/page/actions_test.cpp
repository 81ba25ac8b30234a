#include "page/messages.h"

#include <gtest/gtest.h>

#include "page/messages.h"

namespace page {
namespace {

using settings::Settings;

struct MalformedRow {
  const char* name;
  std::wstring json;
};

TEST(ParsePageMessage, IgnoresInvalidMessages) {
  const MalformedRow rows[] = {
      {"empty", L""},
      {"no JSON", L"{\"action\":"},
      {"open string", L"{\"action\":\"connect"},
      {"trailing comma", L"{\"action\":\"connect\",}"},
      {"no object", L"[\"connect\"]"},
      {"a string", L"\"connect\""},
      {"a word", L"connect"},
      {"no action", L"{\"f\":{}}"},
      {"action in another case", L"{\"Action\":\"connect\"}"},
      {"action of another kind", L"{\"action\":1,\"f\":{}}"},
      {"null action", L"{\"action\":null}"},
      {"a million brackets", std::wstring(1'000'000, L'[')},
      {"a million objects", L"{\"action\":\"x\",\"f\":" + std::wstring(1'000'000, L'[')},
  };
  for (const MalformedRow& row : rows) {
    EXPECT_FALSE(ParsePageMessage(row.json)) << row.name;
  }
}

TEST(ParsePageMessage, ReturnsTheActionAsSent) {
  for (const wchar_t* action : {L"ready", L"connect", L"Connect", L"", L" stop"}) {
    const auto message = ParsePageMessage(L"{\"action\":\"" + std::wstring(action) + L"\"}");
    ASSERT_TRUE(message);
    EXPECT_EQ(message->action, action);
    EXPECT_FALSE(message->form);
  }
}

TEST(ParsePageMessage, AcceptsTheFormOnlyIfItIsAnObject) {
  for (const wchar_t* form : {L"null", L"1", L"\"x\"", L"[]", L"true"}) {
    const auto message =
        ParsePageMessage(L"{\"action\":\"test\",\"f\":" + std::wstring(form) + L"}");
    ASSERT_TRUE(message);
    EXPECT_FALSE(message->form) << testing::PrintToString(form);
  }
  const auto message =
      ParsePageMessage(L" {\"f\":{\"secret\":\"s\"},\"action\":\"test\"} trailing");
  ASSERT_TRUE(message);
  ASSERT_TRUE(message->form);
  EXPECT_EQ(settings::JsonStringOrEmpty(*message->form, L"secret"), L"s");
}

TEST(ParsePageMessage, UsesTheLastOfTwoActions) {
  const auto message = ParsePageMessage(L"{\"action\":\"stop\",\"action\":\"connect\"}");
  ASSERT_TRUE(message);
  EXPECT_EQ(message->action, L"connect");
}

TEST(ParsePageMessage, SurvivesEveryTruncation) {
  const std::wstring whole =
      L"{\"action\":\"connect\",\"f\":{\"secret\":\"\\u0041\",\"discovery\":true}}";
  ASSERT_TRUE(ParsePageMessage(whole));
  for (std::size_t length = 0; length < whole.size(); ++length) {
    EXPECT_FALSE(ParsePageMessage(whole.substr(0, length))) << length;
  }
}

Settings FilledSettings() {
  Settings settings;
  settings.deviceSecret = L"old secret";
  settings.targetNetwork = L"old target";
  settings.testIp = L"old address";
  settings.profileName = L"old name";
  settings.discoveryModeEnabled = true;
  return settings;
}

struct FieldsRow {
  const char* name;
  const wchar_t* form;
  const wchar_t* secret;
  const wchar_t* target;
  const wchar_t* testIp;
  const wchar_t* profileName;
  bool discovery;
};

TEST(TakeFields, TakesPresentFieldsAndClearsTheRest) {
  const FieldsRow rows[] = {
      {"all",
       L"{\"secret\":\"s\",\"target\":\"10.0.0.0/"
       L"8\",\"testip\":\"1.2.3.4\",\"profileName\":\"n\",\"discovery\":true}",
       L"s", L"10.0.0.0/8", L"1.2.3.4", L"n", true},
      {"empty form", L"{}", L"", L"ALL", L"", L"", false},
      {"no form yet", L"null", L"", L"ALL", L"", L"", false},
      {"wrong kinds",
       L"{\"secret\":1,\"target\":[],\"testip\":true,\"profileName\":{},\"discovery\":\"true\"}",
       L"", L"ALL", L"", L"", false},
      {"trimmed",
       L"{\"secret\":\" \\t s x \\r\\n\",\"target\":\"\\u3000a \",\"testip\":\" 1 "
       L"\",\"profileName\":\"\\u00a0n\"}",
       L"s x", L"a", L"1", L"n", false},
      {"automatic target", L"{\"target\":\"自动\"}", L"", L"ALL", L"", L"", false},
      {"automatic target in blanks", L"{\"target\":\" 自动 \"}", L"", L"ALL", L"", L"", false},
      {"blank target", L"{\"target\":\"  \"}", L"", L"ALL", L"", L"", false},
      {"switch as number", L"{\"discovery\":1}", L"", L"ALL", L"", L"", false},
      {"switch off", L"{\"discovery\":false}", L"", L"ALL", L"", L"", false},
      {"the other role's fields",
       L"{\"devname\":\"d\",\"nicSel\":\"x\",\"manual\":\"m\",\"autostart\":true}", L"", L"ALL",
       L"", L"", false},
  };
  for (const FieldsRow& row : rows) {
    Settings settings = FilledSettings();
    TakeFields(settings::ReadJsonDocument(row.form), settings);
    EXPECT_EQ(settings.deviceSecret, row.secret) << row.name;
    EXPECT_EQ(settings.targetNetwork, row.target) << row.name;
    EXPECT_EQ(settings.testIp, row.testIp) << row.name;
    EXPECT_EQ(settings.profileName, row.profileName) << row.name;
    EXPECT_EQ(settings.discoveryModeEnabled, row.discovery) << row.name;
    EXPECT_FALSE(settings.autoStartEnabled) << row.name;
    EXPECT_EQ(settings.deviceName, L"") << row.name;
  }
}

// Every setting must survive the round trip in its own field.
TEST(FormOf, RoundTripsThroughTakeFields) {
  for (const wchar_t* target : {L"ALL", L"10.0.0.0/8", L"10.0.0.0/8, 10.1.0.0/16"}) {
    for (const bool discovery : {false, true}) {
      Settings settings = FilledSettings();
      settings.targetNetwork = target;
      settings.discoveryModeEnabled = discovery;
      settings.deviceNumber = L"number";
      settings.deviceName = L"name";
      Settings taken;
      taken.deviceNumber = settings.deviceNumber;
      taken.deviceName = settings.deviceName;
      TakeFields(FormOf(settings), taken);
      EXPECT_EQ(settings::WriteSettingsText(taken), settings::WriteSettingsText(settings));
    }
  }
}

// 载入 pressed again right after loading a profile must load the same one.
TEST(FormOf, ShowsTheTargetAsThePageDoesAndSelectsTheProfile) {
  Settings settings = FilledSettings();
  settings.deviceName = L"not chosen";
  for (const wchar_t* target : {L"", L"ALL"}) {
    settings.targetNetwork = target;
    const settings::JsonValue form = FormOf(settings);
    EXPECT_EQ(settings::JsonStringOrEmpty(form, L"target"), L"自动");
    EXPECT_EQ(settings::JsonStringOrEmpty(form, L"profileName"), L"old name");
    EXPECT_EQ(settings::JsonStringOrEmpty(form, L"profileSel"), L"old name");
  }
}

TEST(TakeFields, AutomaticTargetReturnsInTheNextApplyMessage) {
  Settings settings;
  TakeFields(settings::ReadJsonDocument(L"{\"target\":\"自动\"}"), settings);
  EXPECT_EQ(settings.targetNetwork, L"ALL");
  EXPECT_NE(BuildApplyMessage(settings).find(L"\"target\":\"自动\""), std::wstring::npos);
}

}  // namespace
}  // namespace page
