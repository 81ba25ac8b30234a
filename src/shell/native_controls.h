// Native controls, which the page has replaced: the window creates none, but still answers their
// commands and paints them for programs that drive it by control identifiers.
#pragma once

#include <array>
#include <optional>

#include "platform/unique_handle.h"
#include "platform/windows_sdk.h"
#include "shell/client.h"

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

// The ten fonts and brushes for native controls.
class GdiObjects {
 public:
  enum Font { Title, Body, Caption, Button, Log, FontCount };
  enum Brush { Window, Panel, Edit, Accent, Line, BrushCount };

  // Objects that the system refuses stay empty and are drawn with its defaults.
  void Create();
  void Delete() noexcept;

  [[nodiscard]] HFONT Get(Font font) const noexcept;
  [[nodiscard]] HBRUSH Get(Brush brush) const noexcept;

 private:
  std::array<GdiObject, FontCount> fonts_;
  std::array<GdiObject, BrushCount> brushes_;
};

// Sets the colours for one of the four WM_CTLCOLOR messages and returns the background brush.
HBRUSH ColourControl(const GdiObjects& gdi, UINT message, HDC context);

// Paints an owner-drawn button: panel, line, caption; the accent while it is pressed.
void PaintButton(const GdiObjects& gdi, const DRAWITEMSTRUCT& item);

// The page (0 or 1) whose tab is at the point, in client pixels.
std::optional<int> FindTabAt(int x, int y);

// Window's thread.
struct NativeControls {
  GdiObjects gdi;
  int selectedPage = 0;  // 0 work, 1 log

  // The answer to a message of native controls; nothing when it belongs to the system.
  std::optional<LRESULT> Handle(Client& client, HWND window, UINT message, WPARAM wParam,
                                LPARAM lParam);
};

}  // namespace shell
