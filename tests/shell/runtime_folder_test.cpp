#include "shell/runtime_folder.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>

namespace shell {
namespace {

TEST(RuntimeFolderBelow, LiesBelowTheLocalApplicationData) {
  EXPECT_EQ(RuntimeFolderBelow(L"C:\\Users\\u\\AppData\\Local", L"C:\\Temp\\"),
            L"C:\\Users\\u\\AppData\\Local\\Velmarine\\Runtime");
  EXPECT_EQ(RuntimeFolderBelow(L"C:\\", L"C:\\Temp\\"), L"C:\\Velmarine\\Runtime");
  EXPECT_EQ(RuntimeFolderBelow(L"C:/", L"C:\\Temp\\"), L"C:/Velmarine\\Runtime");
}

TEST(RuntimeFolderBelow, FallsBackToTheTemporaryFolder) {
  EXPECT_EQ(RuntimeFolderBelow(L"", L"C:\\Temp\\"), L"C:\\Temp\\Velmarine\\Runtime");
}

TEST(DevelopmentTreeRoot, IsThePartBeforeTheSourceFolder) {
  EXPECT_EQ(DevelopmentTreeRoot(L"D:\\tree\\src\\VelmarineNative\\build\\x64\\client.exe"),
            L"D:\\tree");
  EXPECT_EQ(DevelopmentTreeRoot(L"D:\\src\\VelmarineNative\\a\\src\\VelmarineNative\\b.exe"),
            L"D:");
}

TEST(DevelopmentTreeRoot, IsNoneOutsideASourceTree) {
  for (const wchar_t* path :
       {L"", L"C:\\Program Files\\client.exe", L"D:\\tree\\src\\VelmarineNative.exe",
        L"D:\\tree\\VelmarineNative\\client.exe", L"D:\\src\\VelmarineNativeX\\client.exe",
        L"src\\VelmarineNative\\client.exe"}) {
    EXPECT_EQ(DevelopmentTreeRoot(path), std::nullopt);
  }
}

}  // namespace
}  // namespace shell
