// Stands in for RustDesk: it is started with an ID and asks for a password. It follows plan.txt and
// records its command line and its window's events in record.jsonl. Both are in RecordFolder(). See
// README.md.
#include <windows.h>
// After the SDK, which it needs.
#include <commctrl.h>

#include <array>
#include <string>

#include "rustdesk/plan.h"

namespace rustdesk {
namespace {

constexpr wchar_t kClass[] = L"LabRustDesk";
constexpr wchar_t kAsk[] = L"请输入密码";
constexpr wchar_t kEntered[] = L"已登录";
constexpr wchar_t kOwnerTitle[] = L"所有者";
constexpr int kWidth = 420;
constexpr int kHeight = 150;
constexpr int kTop = 560;
constexpr wchar_t kFirstPrintable = 0x20;

enum Timer : UINT_PTR { kShow = 1, kTitle, kLife };

UINT TimerMs(std::chrono::milliseconds time) {
  return static_cast<UINT>(time.count());
}

HWND MakeWindow(const std::wstring& title, int left, HWND owner) {
  const DWORD style = owner == nullptr ? WS_OVERLAPPEDWINDOW : WS_POPUP | WS_CAPTION | WS_SYSMENU;
  return ::CreateWindowW(kClass, title.c_str(), style, left, kTop, kWidth, kHeight, owner, nullptr,
                         ::GetModuleHandleW(nullptr), nullptr);
}

void RegisterWindowClass(WNDPROC procedure) {
  WNDCLASSW type{};
  type.lpfnWndProc = procedure;
  type.hInstance = ::GetModuleHandleW(nullptr);
  type.hCursor = ::LoadCursorW(nullptr, IDC_ARROW);
  type.hbrBackground = ::GetSysColorBrush(COLOR_BTNFACE);
  type.lpszClassName = kClass;
  ::RegisterClassW(&type);
}

std::wstring ProgramFile() {
  std::array<wchar_t, 4096> file{};
  return {file.data(), ::GetModuleFileNameW(nullptr, file.data(), static_cast<DWORD>(file.size()))};
}

// A window that asks for a password and records its events:
//   shown            the window became visible; "title"
//   title            its later title was set; "title"
//   down, up         a key; "key" is its virtual-key code
//   char             a printable character was typed
//   paste, enter     text was pasted, Enter was pressed; "field" is the field's content afterwards
// Keys and characters count wherever the focus is in the window.
//
// Threads: one, which creates it and dispatches its messages. `plan` and `record` must outlive it.
class PasswordWindow {
 public:
  PasswordWindow(const Plan& plan, const Record& record);

 private:
  static LRESULT CALLBACK Procedure(HWND window, UINT message, WPARAM wide, LPARAM extra) noexcept;
  static LRESULT CALLBACK FieldProcedure(HWND field, UINT message, WPARAM wide, LPARAM extra,
                                         UINT_PTR id, DWORD_PTR self) noexcept;

  void AddControls();
  void OnTimer(WPARAM timer);
  void OnKey(UINT message, WPARAM key);
  void OnCharacter(wchar_t unit) const;
  [[nodiscard]] std::wstring FieldText() const;

