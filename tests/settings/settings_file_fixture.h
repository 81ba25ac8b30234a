#pragma once

#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "settings/memory_disk.h"
#include "settings/server_address.h"

namespace settings {

using Paths = std::vector<std::wstring>;

inline constexpr wchar_t kDefaults[] =
    L"警告：设置文件无法读取，已使用默认设置；原文件将在首次保存前另行保留。";
inline constexpr wchar_t kRestored[] =
    L"警告：设置文件无法读取，已恢复上次保存的设置；原文件将在首次保存前另行保留。";

inline bool IsNewEngineerId(const std::wstring& id) {
  return id.size() == 12 && id.starts_with(L"ENG-") && id[4] != L'0' &&
         id.find_first_not_of(L"0123456789", 4) == std::wstring::npos;
}

// Expects default values in all fields except the engineer id.
inline void ExpectDefaults(Settings settings) {
  settings.engineerId.clear();
  EXPECT_EQ(WriteSettingsText(settings), WriteSettingsText(Settings()));
  EXPECT_EQ(settings.serverUrl, DefaultServerUrl());
}

// Settings as they look after some use.
inline Settings Worked() {
  Settings settings;
  settings.engineerId = L"ENG-12345678";
  settings.deviceName = L"\x6CF5\x7AD9";
  settings.profileName = L"\x6CF5\x7AD9";
  for (const wchar_t* name : {L"A", L"B"}) {
    settings.siteProfiles.push_back(
        {name, L"http://h:1", L"D", std::wstring(L"key ") + name, L"ALL", {L"10.1.0.0/16"}});
  }
  return settings;
}

// `text` in UTF-16 with a byte order mark, as editors write it.
inline std::string LittleEndian(std::wstring_view text) {
  std::string bytes = "\xFF\xFE";
  for (const wchar_t unit : text) {
    bytes.append({static_cast<char>(unit & 0xFF), static_cast<char>(unit >> 8 & 0xFF)});
  }
  return bytes;
}
inline std::string BigEndian(std::wstring_view text) {
  std::string bytes = LittleEndian(text);
  for (std::size_t i = 0; i < bytes.size(); i += 2) std::swap(bytes[i], bytes[i + 1]);
  return bytes;
}

class SettingsFileTest : public testing::Test {
 protected:
  Settings LoadBytes(const std::string& bytes) {
    disk_.files[kPath] = bytes;
    return disk_.Load();
  }
  SettingsFile::Saved Save(const Settings& settings) {
    disk_.written.clear();
    return disk_.File().Save(settings);
  }

  MemoryDisk disk_;
};

}  // namespace settings
