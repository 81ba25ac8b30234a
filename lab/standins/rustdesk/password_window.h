#pragma once

#include <windows.h>

#include <string>

#include "rustdesk/plan.h"
#include "rustdesk/record.h"

namespace rustdesk {

// A window that asks for a password, and records what reaches it:
//   shown            it became visible; "title"
//   title            it got its later title; "title"
//   down, up         a key; "key" is its virtual-key code
//   char             a printable character was typed
//   paste, enter     text was pasted, Enter was pressed; "field" is what the field then holds
// Keys and characters count wherever in the window the focus is.
//
// Threads: one, which creates it and dispatches its messages. The objects given must outlive it.
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
  HWND window_ = nullptr;  // owned by the system's desktop; ends with the process
  HWND field_ = nullptr;
  HWND label_ = nullptr;
};

}  // namespace rustdesk
