// Native controls: their drawing calls and the tab strip.
#include <gtest/gtest.h>

#include "shell/native_controls.h"
#include "win32/calls.h"

namespace shell {
namespace {

using namespace win32;

class GdiCalls : public testing::Test {
 protected:
  GdiCalls() { gdi_.Create(); }
  // A fake device context; nothing draws on it.
  static HDC Context() { return reinterpret_cast<HDC>(&contextBytes); }
  static void InstallFakes(Calls& calls) {
    calls.AnswerWith<Api::SetBkMode>([](HDC, int) { return 1; });
    calls.AnswerWith<Api::SetBkColor>([](HDC, COLORREF) { return COLORREF{1}; });
    calls.AnswerWith<Api::SetTextColor>([](HDC, COLORREF) { return COLORREF{1}; });
    calls.AnswerWith<Api::FillRect>([](HDC, const RECT*, HBRUSH) { return 1; });
    calls.AnswerWith<Api::FrameRect>([](HDC, const RECT*, HBRUSH) { return 1; });
    calls.AnswerWith<Api::DrawTextW>([](HDC, const wchar_t*, int, RECT*, UINT) { return 1; });
    calls.AnswerWith<Api::SelectObject>(
        [](HDC, HGDIOBJ) { return static_cast<HGDIOBJ>(&fontBytes); });
    calls.AnswerWith<Api::GetWindowTextLengthW>([](HWND) { return 2; });
    calls.AnswerWith<Api::GetWindowTextW>([](HWND, wchar_t* text, int room) {
      EXPECT_EQ(room, 3);
      text[0] = L'连';
      text[1] = L'接';
      return 2;
    });
  }

  static inline int contextBytes = 0;
  static inline int fontBytes = 0;
  GdiObjects gdi_;
};

TEST_F(GdiCalls, ColourControls) {
  const COLORREF text = RGB(233, 245, 242);
  const struct {
    UINT message;
    std::vector<std::string> said;
  } rows[] = {
      {WM_CTLCOLOREDIT,
       {Said<Api::SetBkMode>(Some{}, OPAQUE), Said<Api::SetBkColor>(Some{}, RGB(20, 27, 31)),
        Said<Api::SetTextColor>(Some{}, text)}},
      {WM_CTLCOLORLISTBOX,
       {Said<Api::SetBkMode>(Some{}, OPAQUE), Said<Api::SetBkColor>(Some{}, RGB(20, 27, 31)),
        Said<Api::SetTextColor>(Some{}, text)}},
      {WM_CTLCOLORSTATIC,
       {Said<Api::SetBkMode>(Some{}, TRANSPARENT), Said<Api::SetTextColor>(Some{}, text)}},
      {WM_CTLCOLORBTN,
       {Said<Api::SetBkMode>(Some{}, TRANSPARENT),
        Said<Api::SetTextColor>(Some{}, RGB(140, 168, 166))}}};
  for (const auto& row : rows) {
    Calls calls;
    InstallFakes(calls);
    ColourControl(gdi_, row.message, Context());
    EXPECT_TRUE(calls.Were(row.said));
  }
}

TEST_F(GdiCalls, PaintAButton) {
  const struct {
    UINT state;
    COLORREF text;
  } rows[] = {{0, RGB(233, 245, 242)}, {ODS_DISABLED, RGB(140, 168, 166)}};
  for (const auto& row : rows) {
    DRAWITEMSTRUCT item{};
    item.itemState = row.state;
    item.hDC = Context();
    item.rcItem = {1, 2, 41, 22};
    Calls calls;
    InstallFakes(calls);
    PaintButton(gdi_, item);
    EXPECT_TRUE(calls.Were({
        Said<Api::FillRect>(Some{}, Text{"[1 2 41 22]"}, Some{}),
        Said<Api::FrameRect>(Some{}, Text{"[1 2 41 22]"}, Some{}),
        Said<Api::GetWindowTextLengthW>(nullptr),
        Said<Api::GetWindowTextW>(nullptr, L"", 3),
        Said<Api::SelectObject>(Some{}, Some{}),
        Said<Api::SetBkMode>(Some{}, TRANSPARENT),
        Said<Api::SetTextColor>(Some{}, row.text),
        Said<Api::DrawTextW>(Some{}, L"连接", -1, Text{"[1 2 41 22]"},
                             DT_CENTER | DT_VCENTER | DT_SINGLELINE),
        Said<Api::SelectObject>(Some{}, Handle{1}),
    }));
  }
}

TEST_F(GdiCalls, RestoreNoFontThatWasNotSelected) {
  DRAWITEMSTRUCT item{};
  item.hDC = Context();
  Calls calls;
  InstallFakes(calls);
  calls.Fail(Api::SelectObject, 1450);
  PaintButton(gdi_, item);
  EXPECT_EQ(calls.Count(Api::SelectObject), 1);
}

TEST_F(GdiCalls, DeleteEachObjectOnce) {
  Calls calls;
  {
    GdiObjects objects;
    objects.Create();
    objects.Delete();
  }
  EXPECT_EQ(calls.Unbalanced(), "");
  std::vector<std::string> said;
  for (int object = 1; object <= 10; ++object) {
    said.push_back(Said<Api::DeleteObject>(Handle{object}));
  }
  EXPECT_TRUE(calls.WereAmong({Api::DeleteObject}, said));
}

struct TabRow {
  int x;
  int y;
  std::optional<int> wanted;
};

TEST(FindTabAt, FindsTheTwoTabs) {
  const TabRow rows[] = {
      {360, 64, 0},  {430, 106, 0}, {400, 85, 0},  {448, 64, 1},  {520, 106, 1}, {500, 85, 1},
      {359, 85, {}}, {431, 85, {}}, {447, 85, {}}, {521, 85, {}}, {400, 63, {}}, {500, 107, {}},
  };
  for (const TabRow& row : rows) {
    EXPECT_EQ(FindTabAt(row.x, row.y), row.wanted) << row.x << "," << row.y;
  }
}

}  // namespace
}  // namespace shell
