#pragma once

#include <utility>

namespace platform {

// Owns one handle and closes it once. `Traits` has the type Raw and, all noexcept, Invalid(),
// IsValid() and Close(). Not for pseudo-handles or predefined keys.
template <typename Traits>
class UniqueHandle {
 public:
  using Raw = typename Traits::Raw;

  UniqueHandle() noexcept = default;
  explicit UniqueHandle(Raw raw) noexcept : raw_(raw) {}
  UniqueHandle(UniqueHandle&& other) noexcept : raw_(other.Release()) {}
  UniqueHandle& operator=(UniqueHandle&& other) noexcept {
    if (this != &other) Reset(other.Release());
    return *this;
  }
  UniqueHandle(const UniqueHandle&) = delete;
  UniqueHandle& operator=(const UniqueHandle&) = delete;
  ~UniqueHandle() { Reset(); }

  explicit operator bool() const noexcept { return Traits::IsValid(raw_); }
  [[nodiscard]] Raw Get() const noexcept { return raw_; }
  // Passes ownership to the caller.
  [[nodiscard]] Raw Release() noexcept { return std::exchange(raw_, Traits::Invalid()); }
  // Closes the current handle, if any, and takes `raw`.
  void Reset(Raw raw = Traits::Invalid()) noexcept {
    const Raw old = std::exchange(raw_, raw);
    if (Traits::IsValid(old)) Traits::Close(old);
  }

 private:
  Raw raw_ = Traits::Invalid();
};

}  // namespace platform
