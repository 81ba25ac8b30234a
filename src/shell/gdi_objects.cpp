#include "shell/gdi_objects.h"

#include <string>

namespace shell {
namespace {

struct FontLook {
  int heightPixels;
  int weight;
  const wchar_t* face;
};

// In the order of GdiObjects::Font.
constexpr FontLook kFonts[] = {{22, FW_SEMIBOLD, L"Microsoft YaHei UI"},
                               {16, FW_NORMAL, L"Microsoft YaHei UI"},
                               {13, FW_NORMAL, L"Microsoft YaHei UI"},
                               {15, FW_SEMIBOLD, L"Microsoft YaHei UI"},
                               {14, FW_NORMAL, L"Consolas"}};

// In the order of GdiObjects::Brush.
constexpr COLORREF kBrushes[] = {kWindowColour, RGB(13, 18, 21), kEditColour, RGB(46, 196, 160),
                                 RGB(38, 52, 56)};

HFONT MakeFont(const FontLook& look) {
  return ::CreateFontW(-look.heightPixels, 0, 0, 0, look.weight, FALSE, FALSE, FALSE,
                       DEFAULT_CHARSET, OUT_DEFAULT_PRECIS, CLIP_DEFAULT_PRECIS, CLEARTYPE_QUALITY,
                       DEFAULT_PITCH | FF_DONTCARE, look.face);
}

std::wstring Caption(HWND control) {
  std::wstring caption(static_cast<std::size_t>(::GetWindowTextLengthW(control)) + 1, L'\0');
  const int lengthUnits =
      ::GetWindowTextW(control, caption.data(), static_cast<int>(caption.size()));
  caption.resize(static_cast<std::size_t>(lengthUnits));
  return caption;
}

}  // namespace

void GdiObjects::Create() {
  for (std::size_t i = 0; i < fonts_.size(); ++i) fonts_[i].Reset(MakeFont(kFonts[i]));
  for (std::size_t i = 0; i < brushes_.size(); ++i) {
    brushes_[i].Reset(::CreateSolidBrush(kBrushes[i]));
  }
}

void GdiObjects::Delete() noexcept {
  for (GdiObject& font : fonts_) font.Reset();
  for (GdiObject& brush : brushes_) brush.Reset();
}

HFONT GdiObjects::Get(Font font) const noexcept {
  return static_cast<HFONT>(fonts_[font].Get());
}

HBRUSH GdiObjects::Get(Brush brush) const noexcept {
  return static_cast<HBRUSH>(brushes_[brush].Get());
}

HBRUSH ColourControl(const GdiObjects& gdi, UINT message, HDC context) {
  if (message == WM_CTLCOLOREDIT || message == WM_CTLCOLORLISTBOX) {
    ::SetBkMode(context, OPAQUE);
    ::SetBkColor(context, kEditColour);
    ::SetTextColor(context, kTextColour);
    return gdi.Get(GdiObjects::Edit);
  }
  ::SetBkMode(context, TRANSPARENT);
  ::SetTextColor(context, message == WM_CTLCOLORBTN ? kButtonTextColour : kTextColour);
  return gdi.Get(GdiObjects::Panel);
}

void PaintButton(const GdiObjects& gdi, const DRAWITEMSTRUCT& item) {
  const bool pressed = (item.itemState & ODS_SELECTED) != 0;
  const bool disabled = (item.itemState & ODS_DISABLED) != 0;
  RECT area = item.rcItem;
  ::FillRect(item.hDC, &area, gdi.Get(pressed ? GdiObjects::Accent : GdiObjects::Panel));
  ::FrameRect(item.hDC, &area, gdi.Get(GdiObjects::Line));
  const std::wstring caption = Caption(item.hwndItem);
  const HGDIOBJ oldFont = ::SelectObject(item.hDC, gdi.Get(GdiObjects::Button));
  ::SetBkMode(item.hDC, TRANSPARENT);
  ::SetTextColor(item.hDC, disabled ? kButtonTextColour : kTextColour);
  ::DrawTextW(item.hDC, caption.c_str(), -1, &area, DT_CENTER | DT_VCENTER | DT_SINGLELINE);
  if (oldFont != nullptr) ::SelectObject(item.hDC, oldFont);
}

}  // namespace shell
