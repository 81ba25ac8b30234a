#pragma once

namespace shell {

// Of a window with its frame, in physical pixels.
struct PixelSize {
  int width = 0;
  int height = 0;

  friend bool operator==(const PixelSize&, const PixelSize&) = default;
};

struct PixelArea {
  int left = 0;
  int top = 0;
  PixelSize size;

  friend bool operator==(const PixelArea&, const PixelArea&) = default;
};

// The size in which the window comes up where there is room, and the smallest that a drag may give
// it. Taller than the first: a size that the engineer has set shows all of the page.
inline constexpr PixelSize kFirstSize = {1220, 820};
inline constexpr PixelSize kSmallestSize = {1220, 860};

// `wanted`, but in no direction larger than `room`, which is what a monitor has left beside the
// task bar; a room without an extent is not known and limits nothing. Pure.
PixelSize FitInto(PixelSize wanted, PixelSize room) noexcept;

// `place` moved as little as it takes to lie inside `room`, of which its size is known to fit.
// Pure.
PixelArea MoveInto(PixelArea place, const PixelArea& room) noexcept;

}  // namespace shell
