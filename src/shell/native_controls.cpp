#include "shell/native_controls.h"

#include <windowsx.h>

#include <string>

#include "platform/clipboard.h"
#include "shell/main_window.h"

namespace shell {
namespace {

// Identifiers of WM_COMMAND. Other programs find the controls by these numbers, so all of them
// stay, the unused ones too.
enum Command : int {
  Connect = 1009,
  ResolveDevice = 1010,
  OpenRemoteDesktop = 1011,
  SaveProfile = 1012,
  Stop = 1013,
  CopySecret = 1014,
  FirstUnused = 1016,
  SecondUnused = 1019,
  ThirdUnused = 1020,
  FourthUnused = 1021,
  ProfileList = 1022,
  TestLatency = 1023,
  FifthUnused = 1024,
  ToggleDiscovery = 1025,
};

constexpr int kSelectionChanged = 1;  // LBN_SELCHANGE and CBN_SELCHANGE

constexpr wchar_t kDiscoveryOnCaption[] = L"PLC发现模式：开";
constexpr wchar_t kDiscoveryOffCaption[] = L"PLC发现模式：关";

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
  // A negative height is that of the characters, without the space above them.
  return ::CreateFontW(-look.heightPixels, 0, 0, 0, look.weight, FALSE, FALSE, FALSE,
                       DEFAULT_CHARSET, OUT_DEFAULT_PRECIS, CLIP_DEFAULT_PRECIS, CLEARTYPE_QUALITY,
                       DEFAULT_PITCH | FF_DONTCARE, look.face);
}

std::wstring Caption(HWND control) {
  // One unit more for the terminator, which the length does not count.
  std::wstring caption(static_cast<std::size_t>(::GetWindowTextLengthW(control)) + 1, L'\0');
  const int lengthUnits =
      ::GetWindowTextW(control, caption.data(), static_cast<int>(caption.size()));
  caption.resize(static_cast<std::size_t>(lengthUnits));
  return caption;
}

void CopySecretOf(Client& client, HWND window) {
  const std::wstring secret = client.SecretToCopy();
  if (!secret.empty()) client.OnSecretCopied(platform::CopySecretToClipboard(secret, window));
}

void ToggleDiscoveryOf(Client& client, HWND toggle) {
  const bool enabled = client.ToggleDiscovery();
  // A command from another program may name no control.
  if (toggle != nullptr) {
    ::SetWindowTextW(toggle, enabled ? kDiscoveryOnCaption : kDiscoveryOffCaption);
  }
}

// False for identifiers of other controls.
bool HandleCommand(Client& client, HWND window, int id, int notification, HWND control) {
  switch (id) {
    case Command::Connect:
      client.Connect();
      return true;
    case Command::ResolveDevice:
      client.ResolveDevice();
      return true;
    case Command::OpenRemoteDesktop:
      client.OpenRemoteDesktop();
      return true;
    case Command::SaveProfile:
      client.SaveProfile();
      Repaint(window);
      return true;
    case Command::Stop:
      client.Stop();
      return true;
    case Command::CopySecret:
      CopySecretOf(client, window);
      return true;
    case Command::ProfileList:
      // The list reports its focus by the same command.
      if (notification == kSelectionChanged) client.LoadProfile(settings::ProfileChooser::Window);
      return true;
    case Command::TestLatency:
      client.TestLatency();
      return true;
    case Command::ToggleDiscovery:
      ToggleDiscoveryOf(client, control);
      return true;
    case Command::FirstUnused:
    case Command::SecondUnused:
    case Command::ThirdUnused:
    case Command::FourthUnused:
    case Command::FifthUnused:
      return true;
    default:
      return false;
  }
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
  // The control's context must be returned as it was. A missing font was never selected.
  if (oldFont != nullptr) ::SelectObject(item.hDC, oldFont);
}

std::optional<int> FindTabAt(int x, int y) {
  // Where the old window drew its two tabs.
  if (y < 64 || y > 106) return std::nullopt;
  const bool first = x >= 360 && x <= 430;
  const bool second = x >= 448 && x <= 520;
  if (!first && !second) return std::nullopt;
  return second ? 1 : 0;
}

std::optional<LRESULT> NativeControls::Handle(Client& client, HWND window, UINT message,
                                              WPARAM wParam, LPARAM lParam) {
  switch (message) {
    case WM_CTLCOLOREDIT:
    case WM_CTLCOLORLISTBOX:
    case WM_CTLCOLORBTN:
    case WM_CTLCOLORSTATIC:
      return reinterpret_cast<LRESULT>(ColourControl(gdi, message, reinterpret_cast<HDC>(wParam)));
    case WM_DRAWITEM: {
      const auto& item = *reinterpret_cast<const DRAWITEMSTRUCT*>(lParam);
      if (item.CtlType != ODT_BUTTON) return std::nullopt;
      PaintButton(gdi, item);
      return TRUE;
    }
    case WM_LBUTTONDOWN: {
      const std::optional<int> page = FindTabAt(GET_X_LPARAM(lParam), GET_Y_LPARAM(lParam));
      if (!page) return std::nullopt;
      selectedPage = *page;
      LayOut(window);
      return 0;
    }
    case WM_COMMAND: {
      const auto control = reinterpret_cast<HWND>(lParam);
      if (!HandleCommand(client, window, LOWORD(wParam), HIWORD(wParam), control))
        return std::nullopt;
      return 0;
    }
    default:
      return std::nullopt;
  }
}

}  // namespace shell
