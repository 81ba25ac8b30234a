#include "shell/window_size.h"

#include <algorithm>

namespace shell {
namespace {

int Fit(int wanted, int room) noexcept {
  return room > 0 ? std::min(wanted, room) : wanted;
}

int Move(int from, int extent, int roomFrom, int roomExtent) noexcept {
  return std::max(roomFrom, std::min(from, roomFrom + roomExtent - extent));
}

}  // namespace

PixelSize FitInto(PixelSize wanted, PixelSize room) noexcept {
  return {Fit(wanted.width, room.width), Fit(wanted.height, room.height)};
}

PixelArea MoveInto(PixelArea place, const PixelArea& room) noexcept {
  if (room.size.width <= 0 || room.size.height <= 0) return place;
  return {Move(place.left, place.size.width, room.left, room.size.width),
          Move(place.top, place.size.height, room.top, room.size.height), place.size};
}

}  // namespace shell
