#pragma once

#include <atomic>
#include <functional>
#include <utility>

#include "webview/webview2.h"

// COM for the host: an owning pointer and a callback object.
namespace webview {

// Holds one reference to a COM object. Threads: as the object itself.
template <typename Interface>
class ComPtr {
 public:
  ComPtr() noexcept = default;
  // Takes ownership of the caller's reference.
  explicit ComPtr(Interface* owned) noexcept : object_(owned) {}
  ComPtr(ComPtr&& other) noexcept : object_(std::exchange(other.object_, nullptr)) {}
  ComPtr& operator=(ComPtr&& other) noexcept {
    if (this != &other) Reset(std::exchange(other.object_, nullptr));
    return *this;
  }
  ComPtr(const ComPtr&) = delete;
  ComPtr& operator=(const ComPtr&) = delete;
  ~ComPtr() { Reset(); }

  // Adds a reference to a borrowed object.
  static ComPtr Share(Interface* borrowed) noexcept {
    if (borrowed != nullptr) borrowed->AddRef();
    return ComPtr(borrowed);
  }

  explicit operator bool() const noexcept { return object_ != nullptr; }
  Interface* operator->() const noexcept { return object_; }
  [[nodiscard]] Interface* Get() const noexcept { return object_; }
  // For calls that return a reference through a pointer; releases the present one.
  Interface** Receive() noexcept {
    Reset();
    return &object_;
  }
  void Reset(Interface* owned = nullptr) noexcept {
    Interface* const old = std::exchange(object_, owned);
    if (old != nullptr) old->Release();
  }

 private:
  Interface* object_ = nullptr;
};

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wnon-virtual-dtor"  // as in webview2.h

// A handler with the one method Invoke(First, Second), created with one reference. Supports
// IUnknown and its own id only. The system enters the program here: exceptions become E_FAIL.
template <typename Interface, typename First, typename Second>
class Callback final : public Interface {
 public:
  using Function = std::function<void(First, Second)>;

  Callback(const GUID& id, Function function) : id_(id), function_(std::move(function)) {}
  Callback(const Callback&) = delete;
  Callback& operator=(const Callback&) = delete;

  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID wanted, void** object) noexcept override {
    if (object == nullptr) return E_POINTER;
    if (IsEqualGUID(wanted, id_) == 0 && IsEqualGUID(wanted, IID_IUnknown) == 0) {
      *object = nullptr;
      return E_NOINTERFACE;
    }
    AddRef();
    *object = static_cast<Interface*>(this);
    return S_OK;
  }

  ULONG STDMETHODCALLTYPE AddRef() noexcept override { return ++references_; }

  ULONG STDMETHODCALLTYPE Release() noexcept override {
    const ULONG left = --references_;
    if (left == 0) delete this;
    return left;
  }

  HRESULT STDMETHODCALLTYPE Invoke(First first, Second second) noexcept override {
    try {
      function_(first, second);
      return S_OK;
    } catch (...) {
      return E_FAIL;
    }
  }

 private:
  ~Callback() = default;

  const GUID id_;
  const Function function_;
  std::atomic<ULONG> references_{1};
};

#pragma GCC diagnostic pop

using EnvironmentCompleted = Callback<ICoreWebView2CreateCoreWebView2EnvironmentCompletedHandler,
                                      HRESULT, ICoreWebView2Environment*>;
using ControllerCompleted = Callback<ICoreWebView2CreateCoreWebView2ControllerCompletedHandler,
                                     HRESULT, ICoreWebView2Controller*>;
using WebMessageReceived = Callback<ICoreWebView2WebMessageReceivedEventHandler, ICoreWebView2*,
                                    ICoreWebView2WebMessageReceivedEventArgs*>;
using ProcessFailed = Callback<ICoreWebView2ProcessFailedEventHandler, ICoreWebView2*,
                               ICoreWebView2ProcessFailedEventArgs*>;

}  // namespace webview
