#pragma once

#include <array>
#include <cstddef>
#include <type_traits>

#include "platform/windows_sdk.h"

namespace webview {

// A COM object laid out by hand, as another compiler would lay it out: a pointer to a table of
// functions that take the object first. Tests put functions into numbered slots, which checks our
// declarations from the other side of the binary interface. An empty slot returns E_NOTIMPL.
class RawObject {
 public:
  static constexpr std::size_t kSlots = 80;

  RawObject() {
    slots_.fill(reinterpret_cast<void*>(&NotImplemented));
    Put(1, &AddRef);
    Put(2, &Release);
  }
  RawObject(const RawObject&) = delete;
  RawObject& operator=(const RawObject&) = delete;

  template <typename Function>
  void Put(std::size_t slot, Function* function) {
    static_assert(std::is_function_v<Function>);
    slots_[slot] = reinterpret_cast<void*>(function);
  }

  // The cast must stay opaque: the compiler must treat the object like a foreign library's.
  template <typename Interface>
  [[gnu::noipa]] Interface* As() {
    return reinterpret_cast<Interface*>(this);
  }

  [[nodiscard]] int References() const { return references_; }

 private:
  static HRESULT NotImplemented(RawObject*) { return E_NOTIMPL; }
  static ULONG AddRef(RawObject* self) { return static_cast<ULONG>(++self->references_); }
  static ULONG Release(RawObject* self) { return static_cast<ULONG>(--self->references_); }

  void** table_ = slots_.data();  // must be first: callers find the table here
  std::array<void*, kSlots> slots_{};
  int references_ = 1;  // held by the test
};

}  // namespace webview
