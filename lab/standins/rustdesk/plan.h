#pragma once

#include <chrono>
#include <string>
#include <string_view>

namespace rustdesk {

enum class Shape { Plain, Owned };

// How the stand-in behaves from its start on; times count from there.
struct Plan {
  std::wstring title = L"RustDesk";
  // The title until titleAfter has passed.
  std::wstring firstTitle;
  std::chrono::milliseconds titleAfter{0};
  // The window exists at once, with its title, and is visible after this time.
  std::chrono::milliseconds showAfter{0};
  // Of the window's left edge on the screen, in pixels.
  int left = 60;
  // The process ends by itself after this time.
  std::chrono::milliseconds life{60'000};
  // Owned: the window belongs to another visible window, as a dialog does.
  Shape shape = Shape::Plain;
};

// Reads lines "name=value" (UTF-8): title, firstTitle, titleAfterMs, showAfterMs, left, lifeMs,
// and shape=owned. What is left out stays as above; other names are passed over. Pure.
Plan ReadPlan(std::string_view bytes);

}  // namespace rustdesk
