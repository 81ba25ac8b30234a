// Times the settings file and the page's messages with many site profiles: the window's thread
// makes them, and a frame lasts 16 ms. Each anchor is the unavoidable minimum: writing or copying
// the finished text, or reading the bytes and building a record of the same texts.

#include <benchmark/benchmark.h>
#include <stdlib.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "page/messages.h"
#include "platform/files.h"
#include "settings/settings_file.h"
#include "text/utf8.h"

namespace {

using settings::Settings;

Settings SettingsWith(const benchmark::State& state) {
  Settings made;
  made.engineerId = L"ENG-12345678";
  made.profileName = L"第七泵站";
  made.routesText = L"192.168.10.0/24\r\n10.1.0.0/16";
  for (auto i = state.range(0); i > 0; --i) {
    const std::wstring number = std::to_wstring(i);
    made.siteProfiles.push_back({L"第 " + number + L" 号泵站 \"north\"",
                                 L"http://service.example:31080",
                                 L"D-" + number,
                                 L"0123456789abcdef0123456789abcdef" + number,
                                 L"192.168.10.0/24",
                                 {L"192.168.10.0/24", L"10.1.0.0/16", L"172.16.4.0/22"}});
  }
  return made;
}

// A file that holds these settings, removed by the destructor.
struct File {
  explicit File(const benchmark::State& state) : settings(SettingsWith(state)) {
    if (::mkdtemp(folder.data()) == nullptr) std::abort();
    name = folder + "/settings.json";
    path = text::FromUtf8(name);
    static_cast<void>(Open().Save(settings));
    bytes = *platform::ReadFileBytes(path);
  }
  ~File() { std::filesystem::remove_all(folder); }

  [[nodiscard]] settings::SettingsFile Open() const {
    return settings::SettingsFile(path, platform::RealFiles(), [] { return std::wstring(); });
  }
  File(const File&) = delete;
  File& operator=(const File&) = delete;

  const Settings settings;
  std::string folder = std::filesystem::temp_directory_path() / "velmarine-XXXXXX";
  std::string name;
  std::wstring path;  // the same
  std::string bytes;
};

void LoadSettings(benchmark::State& state) {
  const File file(state);
  for (auto _ : state) {
    Settings loaded;
    static_cast<void>(file.Open().Load(loaded));
    benchmark::DoNotOptimize(loaded);
  }
}

void LoadSettings_Anchor(benchmark::State& state) {
  const File file(state);
  for (auto _ : state) {
    std::ifstream stream(file.name, std::ios::binary);
    std::string bytes(file.bytes.size(), '\0');
    stream.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    Settings copy(file.settings);
    benchmark::DoNotOptimize(bytes.data());
    benchmark::DoNotOptimize(copy);
  }
}

void SaveSettings(benchmark::State& state) {
  const File file(state);
  Settings changed = file.settings;
  for (auto _ : state) {
    changed.discoveryModeEnabled = !changed.discoveryModeEnabled;  // or nothing would be written
    static_cast<void>(file.Open().Save(changed));
  }
}

// The file and its second copy; both must reach the disk.
void SaveSettings_Anchor(benchmark::State& state) {
  const File file(state);
  for (auto _ : state) {
    platform::WriteFileDurably(file.path, file.bytes);
    platform::WriteFileDurably(file.path + L".last", file.bytes);
  }
}

void CopyText(benchmark::State& state, const std::wstring& text) {
  for (auto _ : state) {
    std::wstring copy(text);
    benchmark::DoNotOptimize(copy.data());
  }
}

void ReadSettingsText(benchmark::State& state) {
  const std::wstring text = settings::WriteSettingsText(SettingsWith(state));
  for (auto _ : state) {
    Settings read;
    settings::ReadSettingsText(text, read);
    benchmark::DoNotOptimize(read);
  }
}

void ReadSettingsText_Anchor(benchmark::State& state) {
  const Settings made = SettingsWith(state);
  for (auto _ : state) {
    Settings copy(made);
    benchmark::DoNotOptimize(copy);
  }
}

void WriteSettingsText(benchmark::State& state) {
  const Settings made = SettingsWith(state);
  for (auto _ : state) {
    const std::wstring text = settings::WriteSettingsText(made);
    benchmark::DoNotOptimize(text.data());
  }
}

void WriteSettingsText_Anchor(benchmark::State& state) {
  CopyText(state, settings::WriteSettingsText(SettingsWith(state)));
}

std::wstring Messages(const Settings& settings) {
  return page::BuildApplyMessage(settings) +
         page::BuildStateMessage(settings, page::TunnelStatus(), L"就绪。");
}

void StateAndApply(benchmark::State& state) {
  const Settings made = SettingsWith(state);
  for (auto _ : state) {
    const std::wstring messages = Messages(made);
    benchmark::DoNotOptimize(messages.data());
  }
}

void StateAndApply_Anchor(benchmark::State& state) {
  CopyText(state, Messages(SettingsWith(state)));
}

#define PROFILES Arg(1)->Arg(1000)->Unit(benchmark::kMicrosecond)
BENCHMARK(LoadSettings)->PROFILES;
BENCHMARK(LoadSettings_Anchor)->PROFILES;
BENCHMARK(SaveSettings)->PROFILES;
BENCHMARK(SaveSettings_Anchor)->PROFILES;
BENCHMARK(ReadSettingsText)->PROFILES;
BENCHMARK(ReadSettingsText_Anchor)->PROFILES;
BENCHMARK(WriteSettingsText)->PROFILES;
BENCHMARK(WriteSettingsText_Anchor)->PROFILES;
BENCHMARK(StateAndApply)->PROFILES;
BENCHMARK(StateAndApply_Anchor)->PROFILES;

}  // namespace
