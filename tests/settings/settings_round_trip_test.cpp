#include <gtest/gtest.h>

#include <random>
#include <string>
#include <string_view>

#include "platform/files.h"
#include "platform/scratch_folder.h"
#include "settings/server_address.h"
#include "settings/settings_file.h"
#include "settings/site_profiles.h"
#include "text/strings.h"

// Any settings, saved, loaded and saved again, yield the same file byte for byte.
namespace settings {
namespace {

class RandomSettings {
 public:
  explicit RandomSettings(std::uint32_t seed) : random_(seed) {}

  Settings Next() {
    Settings made;
    for (std::wstring Settings::*field :
         {&Settings::deviceNumber, &Settings::deviceSecret, &Settings::deviceName,
          &Settings::networkInterfaceName, &Settings::sharedNetworksText, &Settings::targetNetwork,
          &Settings::rustDeskPath, &Settings::rustDeskAccessPassword, &Settings::rustDeskId,
          &Settings::connectionId, &Settings::assignedAddress, &Settings::routesText,
          &Settings::accessRoutesText, &Settings::routeMappingsText, &Settings::testIp,
          &Settings::latencyText, &Settings::heartbeatMessage}) {
      made.*field = Text();
    }
    for (bool Settings::*field : {&Settings::rustDeskServiceRunning, &Settings::heartbeatAccepted,
                                  &Settings::autoStartEnabled, &Settings::discoveryModeEnabled}) {
      made.*field = Pick(2) == 0;
    }
    // Loading replaces empty values of these three and normalises the address.
    made.profileName = L"p" + Text();
    made.engineerId = L"e" + Text();
    made.serverUrl = L"https://" + Text() + L"x";
    for (auto i = Pick(4); i > 0; --i) made.siteProfiles.push_back(Profile());
    return made;
  }

  // Up to 12 units of any value, often special ones; includes pairs and lone surrogates.
  std::wstring Text() {
    using std::literals::operator""sv;  // counts the zero unit
    constexpr std::wstring_view kSpecial =
        L"\0\x0001\b\t\n\f\r\x001F\"\\/{}[]:, \x007F\x0085\xFEFF"sv;
    std::wstring text;
    for (auto i = Pick(13); i > 0; --i) {
      switch (Pick(4)) {
        case 0:
          text.push_back(kSpecial[Pick(kSpecial.size())]);
          break;
        case 1:
          text.push_back(static_cast<wchar_t>(0xD800 + Pick(0x400)));
          text.push_back(static_cast<wchar_t>(0xDC00 + Pick(0x400)));
          break;
        default:
          text.push_back(static_cast<wchar_t>(Pick(0x10000)));
      }
    }
    return text;
  }

  SiteProfile Profile() {
    SiteProfile made{L"n" + Text(), Text(), Text(), Text(), Text(), {}};
    for (auto i = Pick(4); i > 0; --i) made.sharedNetworks.push_back(Text());
    return made;
  }

 private:
  std::size_t Pick(std::size_t count) { return random_() % count; }

