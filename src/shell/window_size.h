#pragma once

#include <algorithm>

// Where the window is placed on its monitor. Pure.
namespace shell {

// A window with its frame, in physical pixels.
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

// The first size where there is room for it, and the smallest that dragging allows. The smallest is
// taller: a size that the engineer has set shows the whole page.
inline constexpr PixelSize kFirstSize = {1220, 820};
inline constexpr PixelSize kSmallestSize = {1220, 860};

// Cuts `wanted` down to `room`, the monitor's area without the task bar. An empty room is unknown
// and limits nothing.
inline PixelSize FitInto(PixelSize wanted, PixelSize room) noexcept {
  const auto fit = [](int extent, int limit) {
    return limit > 0 ? std::min(extent, limit) : extent;
  };
  return {fit(wanted.width, room.width), fit(wanted.height, room.height)};
}

// Moves `place` as little as necessary to lie inside `room`, which is large enough for it.
inline PixelArea MoveInto(PixelArea place, const PixelArea& room) noexcept {
  if (room.size.width <= 0 || room.size.height <= 0) return place;
  const auto move = [](int from, int extent, int roomFrom, int roomExtent) {
    return std::max(roomFrom, std::min(from, roomFrom + roomExtent - extent));
  };
  return {move(place.left, place.size.width, room.left, room.size.width),
          move(place.top, place.size.height, room.top, room.size.height), place.size};
}

}  // namespace shell
