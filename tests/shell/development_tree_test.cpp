#include "shell/development_tree.h"

#include <gtest/gtest.h>

namespace shell {
namespace {

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