  std::mt19937 random_;
};

// Saves `made`, loads it into `loaded` and saves that; both files must be equal.
void ExpectSameFileAgain(const platform::ScratchFolder& scratch, const Settings& made,
                         Settings& loaded) {
  const std::wstring first = scratch.Path(L"first.json");
  const std::wstring second = scratch.Path(L"second.json");
  const auto fileAt = [](const std::wstring& path) {
    return SettingsFile(path, platform::RealFiles(), [] { return std::wstring(); });
  };
  ASSERT_EQ(fileAt(first).Save(made).failure, L"");
  ASSERT_EQ(fileAt(first).Load(loaded), L"");
  ASSERT_EQ(fileAt(second).Save(loaded).failure, L"");
  const auto bytes = platform::ReadFileBytes(first);
  ASSERT_TRUE(bytes.has_value());
  ASSERT_GT(bytes->size(), 600u);
  // EXPECT_EQ would print a megabyte.
  ASSERT_TRUE(bytes == platform::ReadFileBytes(second));
}

TEST(SettingsRoundTrip, SavesWhatItLoadedByteForByte) {
  const platform::ScratchFolder scratch;
  RandomSettings random(20260315);
  for (int round = 0; round < 300; ++round) {
    SCOPED_TRACE(round);
    Settings loaded;
    ASSERT_NO_FATAL_FAILURE(ExpectSameFileAgain(scratch, random.Next(), loaded));
  }
}

TEST(SettingsRoundTrip, SavesAThousandProfilesByteForByte) {
  const platform::ScratchFolder scratch;
  RandomSettings random(20260316);
  for (int round = 0; round < 3; ++round) {
    SCOPED_TRACE(round);
    Settings made = random.Next();
    made.siteProfiles.clear();
    for (int i = 0; i < 1000; ++i) made.siteProfiles.push_back(random.Profile());
    Settings loaded;
    ASSERT_NO_FATAL_FAILURE(ExpectSameFileAgain(scratch, made, loaded));
    ASSERT_EQ(loaded.siteProfiles.size(), 1000u);
  }
}

// The same must hold after the engineer has stored and loaded a profile.
TEST(SettingsRoundTrip, SavesStoredAndLoadedProfilesByteForByte) {
  const platform::ScratchFolder scratch;
  RandomSettings random(20260317);
  for (int round = 0; round < 300; ++round) {
    SCOPED_TRACE(round);
    Settings made = random.Next();
    made.deviceSecret += L"s";
    ASSERT_TRUE(SaveSiteProfile(made).changed);
    Settings loaded;
    ASSERT_NO_FATAL_FAILURE(ExpectSameFileAgain(scratch, made, loaded));
    ASSERT_FALSE(loaded.siteProfiles.empty());
    const std::wstring name = loaded.siteProfiles.front().name;
    const bool named = LoadSiteProfile(loaded, name, ProfileChooser::Page).changed;
    // A name that ends in white space, from a file edited by hand, is never found.
    ASSERT_EQ(named, text::Trim(name) == name);
    Settings again;
    ASSERT_NO_FATAL_FAILURE(ExpectSameFileAgain(scratch, loaded, again));
  }
}

// UTF-8 cannot encode lone surrogates, so the first save writes U+FFFD instead.
TEST(SettingsRoundTrip, SavesLoneSurrogatesAsReplacementCharacters) {
  const platform::ScratchFolder scratch;
  Settings made;
  made.engineerId = L"ENG-12345678";
  made.profileName = L"a\xD800";
  made.siteProfiles = {{L"\xDC00\xD800", L"", L"", L"\xD83D\xDE00", L"ALL", {L"\xDFFFz"}}};
  Settings loaded;
  ASSERT_NO_FATAL_FAILURE(ExpectSameFileAgain(scratch, made, loaded));
  EXPECT_EQ(loaded.profileName, L"a\xFFFD");
  ASSERT_EQ(loaded.siteProfiles.size(), 1u);
  EXPECT_EQ(loaded.siteProfiles[0].name, L"\xFFFD\xFFFD");
  EXPECT_EQ(loaded.siteProfiles[0].deviceSecret, L"\xD83D\xDE00");
  EXPECT_EQ(loaded.siteProfiles[0].sharedNetworks, std::vector<std::wstring>{L"\xFFFDz"});
}

// Normalising changes an invalid address, but only the first time.
TEST(SettingsRoundTrip, NormalisesAnInvalidAddressOnlyOnce) {
  for (const wchar_t* typed : {L"/", L"://", L"a:///", L"host /", L"\\\\"}) {
    Settings made;
    made.engineerId = L"ENG-12345678";
    made.serverUrl = typed;
    Settings read;
    ReadSettingsText(WriteSettingsText(made), read);
    const std::wstring second = WriteSettingsText(read);
    Settings again;
    ReadSettingsText(second, again);
    EXPECT_EQ(WriteSettingsText(again), second) << typed;
  }
}

// Without UTF-8, even lone surrogates survive.
TEST(SettingsRoundTrip, ReadsTextsBackUnchanged) {
  RandomSettings random(7);
  for (int round = 0; round < 300; ++round) {
    const Settings made = random.Next();
    Settings read;
    ReadSettingsText(WriteSettingsText(made), read);
    ASSERT_EQ(read.deviceSecret, made.deviceSecret);
    ASSERT_EQ(read.routesText, made.routesText);
    ASSERT_EQ(read.siteProfiles.size(), made.siteProfiles.size());
    ASSERT_EQ(WriteSettingsText(read), WriteSettingsText(made));
  }
}

}  // namespace
}  // namespace settings
