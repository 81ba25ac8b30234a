#include "tunnel/driver/windivert.h"

#include <gtest/gtest.h>

#include "platform/system_error.h"
#include "text/utf8.h"

namespace tunnel {
namespace {

TEST(DriverError, EachCodeHasItsMeaningAndItsRemedy) {
  struct Row {
    std::uint32_t code;
    const wchar_t* meaning;
    const wchar_t* cure;
  };
  const Row rows[] = {
      {2, L"找不到驱动文件", L"杀毒软件中恢复"},
      {5, L"没有加载驱动的权限", L"以管理员身份"},
      {87, L"网段过多", L"减少网段"},
      {126, L"没有 WinDivert.dll", L"杀毒软件中恢复"},
      {225, L"被杀毒软件拦截", L"信任"},
      {577, L"数字签名", L"内存完整性"},
      {1058, L"已被停用", L"关闭该程序"},
      {1060, L"没有安装成功", L"信任本程序"},
      {1072, L"正在删除", L"重新启动电脑"},
      {1275, L"系统策略阻止", L"Windows 安全中心"},
      {1753, L"筛选引擎没有运行", L"Base Filtering Engine"},
  };
  for (const Row& row : rows) {
    const std::wstring line = DescribeDriverError(row.code);
    EXPECT_EQ(line.find(L"错误 " + std::to_wstring(row.code) + L"："), 0U) << row.code;
    EXPECT_NE(line.find(row.meaning), std::wstring::npos) << row.code;
    EXPECT_NE(line.find(row.cure), std::wstring::npos) << row.code;
    EXPECT_EQ(line.find_first_of(L"\r\n"), std::wstring::npos) << row.code;
  }
}

TEST(DriverError, AnyOtherCodeHasTheSystemsText) {
  const std::wstring line = DescribeDriverError(32);
  EXPECT_EQ(line.find(L"错误 32"), 0U);
  EXPECT_NE(line.find(platform::ErrorReason(32)), std::wstring::npos);
  EXPECT_NE(line.find(L"重新启动电脑"), std::wstring::npos);
}

TEST(DriverError, KeepsTheFailuresOwnTextOnItsFirstLine) {
  EXPECT_STREQ(DriverError("Not open.", 0).what(), "Not open.");
  const DriverError error("Not open.", 5);
  EXPECT_EQ(error.what(), "Not open.\r\n" + text::ToUtf8(DescribeDriverError(5)));
  EXPECT_EQ(error.Code(), 5U);
}

TEST(DriverError, OnlyADisabledOrHalfDeletedServiceIsALeftover) {
  for (std::uint32_t code = 0; code < 2000; ++code) {
    EXPECT_EQ(IsDriverLeftover(code), code == 1058 || code == 1072) << code;
  }
}

}  // namespace
}  // namespace tunnel
