#include "webview/web_host.h"

#include <gtest/gtest.h>

namespace webview {
namespace {

TEST(PageFileUrl, IsTheFileBesideTheProgram) {
  std::wstring asked;
  const auto exists = [&asked](const std::wstring& path) {
    asked = path;
    return true;
  };
  EXPECT_EQ(PageFileUrl(L"D:\\Tools\\维马林\\Velmarine.Client.exe", exists),
            L"file:///D:/Tools/维马林/app.html");
  EXPECT_EQ(asked, L"D:\\Tools\\维马林\\app.html");
}

TEST(PageFileUrl, OtherwisePointsIntoTheSourceTreeUnchecked) {
  int asked = 0;
  const auto exists = [&asked](const std::wstring&) {
    ++asked;
    return false;
  };
  EXPECT_EQ(PageFileUrl(L"C:\\a\\b\\c\\d.exe", exists),
            L"file:///C:/a/b/c/../../../src/VelmarineNative/webui/app.html");
  EXPECT_EQ(asked, 1);
}

}  // namespace
}  // namespace webview
