#pragma once

#include <atomic>
#include <cstdint>
#include <utility>
#include <vector>

#include "abi.h"

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

  // Takes over a new object's first reference.
  static ComPtr Adopt(T* fresh) noexcept {
    ComPtr pointer;
    pointer.raw_ = fresh;
    return pointer;
  }

  explicit operator bool() const noexcept { return raw_ != nullptr; }
  T* operator->() const noexcept { return raw_; }
  [[nodiscard]] T* Get() const noexcept { return raw_; }
  // Adds a reference for the receiver, for out parameters.
  [[nodiscard]] T* Share() const noexcept {
    raw_->AddRef();
    return raw_;
  }

 private:
  T* raw_ = nullptr;
};

// The IUnknown part of an object with one method table. `Iids` are its interface ids besides
// IUnknown's. Starts with one reference; AddRef() and Release() may be called on any thread.
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
  // Called after the last Release(): `delete this`. Its slot follows the interface's own.
  virtual void Destroy() = 0;

 private:
  std::atomic<ULONG> references_{1};
};

// The handlers of one event, in the order they were added. One thread.
template <typename HandlerType>
class HandlerList {
 public:
  HRESULT Add(HandlerType* handler, EventRegistrationToken* token) {
    if (handler == nullptr || token == nullptr) return E_POINTER;
    token->value = ++lastToken_;
    handlers_.emplace_back(token->value, ComPtr<HandlerType>(handler));
    return S_OK;
  }

  // Ignores unknown tokens.
  HRESULT Remove(EventRegistrationToken token) {
    std::erase_if(handlers_, [&](const auto& entry) { return entry.first == token.value; });
    return S_OK;
  }

  void Clear() { handlers_.clear(); }

  // Calls the current handlers; they may add and remove handlers meanwhile.
  template <typename... Arguments>
  void Invoke(Arguments... arguments) const {
    const auto now = handlers_;
    for (const auto& [token, handler] : now) handler->Invoke(arguments...);
  }

 private:
  int64_t lastToken_ = 0;
  std::vector<std::pair<int64_t, ComPtr<HandlerType>>> handlers_;
};

}  // namespace browser
