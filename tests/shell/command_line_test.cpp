#include "shell/command_line.h"

#include <gtest/gtest.h>

namespace shell {
namespace {

struct CommandLineRow {
  const char* name;
  std::vector<std::wstring> arguments;
  bool wanted;
};

TEST(ParseApplyUpdate, RequiresTheSwitchAndThreeArguments) {
  const CommandLineRow rows[] = {
      {"nothing", {}, false},
      {"the program alone", {L"c.exe"}, false},
      {"the word alone", {L"c.exe", L"--apply-update"}, false},
      {"one argument", {L"c.exe", L"--apply-update", L"12"}, false},
      {"two arguments", {L"c.exe", L"--apply-update", L"12", L"a"}, false},
      {"three arguments", {L"c.exe", L"--apply-update", L"12", L"a", L"b"}, true},
      {"more", {L"c.exe", L"--apply-update", L"12", L"a", L"b", L"c"}, true},
      {"any letter case", {L"c.exe", L"--Apply-UPDATE", L"12", L"a", L"b"}, true},
      {"another word", {L"c.exe", L"--apply", L"12", L"a", L"b"}, false},
      {"the word in another place", {L"c.exe", L"12", L"--apply-update", L"a", L"b"}, false},
  };
  for (const CommandLineRow& row : rows) {
    EXPECT_EQ(ParseApplyUpdate(row.arguments).has_value(), row.wanted) << row.name;
  }
}

TEST(ParseApplyUpdate, TakesTheArguments) {
  const auto request =
      ParseApplyUpdate({L"c.exe", L"--apply-update", L"4321", L"C:\\新 a", L"D:\\b"});
  ASSERT_TRUE(request);
  EXPECT_EQ(request->parentPid, 4321u);
  EXPECT_EQ(request->source, L"C:\\新 a");
  EXPECT_EQ(request->destination, L"D:\\b");
}

TEST(ParseApplyUpdate, ReadsANonNumberAsZero) {
  const auto request = ParseApplyUpdate({L"c.exe", L"--apply-update", L"x", L"a", L"b"});
  ASSERT_TRUE(request);
  EXPECT_EQ(request->parentPid, 0u);
}

std::optional<std::wstring> CheckedFile(const std::vector<std::wstring>& arguments) {
  const auto request = ParseCheck(arguments);
  if (!request) return L"none";
  return request->file;
}

TEST(CheckArguments, NameAFileOrUseTheDefault) {
  EXPECT_EQ(CheckedFile({L"client.exe", L"--check"}), std::nullopt);
  EXPECT_EQ(CheckedFile({L"client.exe", L"--CHECK", L"D:\\a b.txt"}), L"D:\\a b.txt");
  EXPECT_EQ(CheckedFile({L"client.exe", L"--check", L""}), std::nullopt);
}

TEST(CheckArguments, AreAbsentFromOtherCommandLines) {
  EXPECT_EQ(CheckedFile({}), L"none");
  EXPECT_EQ(CheckedFile({L"--check"}), L"none") << "the program's own name";
  EXPECT_EQ(CheckedFile({L"client.exe", L"check"}), L"none");
  EXPECT_EQ(CheckedFile({L"client.exe", L"--apply-update", L"--check", L"a", L"b"}), L"none");
}

TEST(DevelopmentTreeRoot, IsThePartBeforeTheSourceFolder) {
  EXPECT_EQ(DevelopmentTreeRoot(L"D:\\tree\\src\\VelmarineNative\\build\\x64\\client.exe"),
            L"D:\\tree");
  EXPECT_EQ(DevelopmentTreeRoot(L"D:\\src\\VelmarineNative\\a\\src\\VelmarineNative\\b.exe"),
            L"D:");
}

TEST(DevelopmentTreeRoot, IsAbsentOutsideASourceTree) {
  for (const wchar_t* path :
       {L"", L"C:\\Program Files\\client.exe", L"D:\\tree\\src\\VelmarineNative.exe",
        L"D:\\tree\\VelmarineNative\\client.exe", L"D:\\src\\VelmarineNativeX\\client.exe",
        L"src\\VelmarineNative\\client.exe"}) {
    EXPECT_EQ(DevelopmentTreeRoot(path), std::nullopt);
  }
}

}  // namespace
}  // namespace shell
