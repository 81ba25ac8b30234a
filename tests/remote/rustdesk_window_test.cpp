#include "remote/rustdesk_program.h"

#include <gtest/gtest.h>

#include <vector>

namespace remote {
namespace {

TEST(RustDeskTitle, ContainsTheIdOrTheProgramsName) {
  const std::wstring longTitle = std::wstring(5000, L'x') + L"987" + std::wstring(5000, L'x');
  const struct {
    std::wstring title;
    std::wstring id;
    bool matches;
  } rows[] = {
      {L"987", L"987", true},
      {L"Notes on 987.txt", L"987", true},
      {longTitle, L"987", true},
      {L"98", L"987", false},
      {L"9 8 7", L"987", false},
      {L"device ABC", L"ABC", true},
      {L"device abc", L"ABC", false},
      {L"RustDesk", L"987", true},
      {L"RustDesk", L"", true},
      {L"远程 - rustDESK 1.2", L"987", true},
      {L"x" + std::wstring(5000, L' ') + L"RUSTDESK", L"", true},
      {L"RustDes", L"987", false},
      {L"Rust", L"", false},
      {L"Rust Desk", L"", false},
      {L"", L"987", false},
      {L"", L"", false},
      {L"Notes", L"", false},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(IsRustDeskTitle(row.title, row.id), row.matches)
        << testing::PrintToString(row.title.substr(0, 40)) << testing::PrintToString(row.id);
  }
}

TEST(RustDeskImage, HasItsNameOrIsTheStartedProgram) {
  const wchar_t* const started = L"D:\\工具\\remote 1.2.exe";
  const struct {
    const wchar_t* image;
    bool matches;
  } rows[] = {
      {L"C:\\Program Files\\RustDesk\\rustdesk.exe", true},
      {L"C:\\x\\RUSTDESK.EXE", true},
      {L"C:/x/rustdesk.exe", true},
      {L"rustdesk.exe", true},
      {started, true},
      {L"d:\\工具\\REMOTE 1.2.exe", true},
      {L"D:\\remote 1.2.exe", false},
      {L"C:\\rustdesk.exe\\browser.exe", false},
      {L"C:\\x\\my rustdesk.exe", false},
      {L"C:\\x\\rustdesk.exe.bak", false},
      {L"C:\\x\\rustdesk", false},
      {L"C:\\x\\", false},
      {L"", false},
  };
  for (const auto& row : rows)
    EXPECT_EQ(IsRustDeskImage(row.image, started), row.matches) << row.image;
  EXPECT_FALSE(IsRustDeskImage(L"", L""));
}

// A window is named by its position, from 1.
int Chosen(const std::vector<std::pair<const wchar_t*, const wchar_t*>>& titlesAndImages) {
  static std::vector<int> places(20);
  std::vector<DeskWindow> windows;
  for (const auto& [title, image] : titlesAndImages) {
    windows.push_back({&places[windows.size()], title, image});
  }
  void* const chosen = ChooseRustDeskWindow(windows, L"987", L"D:\\remote.exe");
  return chosen == nullptr ? 0 : static_cast<int>(static_cast<int*>(chosen) - places.data()) + 1;
}

TEST(RustDeskWindow, PrefersItsOwnToOthersWithItsTitle) {
  constexpr wchar_t kBrowser[] = L"C:\\browser.exe";
  constexpr wchar_t kProgram[] = L"C:\\RustDesk\\rustdesk.exe";
  constexpr wchar_t kUnknown[] = L"";
  EXPECT_EQ(Chosen({}), 0);
  EXPECT_EQ(Chosen({{L"Notes", kBrowser}, {L"Notes", kProgram}}), 0) << "no such title";
  EXPECT_EQ(Chosen({{L"987 - search", kBrowser}, {L"RustDesk", kProgram}}), 2);
  EXPECT_EQ(Chosen({{L"RustDesk", kProgram}, {L"987 - search", kBrowser}}), 1);
  EXPECT_EQ(Chosen({{L"987", kUnknown}, {L"987", kProgram}}), 2);
  EXPECT_EQ(Chosen({{L"RustDesk help", kBrowser}, {L"987", L"d:\\REMOTE.exe"}}), 2)
      << "the one that was started";
  EXPECT_EQ(Chosen({{L"987", kBrowser}, {L"RustDesk", kProgram}, {L"987", kProgram}}), 2)
      << "the first of its own";
  EXPECT_EQ(Chosen({{L"987", kBrowser}, {L"Notes", kProgram}}), 1)
      << "its own has another title yet";
}

TEST(RustDeskWindow, IsTheFirstWithItsTitleIfNoneIsItsOwn) {
  EXPECT_EQ(Chosen({{L"RustDesk", L""}, {L"987", L"C:\\x.exe"}}), 1);
  EXPECT_EQ(Chosen({{L"Notes", L""}, {L"987", L"C:\\x.exe"}, {L"RustDesk", L""}}), 2);
}

}  // namespace
}  // namespace remote
