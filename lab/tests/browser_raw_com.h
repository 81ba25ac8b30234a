#pragma once

// COM by hand: methods by slot number, ids by text, handlers with their own tables. Shares nothing
// with the stand-in or the program, so that a wrong slot is detected.

#include "platform/windows_sdk.h"

#include <objbase.h>

#include <functional>
#include <string>

template <typename... Arguments>
HRESULT CallSlot(void* object, size_t slot, Arguments... arguments) {
  using Method = HRESULT(STDMETHODCALLTYPE*)(void*, Arguments...);
  void** table = *static_cast<void***>(object);
  return reinterpret_cast<Method>(table[slot])(object, arguments...);
}

inline GUID GuidOf(const wchar_t* text) {
  GUID guid{};
  ::CLSIDFromString((L"{" + std::wstring(text) + L"}").c_str(), &guid);
  return guid;
}

inline HRESULT Query(void* object, const wchar_t* iid, void** out) {
  const GUID guid = GuidOf(iid);
  return CallSlot(object, 0, &guid, out);
}

inline void AddRefRaw(void* object) {
  CallSlot(object, 1);
}
inline void ReleaseRaw(void* object) {
  if (object != nullptr) CallSlot(object, 2);
}

// Calls a getter for a string and frees the string as a caller must.
inline std::wstring TakeString(void* object, size_t slot) {
  LPWSTR text = nullptr;
  if (FAILED(CallSlot(object, slot, &text)) || text == nullptr) return L"(none)";
  std::wstring copy(text);
  ::CoTaskMemFree(text);
  return copy;
}

// A callback object. Invoke's two arguments arrive as raw register values.
class RawHandler {
 public:
  using Function = std::function<void(void* first, void* second)>;
  explicit RawHandler(Function invoked) : function(std::move(invoked)) {}

  const void* const* table = kTable;  // must be the first member
  Function function;
  ULONG references = 1;
  int calls = 0;
  DWORD thread = 0;

 private:
  static HRESULT STDMETHODCALLTYPE NoInterface(RawHandler*, const GUID*, void** out) {
    *out = nullptr;
    return E_NOINTERFACE;
  }
  static ULONG STDMETHODCALLTYPE Keep(RawHandler* self) { return ++self->references; }
  static ULONG STDMETHODCALLTYPE Drop(RawHandler* self) { return --self->references; }
  static HRESULT STDMETHODCALLTYPE Invoke(RawHandler* self, void* first, void* second) {
    ++self->calls;
    self->thread = ::GetCurrentThreadId();
    self->function(first, second);
    return S_OK;
  }
  static inline const void* const kTable[4] = {
      reinterpret_cast<const void*>(&NoInterface), reinterpret_cast<const void*>(&Keep),
      reinterpret_cast<const void*>(&Drop), reinterpret_cast<const void*>(&Invoke)};
};

// The HRESULT in Invoke's first argument.
inline HRESULT ResultOf(void* first) {
  return static_cast<HRESULT>(reinterpret_cast<uintptr_t>(first) & 0xffffffffu);
}

// Runs the message loop until `done` or for at most `milliseconds`; returns the last `done()`.
inline bool Pump(const std::function<bool()>& done, DWORD milliseconds = 5000) {
  const ULONGLONG end = ::GetTickCount64() + milliseconds;
  while (!done()) {
    if (::GetTickCount64() > end) return false;
    ::MsgWaitForMultipleObjects(0, nullptr, FALSE, 10, QS_ALLINPUT);
    MSG message;
    while (!done() && ::PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE) != FALSE) {
      ::TranslateMessage(&message);
      ::DispatchMessageW(&message);
    }
  }
  return true;
}
