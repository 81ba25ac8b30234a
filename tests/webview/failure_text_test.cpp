#include "webview/failure_text.h"

#include <gtest/gtest.h>

namespace webview {
namespace {

std::wstring NoText(std::uint32_t) {
  return {};
}

TEST(FailureText, NamesTheCodeAndTheUsualCausesInItsOwnWords) {
  const struct {
    std::uint32_t result;
    const wchar_t* line;
  } rows[] = {
      {0x80070002, L"错误 0x80070002：本机未找到 WebView2 运行时。"},
      {0x80070005, L"错误 0x80070005：拒绝访问，无法写入界面数据文件夹。"},
      {0x8007139F, L"错误 0x8007139F：界面数据文件夹正由另一程序以不同的选项使用，或窗口已关闭。"},
      {0x80080005, L"错误 0x80080005：浏览器进程未能启动。"},
      {0x80004005, L"错误 0x80004005：浏览器进程无法启动。"},
  };
  for (const auto& row : rows) {
    const auto unasked = [](std::uint32_t) -> std::wstring { throw 7; };
    EXPECT_EQ(FailureCause(row.result, unasked), row.line);
  }
}

TEST(FailureText, TakesTheSystemsWordsForOtherCodes) {
  std::uint32_t asked = 0;
  const auto text = [&asked](std::uint32_t code) {
    asked = code;
    return std::wstring(L"管道已结束。\r\n");
  };
  EXPECT_EQ(FailureCause(0x8007006D, text), L"错误 0x8007006D：管道已结束。");
  EXPECT_EQ(asked, 109u) << "a bare system code";
  EXPECT_EQ(FailureCause(0x80040154, text), L"错误 0x80040154：管道已结束。");
  EXPECT_EQ(asked, 0x80040154u);
  EXPECT_EQ(FailureCause(0x80070ABC, NoText), L"错误 0x80070ABC：系统未给出说明。");
}

TEST(FailureText, SaysThatASuccessCameWithNothing) {
  EXPECT_EQ(FailureCause(0, NoText), L"错误 0x00000000：运行时没有给出结果。");
}

TEST(FailureText, AnotherFolderHelpsNeitherAMissingRuntimeNorAClosedWindow) {
  for (const std::uint32_t result : {0x80070002u, 0x8007007Eu, 0x8007064Eu, 0x80004004u}) {
    EXPECT_FALSE(MayBeTheFolder(result)) << result;
  }
  for (const std::uint32_t result : {0x80070005u, 0x8007139Fu, 0x80070050u, 0x80004005u, 0u}) {
    EXPECT_TRUE(MayBeTheFolder(result)) << result;
  }
}

}  // namespace
}  // namespace webview
