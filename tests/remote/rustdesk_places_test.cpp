#include "remote/rustdesk_files.h"

#include <gtest/gtest.h>

namespace remote {
namespace {

using Paths = std::vector<std::wstring>;

const RustDeskFolders kFolders{L"C:\\Program Files",
                               L"C:\\Program Files (x86)",
                               L"C:\\Users\\li\\AppData\\Local",
                               L"C:\\Users\\li\\AppData\\Roaming",
                               L"E:\\tools",
                               L"C:\\Users\\li\\AppData\\Local\\Velmarine\\Runtime",
                               L"C:\\Windows"};

TEST(RustDeskCandidates, AreTheNinePlacesInOrder) {
  EXPECT_EQ(RustDeskCandidates(kFolders),
            (Paths{L"D:\\Program Files\\RustDesk\\rustdesk.exe",
                   L"D:\\Program Files\\RustDesk\\RustDesk.exe",
                   L"C:\\Program Files\\RustDesk\\rustdesk.exe",
                   L"C:\\Program Files\\RustDesk\\RustDesk.exe",
                   L"C:\\Program Files (x86)\\RustDesk\\rustdesk.exe",
                   L"C:\\Program Files (x86)\\RustDesk\\RustDesk.exe",
                   L"C:\\Users\\li\\AppData\\Local\\Programs\\RustDesk\\rustdesk.exe",
                   L"C:\\Users\\li\\AppData\\Local\\Programs\\RustDesk\\RustDesk.exe",
                   L"E:\\tools\\Runtime\\rustdesk.exe"}));
}

TEST(RustDeskCandidates, AreRelativeWhereAFolderIsUnknown) {
  const Paths candidates = RustDeskCandidates({});
  ASSERT_EQ(candidates.size(), 9U);
  EXPECT_EQ(candidates[2], L"RustDesk\\rustdesk.exe");
  EXPECT_EQ(candidates[6], L"Programs\\RustDesk\\rustdesk.exe");
  EXPECT_EQ(candidates[8], L"Runtime\\rustdesk.exe");
}

TEST(RuntimeFolderTest, IsRecognisedInAnyLetterCase) {
  EXPECT_TRUE(LiesInRuntimeFolder(
      L"c:\\users\\LI\\appdata\\local\\velmarine\\runtime\\rustdesk.exe", kFolders));
  EXPECT_TRUE(LiesInRuntimeFolder(L"\\\\?\\" + kFolders.runtime + L"\\older\\rd.exe", kFolders));
  EXPECT_FALSE(LiesInRuntimeFolder(L"C:\\Users\\li\\AppData\\Local\\rustdesk.exe", kFolders));
  EXPECT_FALSE(LiesInRuntimeFolder(L"C:\\rustdesk.exe", {}));
}

TEST(UsersFolder, LiesOnTheDriveOfWindows) {
  const struct {
    const wchar_t* windows;
    const wchar_t* expected;
  } rows[] = {{L"C:\\Windows", L"C:\\Users"},
              {L"E:\\Win", L"E:\\Users"},
              {L"", L"C:\\Users"},
              {L"\\\\server\\win", L"C:\\Users"},
              {L"D:", L"C:\\Users"},
              {L"D:\\", L"D:\\Users"},
              {L"E:/Win", L"E:/Users"}};
  for (const auto& row : rows) {
    RustDeskFolders folders;
    folders.windows = row.windows;
    EXPECT_EQ(UsersFolder(folders), row.expected) << row.windows;
  }
}

TEST(RustDeskConfigFiles, ContainThoseOfEveryUserOnce) {
  EXPECT_EQ(
      RustDeskConfigFiles(kFolders, {L"Public", L"LI", L"wang"}),
      (Paths{L"C:\\Users\\li\\AppData\\Roaming\\RustDesk\\config\\RustDesk2.toml",
             L"C:\\Users\\Public\\AppData\\Roaming\\RustDesk\\config\\RustDesk2.toml",
             L"C:\\Users\\wang\\AppData\\Roaming\\RustDesk\\config\\RustDesk2.toml",
             L"C:\\Windows\\ServiceProfiles\\LocalService\\AppData\\Roaming\\RustDesk\\config\\"
             L"RustDesk2.toml",
             L"C:\\Windows\\ServiceProfiles\\LocalSystem\\AppData\\Roaming\\RustDesk\\config\\"
             L"RustDesk2.toml"}));
}

TEST(RustDeskConfigFiles, SkipAnUnknownFolderAndGuessWindows) {
  EXPECT_EQ(
      RustDeskConfigFiles({}, {}),
      (Paths{L"C:\\Windows\\ServiceProfiles\\LocalService\\AppData\\Roaming\\RustDesk\\config\\"
             L"RustDesk2.toml",
             L"C:\\Windows\\ServiceProfiles\\LocalSystem\\AppData\\Roaming\\RustDesk\\config\\"
             L"RustDesk2.toml"}));
}

// The parts that a user could replace by links; the folders above belong to administrators.
TEST(ConfigPartsOfUsers, BeginBelowTheAccountOrTheOwnRoamingFolder) {
  const struct {
    const wchar_t* path;
    int parts;
  } rows[] = {
      {L"c:\\USERS\\li\\AppData\\Roaming\\RustDesk\\config\\RustDesk2.toml", 3},
      {L"C:\\Users\\li\\AppData\\Roaming\\RustDesk\\config", 2},
      {L"C:\\Users\\wang\\AppData\\Roaming\\RustDesk\\config\\RustDesk2.toml", 5},
      {L"C:\\Users\\wang\\AppData\\Roaming\\RustDesk\\config", 4},
      {L"C:\\Windows\\ServiceProfiles\\LocalService\\AppData\\Roaming\\RustDesk\\config", 4},
  };
  for (const auto& row : rows) EXPECT_EQ(ConfigPartsOfUsers(row.path, kFolders), row.parts);
  EXPECT_EQ(ConfigPartsOfUsers(L"RustDesk\\config", {}), 4) << "no roaming folder, nothing is own";
}

}  // namespace
}  // namespace remote
