#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "platform/handles_win.h"
#include "platform/modules_win.h"
#include "platform/path.h"

namespace shell {
namespace {

// The released program, which the build puts one folder above its tests.
class ProgramFile : public testing::Test {
 protected:
  ProgramFile()
      : path_(platform::ProgramFolder() + L"\\..\\Velmarine.Client.exe"),
        module_(::LoadLibraryExW(path_.c_str(), nullptr, LOAD_LIBRARY_AS_DATAFILE)) {}

  void SetUp() override { ASSERT_TRUE(static_cast<bool>(module_)); }

  [[nodiscard]] std::string_view Data(WORD id) const {
    const auto bytes = platform::FindResourceBytes(module_.Get(), id);
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
  }
  [[nodiscard]] std::string_view Manifest() const {
    const HRSRC found =
        ::FindResourceW(module_.Get(), MAKEINTRESOURCEW(1), MAKEINTRESOURCEW(24));  // RT_MANIFEST
    if (found == nullptr) return {};
    const HGLOBAL loaded = ::LoadResource(module_.Get(), found);
    return {static_cast<const char*>(::LockResource(loaded)),
            ::SizeofResource(module_.Get(), found)};
  }

  const std::wstring path_;
  const platform::Module module_;
};

TEST_F(ProgramFile, CarriesTheDriverThePageAndTheIcon) {
  EXPECT_FALSE(Data(201).empty());
  EXPECT_FALSE(Data(202).empty());
  EXPECT_NE(Data(210).find("chrome.webview"), std::string_view::npos);
  EXPECT_NE(::FindResourceW(module_.Get(), MAKEINTRESOURCEW(301), RT_GROUP_ICON), nullptr);
}

// NavigateToString refuses a longer text.
TEST_F(ProgramFile, CarriesAPageWithinTheBrowsersLimit) {
  EXPECT_LT(Data(210).size(), 1'500'000u);
}

TEST_F(ProgramFile, RequestsAdministratorRightsAndCurrentControls) {
  for (const std::string_view wanted :
       {"level=\"requireAdministrator\"",
        "name=\"Microsoft.Windows.Common-Controls\" version=\"6.0.", "PerMonitorV2"}) {
    EXPECT_NE(Manifest().find(wanted), std::string_view::npos) << wanted;
  }
}

TEST_F(ProgramFile, StatesItsNameAndVersion) {
  DWORD ignored = 0;
  std::vector<std::byte> block(::GetFileVersionInfoSizeW(path_.c_str(), &ignored));
  ASSERT_NE(::GetFileVersionInfoW(path_.c_str(), 0, static_cast<DWORD>(block.size()), block.data()),
            FALSE);
  const std::pair<const wchar_t*, const wchar_t*> rows[] = {
      {L"FileVersion", VELMARINE_VERSION},
      {L"ProductVersion", VELMARINE_VERSION},
      {L"ProductName", L"Velmarine.Client"},
      {L"OriginalFilename", L"Velmarine.Client.exe"},
  };
  for (const auto& [name, wanted] : rows) {
    void* value = nullptr;
    UINT lengthUnits = 0;
    const std::wstring key = L"\\StringFileInfo\\080404B0\\" + std::wstring(name);
    ASSERT_NE(::VerQueryValueW(block.data(), key.c_str(), &value, &lengthUnits), FALSE);
    EXPECT_STREQ(static_cast<const wchar_t*>(value), wanted);
  }
  void* fixed = nullptr;
  UINT sizeBytes = 0;
  ASSERT_NE(::VerQueryValueW(block.data(), L"\\", &fixed, &sizeBytes), FALSE);
  const auto* numbers = static_cast<const VS_FIXEDFILEINFO*>(fixed);
  int wanted[4] = {};
  std::swscanf(VELMARINE_VERSION, L"%d.%d.%d.%d", &wanted[0], &wanted[1], &wanted[2], &wanted[3]);
  EXPECT_EQ(numbers->dwFileVersionMS, MAKELONG(wanted[1], wanted[0]));
  EXPECT_EQ(numbers->dwFileVersionLS, MAKELONG(wanted[3], wanted[2]));
  EXPECT_EQ(numbers->dwProductVersionMS, numbers->dwFileVersionMS);
  EXPECT_EQ(numbers->dwProductVersionLS, numbers->dwFileVersionLS);
  std::string manifestVersion = "name=\"Velmarine.Client\" version=\"";
  for (const int number : wanted) manifestVersion += std::to_string(number) + ".";
  manifestVersion.back() = '"';
  EXPECT_NE(Manifest().find(manifestVersion), std::string_view::npos) << manifestVersion;
}

}  // namespace
}  // namespace shell
