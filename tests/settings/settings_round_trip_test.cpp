#include <gtest/gtest.h>

#include <random>
#include <string>
#include <string_view>

#include "platform/files.h"
#include "platform/scratch_folder.h"
#include "settings/server_address.h"
#include "settings/settings.h"

// Whatever the record holds: saved, loaded and saved again, the file is the same byte for byte.
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
    // Loading fills these in when they are empty, and makes addresses out of what is none.
    made.profileName = L"p" + Text();
    made.engineerId = L"e" + Text();
    made.serverUrl = L"https://" + Text() + L"x";
    for (auto i = Pick(4); i > 0; --i) made.siteProfiles.push_back(Profile());
    return made;
  }

  // Up to 12 units of any value, the telling ones often; pairs and lone surrogates among them.
  std::wstring Text() {
    using std::literals::operator""sv;  // counts the zero unit
    constexpr std::wstring_view kTelling =
        L"\0\x0001\b\t\n\f\r\x001F\"\\/{}[]:, \x007F\x0085\xFEFF"sv;
    std::wstring text;
    for (auto i = Pick(13); i > 0; --i) {
      switch (Pick(4)) {
        case 0:
          text.push_back(kTelling[Pick(kTelling.size())]);
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

 private:
  std::size_t Pick(std::size_t count) { return random_() % count; }

  SiteProfile Profile() {
    SiteProfile made{L"n" + Text(), Text(), Text(), Text(), Text(), {}};
    for (auto i = Pick(4); i > 0; --i) made.sharedNetworks.push_back(Text());
    return made;
  }

  std::mt19937 random_;
};

TEST(SettingsRoundTrip, SavesWhatItLoadedByteForByte) {
  const platform::ScratchFolder scratch;
  const std::wstring first = scratch.Path(L"first.json");
  const std::wstring second = scratch.Path(L"second.json");
  RandomSettings random(20260315);
  for (int round = 0; round < 300; ++round) {
    SaveSettings(first, random.Next());
    Settings loaded;
    LoadSettings(first, loaded);
    SaveSettings(second, loaded);
    const auto bytes = platform::ReadFileBytes(first);
    ASSERT_TRUE(bytes.has_value());
    ASSERT_GT(bytes->size(), 600u);
    ASSERT_EQ(bytes, platform::ReadFileBytes(second)) << round;
  }
}

// In memory nothing is lost at all, lone surrogates included.
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
