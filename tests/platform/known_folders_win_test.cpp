#include "platform/path.h"

#include <gtest/gtest.h>

#include "platform/windows_sdk.h"

namespace platform {
namespace {

bool IsFolder(const std::wstring& path) {
  const DWORD attributes = ::GetFileAttributesW(path.c_str());
  return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
}

TEST(KnownFolders, AreFoldersOfTheUser) {
  EXPECT_TRUE(IsFolder(RoamingAppDataFolder()));
  EXPECT_TRUE(IsFolder(LocalAppDataFolder()));
  EXPECT_TRUE(IsFolder(TemporaryFolder()));
  EXPECT_TRUE(IsFolder(DesktopFolder()));
  EXPECT_NE(RoamingAppDataFolder(), LocalAppDataFolder());
  EXPECT_FALSE(RoamingAppDataFolder().ends_with(L'\\'));
  EXPECT_FALSE(LocalAppDataFolder().ends_with(L'\\'));
  EXPECT_TRUE(TemporaryFolder().ends_with(L'\\'));
}

TEST(KnownFolders, AreFoldersOfTheComputer) {
  EXPECT_TRUE(IsFolder(ProgramFilesFolder()));
  EXPECT_TRUE(IsFolder(ProgramFilesX86Folder()));
  EXPECT_TRUE(ProgramFilesFolder().ends_with(L"Program Files")) << "of a 64-bit program";
  EXPECT_TRUE(ProgramFilesX86Folder().ends_with(L"Program Files (x86)"));
  EXPECT_TRUE(IsFolder(JoinPath(WindowsFolder(), L"system32")));
}

TEST(KnownFolders, NameTheRunningProgram) {
  EXPECT_TRUE(ProgramPath().ends_with(L"platform_test.exe"));
  EXPECT_TRUE(IsFolder(ProgramFolder()));
  EXPECT_EQ(JoinPath(ProgramFolder(), L"platform_test.exe"), ProgramPath());
}

}  // namespace
}  // namespace platform