  const Plan& plan_;
  const Record& record_;
  HWND window_ = nullptr;  // destroyed with the process
  HWND field_ = nullptr;
  HWND label_ = nullptr;
};

}  // namespace

PasswordWindow::PasswordWindow(const Plan& plan, const Record& record)
    : plan_(plan), record_(record) {
  RegisterWindowClass(&PasswordWindow::Procedure);
  HWND owner = nullptr;
  if (plan.shape == Shape::Owned) {
    owner = MakeWindow(kOwnerTitle, plan.left, nullptr);
    ::ShowWindow(owner, SW_SHOWNORMAL);
  }
  window_ =
      MakeWindow(plan.titleAfter.count() > 0 ? plan.firstTitle : plan.title, plan.left, owner);
  ::SetWindowLongPtrW(window_, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(this));
  AddControls();
  ::SetTimer(window_, kShow, TimerMs(plan.showAfter), nullptr);
  if (plan.titleAfter.count() > 0) ::SetTimer(window_, kTitle, TimerMs(plan.titleAfter), nullptr);
  ::SetTimer(window_, kLife, TimerMs(plan.life), nullptr);
}

void PasswordWindow::AddControls() {
  const HINSTANCE instance = ::GetModuleHandleW(nullptr);
  label_ = ::CreateWindowW(L"STATIC", kAsk, WS_CHILD | WS_VISIBLE, 20, 16, 360, 22, window_,
                           nullptr, instance, nullptr);
  field_ = ::CreateWindowW(L"EDIT", L"",
                           WS_CHILD | WS_VISIBLE | WS_BORDER | ES_PASSWORD | ES_AUTOHSCROLL, 20, 48,
                           360, 26, window_, nullptr, instance, nullptr);
  ::SetWindowSubclass(field_, &PasswordWindow::FieldProcedure, 1,
                      reinterpret_cast<DWORD_PTR>(this));
}

std::wstring PasswordWindow::FieldText() const {
  std::wstring text(static_cast<std::size_t>(::GetWindowTextLengthW(field_)), L'\0');
  ::GetWindowTextW(field_, text.data(), static_cast<int>(text.size()) + 1);
  return text;
}

void PasswordWindow::OnTimer(WPARAM timer) {
  ::KillTimer(window_, timer);
  if (timer == kShow) {
    ::ShowWindow(window_, SW_SHOWNORMAL);
    record_.Add("shown",
                {{"title", plan_.titleAfter.count() > 0 ? plan_.firstTitle : plan_.title}});
  } else if (timer == kTitle) {
    ::SetWindowTextW(window_, plan_.title.c_str());
    record_.Add("title", {{"title", plan_.title}});
  } else if (timer == kLife) {
    ::PostQuitMessage(0);
  }
}

void PasswordWindow::OnKey(UINT message, WPARAM key) {
  record_.Add(message == WM_KEYDOWN ? "down" : "up", {{"key", std::to_wstring(key)}});
  if (message != WM_KEYDOWN || key != VK_RETURN) return;
  record_.Add("enter", {{"field", FieldText()}});
  ::SetWindowTextW(label_, kEntered);
}

void PasswordWindow::OnCharacter(wchar_t unit) const {
  if (unit >= kFirstPrintable) record_.Add("char", {{"text", {&unit, 1}}});
}

LRESULT CALLBACK PasswordWindow::Procedure(HWND window, UINT message, WPARAM wide,
                                           LPARAM extra) noexcept {
  auto* const self = reinterpret_cast<PasswordWindow*>(::GetWindowLongPtrW(window, GWLP_USERDATA));
  if (message == WM_DESTROY) ::PostQuitMessage(0);
  if (self == nullptr) return ::DefWindowProcW(window, message, wide, extra);
  if (message == WM_SETFOCUS) ::SetFocus(self->field_);
  if (message == WM_TIMER) self->OnTimer(wide);
  if (message == WM_KEYDOWN || message == WM_KEYUP) self->OnKey(message, wide);
  if (message == WM_CHAR) self->OnCharacter(static_cast<wchar_t>(wide));
  return ::DefWindowProcW(window, message, wide, extra);
}

LRESULT CALLBACK PasswordWindow::FieldProcedure(HWND field, UINT message, WPARAM wide, LPARAM extra,
                                                UINT_PTR, DWORD_PTR owner) noexcept {
  auto* const self = reinterpret_cast<PasswordWindow*>(owner);
  if (message == WM_KEYDOWN || message == WM_KEYUP) self->OnKey(message, wide);
  if (message == WM_CHAR) self->OnCharacter(static_cast<wchar_t>(wide));
  if (message == WM_CHAR && wide == VK_RETURN) return 0;  // would beep
  const LRESULT result = ::DefSubclassProc(field, message, wide, extra);
  if (message == WM_PASTE) self->record_.Add("paste", {{"field", self->FieldText()}});
  return result;
}

}  // namespace rustdesk

int WINAPI wWinMain(HINSTANCE, HINSTANCE, PWSTR, int) {
  const std::wstring folder = rustdesk::RecordFolder();
  const rustdesk::Record record(folder + L"\\record.jsonl");
  const rustdesk::Plan plan = rustdesk::ReadPlan(rustdesk::ReadBytes(folder + L"\\plan.txt"));
  const rustdesk::PasswordWindow window(plan, record);
  record.Add("started", {{"commandLine", ::GetCommandLineW()}, {"file", rustdesk::ProgramFile()}});
  MSG message;
  while (::GetMessageW(&message, nullptr, 0, 0) > 0) {
    ::TranslateMessage(&message);
    ::DispatchMessageW(&message);
  }
  return 0;
}
