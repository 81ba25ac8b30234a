#pragma once

#include <windows.h>

#include <functional>

#include "link.h"

namespace browser {

// Turns a window's mouse and keyboard messages into requests to the browser.
//
// Threads: the window's thread only.
class Input {
 public:
  using Send = std::function<void(FromHost, const BodyWriter&)>;
  explicit Input(Send send) : send_(std::move(send)) {}

  // False for messages that are left to the system, such as Alt with a key.
  bool Handle(HWND window, UINT message, WPARAM wide, LPARAM extra);

 private:
  bool HandleMouse(HWND window, UINT message, WPARAM wide, LPARAM extra);
  void Wheel(HWND window, UINT message, WPARAM wide, LPARAM extra);
  void Button(HWND window, UINT message, WPARAM wide, LPARAM extra);
  void KeyDown(HWND window, WPARAM virtualKey);
  void Character(wchar_t unit);

  Send send_;
  wchar_t highSurrogate_ = 0;  // the first half of a pair, waiting for the second
};

}  // namespace browser
