#pragma once

#include <array>

#include "platform/unique_handle.h"
#include "platform/windows_sdk.h"

namespace shell {

struct GdiObjectTraits {
  using Raw = HGDIOBJ;
  static Raw Invalid() noexcept { return nullptr; }
  static bool IsValid(Raw object) noexcept { return object != nullptr; }
  static void Close(Raw object) noexcept { ::DeleteObject(object); }
};
using GdiObject = platform::UniqueHandle<GdiObjectTraits>;

inline constexpr COLORREF kWindowColour = RGB(6, 9, 11);
inline constexpr COLORREF kEditColour = RGB(20, 27, 31);
inline constexpr COLORREF kTextColour = RGB(233, 245, 242);
inline constexpr COLORREF kButtonTextColour = RGB(140, 168, 166);

// The ten fonts and brushes with which native controls in the window are drawn.
class GdiObjects {
 public:
  enum Font { Title, Body, Caption, Button, Log, FontCount };
  enum Brush { Window, Panel, Edit, Accent, Line, BrushCount };

  // Makes all of them; one that the system refuses stays empty and is drawn with its default.
  void Create();
  void Delete() noexcept;

  [[nodiscard]] HFONT Get(Font font) const noexcept;
  [[nodiscard]] HBRUSH Get(Brush brush) const noexcept;

 private:
  std::array<GdiObject, FontCount> fonts_;
  std::array<GdiObject, BrushCount> brushes_;
};

// Colours the device context of a native control and returns its background brush, for the four
// WM_CTLCOLOR messages that the window answers.
HBRUSH ColourControl(const GdiObjects& gdi, UINT message, HDC context);

// Paints an owner-drawn button: panel, line, caption; the accent while it is pressed.
void PaintButton(const GdiObjects& gdi, const DRAWITEMSTRUCT& item);

}  // namespace shell
