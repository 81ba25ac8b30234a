#pragma once

#include <atomic>
#include <utility>

#include "abi_types.h"

namespace browser {

// Owns one reference to a COM object.
template <typename T>
class ComPtr {
 public:
  ComPtr() noexcept = default;
  // Adds a reference to a borrowed pointer.
  explicit ComPtr(T* borrowed) noexcept : raw_(borrowed) {
    if (raw_ != nullptr) raw_->AddRef();
  }
  ComPtr(const ComPtr& other) noexcept : ComPtr(other.raw_) {}
  ComPtr(ComPtr&& other) noexcept : raw_(std::exchange(other.raw_, nullptr)) {}
  ComPtr& operator=(ComPtr other) noexcept {
    std::swap(raw_, other.raw_);
    return *this;
  }
  ~ComPtr() {
    if (raw_ != nullptr) raw_->Release();
  }

  // Takes over the reference that a fresh object is born with.
  static ComPtr Adopt(T* fresh) noexcept {
    ComPtr pointer;
    pointer.raw_ = fresh;
    return pointer;
  }

  explicit operator bool() const noexcept { return raw_ != nullptr; }
  T* operator->() const noexcept { return raw_; }
  [[nodiscard]] T* Get() const noexcept { return raw_; }
  // A reference of the receiver's own, for out parameters.
  [[nodiscard]] T* Share() const noexcept {
    raw_->AddRef();
    return raw_;
  }

 private:
  T* raw_ = nullptr;
};

// The IUnknown part of an object with one table of methods. `Iids` are the ids, besides IUnknown's,
// that this table answers. Born with one reference; AddRef and Release may be called on any thread.
template <typename Interface, const IID*... Iids>
class ComObject : public Interface {
 public:
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) final {
    if (object == nullptr) return E_POINTER;
    *object = nullptr;
    if (iid != kIidUnknown && !((iid == *Iids) || ...)) return E_NOINTERFACE;
    AddRef();
    *object = static_cast<Interface*>(this);
    return S_OK;
  }
  ULONG STDMETHODCALLTYPE AddRef() final { return ++references_; }
  ULONG STDMETHODCALLTYPE Release() final {
    const ULONG left = --references_;
    if (left == 0) Destroy();
    return left;
  }

 protected:
  ComObject() = default;
  ~ComObject() = default;
  // Called when the last reference is gone: `delete this`. Comes after the interface's own slots.
  virtual void Destroy() = 0;

 private:
  std::atomic<ULONG> references_{1};
};

}  // namespace browser
