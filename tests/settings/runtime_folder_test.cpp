#include "settings/settings_file.h"

#include <gtest/gtest.h>

namespace settings {
namespace {

TEST(RuntimeFolderBelow, IsBelowTheLocalApplicationData) {
  EXPECT_EQ(RuntimeFolderBelow(L"C:\\Users\\u\\AppData\\Local", L"C:\\Temp\\"),
            L"C:\\Users\\u\\AppData\\Local\\Velmarine\\Runtime");
  EXPECT_EQ(RuntimeFolderBelow(L"C:\\", L"C:\\Temp\\"), L"C:\\Velmarine\\Runtime");
  EXPECT_EQ(RuntimeFolderBelow(L"C:/", L"C:\\Temp\\"), L"C:/Velmarine\\Runtime");
}

TEST(RuntimeFolderBelow, FallsBackToTheTemporaryFolder) {
  EXPECT_EQ(RuntimeFolderBelow(L"", L"C:\\Temp\\"), L"C:\\Temp\\Velmarine\\Runtime");
}

}  // namespace
}  // namespace settings
