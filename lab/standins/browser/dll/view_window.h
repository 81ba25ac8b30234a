#pragma once

#include <windows.h>

#include <functional>

#include "abi.h"
#include "frame_decoder.h"
#include "input.h"

namespace browser {

// The child window that shows the browser's pictures and receives mouse and keyboard.
//
// Threads: created, used and destroyed on the thread of its parent.
class ViewWindow {
 public:
  // `send` passes requests to the browser; `destroyed` is called if the window is destroyed with
  // its parent instead of by Destroy(). `decoder` must outlive this object.
  ViewWindow(FrameDecoder& decoder, Input::Send send, std::function<void()> destroyed);
  ~ViewWindow() { Destroy(); }
  ViewWindow(const ViewWindow&) = delete;
  ViewWindow& operator=(const ViewWindow&) = delete;

  // Fails if the parent is not a window or belongs to another thread.
  HRESULT Create(HWND parent);
  void Destroy();

  [[nodiscard]] HWND Handle() const { return window_; }
  void SetBounds(const RECT& bounds);
  [[nodiscard]] RECT Bounds() const { return bounds_; }
  void SetVisible(bool visible);
  void SetBackground(COREWEBVIEW2_COLOR color);

 private:
  static LRESULT CALLBACK Procedure(HWND window, UINT message, WPARAM wide, LPARAM extra) noexcept;
  LRESULT Handle(HWND window, UINT message, WPARAM wide, LPARAM extra);
  void Paint();
  void OnNcDestroy();

  FrameDecoder& decoder_;
  Input::Send send_;
  std::function<void()> destroyed_;
  Input input_;
  HWND window_ = nullptr;
  RECT bounds_{};
  COLORREF background_ = RGB(255, 255, 255);
};

}  // namespace browser
