#include "win32/hooks.h"

#include <array>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "win32/calls.h"
#include "win32/import_table.h"

namespace win32 {
namespace {

SRWLOCK recordLock = SRWLOCK_INIT;
std::atomic<Calls*> current{nullptr};

// The bits of a pointer or number; 0 for anything else.
template <typename T>
std::uintptr_t AsNumber(const T& value) {
  if constexpr (std::is_pointer_v<T>) {
    return reinterpret_cast<std::uintptr_t>(value);
  } else if constexpr (std::is_integral_v<T>) {
    return static_cast<std::uintptr_t>(value);
  } else {
    return 0;
  }
}

}  // namespace

Calls* CallsOfThisThread();

template <Api api, typename Signature>
struct Hook;

// The target of the program's call. Preserves the last error: until the real function runs, as the
// caller left it; afterwards, as that function left it.
template <Api api, typename R, typename... A>
struct Hook<api, R (*)(A...)> {
  static R WINAPI Run(A... arguments) {
    const DWORD errorBefore = Hooks::LastError();
    Calls* const calls = CallsOfThisThread();
    if (calls == nullptr) {
      Hooks::SetLastError(errorBefore);
      return Real<api>()(arguments...);
    }
    const Order order = calls->Enter(api, __builtin_return_address(0),
                                     JoinCall(api, PrintAll(calls->names_, arguments...)),
                                     Argument<0>(arguments...));
    Hooks::SetLastError(errorBefore);
    if constexpr (std::is_void_v<R>) {
      Go(*calls, arguments...);
    } else {
      if (order.fails) return Failure(order.error, arguments...);
      R result = Go(*calls, arguments...);
      const DWORD errorAfter = Hooks::LastError();
      NoteGiven(*calls, result, arguments...);
      Hooks::SetLastError(errorAfter);
      return result;
    }
  }

 private:
  static R Go(const Calls& calls, A... arguments) {
    if (const auto& answer = calls.answers_[static_cast<std::size_t>(api)]) {
      return (*static_cast<std::function<R(A...)>*>(answer.get()))(arguments...);
    }
    return Real<api>()(arguments...);
  }

  template <typename T>
  static R As(T value) {
    if constexpr (std::is_pointer_v<R>) {
      return reinterpret_cast<R>(static_cast<std::intptr_t>(value));
    } else if constexpr (std::is_void_v<R>) {
      return;
    } else {
      return static_cast<R>(value);
    }
  }

  static R Failure(DWORD error, A... arguments) {
    constexpr FailsAs kHow = Of(api).failsAs;
    if constexpr (kHow == FailsAs::Close || kHow == FailsAs::CloseToError) {
      Real<api>()(arguments...);
    }
    Hooks::SetLastError(error);
    if constexpr (kHow == FailsAs::Error || kHow == FailsAs::CloseToError) return As(error);
    if constexpr (kHow == FailsAs::HResult) return As(HRESULT_FROM_WIN32(error));
    if constexpr (kHow == FailsAs::MinusOne) return As(-1);
    return As(0);
  }

  template <std::size_t index>
  static std::uintptr_t Argument(A... arguments) {
    if constexpr (index < sizeof...(A)) {
      return AsNumber(std::get<index>(std::forward_as_tuple(arguments...)));
    } else {
      return 0;
    }
  }

  static std::vector<std::string> PrintAll(const Names& names, A... arguments) {
    std::vector<std::string> texts;
    {
      const Hooks::Lock held;
      texts = {Print(arguments, names)...};
    }
    if constexpr (api == Api::GetProcAddress || api == Api::getaddrinfo) {
      const auto text = [](const char* it) { return PrintBytes(it, it ? std::strlen(it) : 0); };
      const auto all = std::forward_as_tuple(arguments...);
      texts[1] = text(std::get<1>(all));
      if constexpr (api == Api::getaddrinfo) texts[0] = text(std::get<0>(all));
    }
    if constexpr (api == Api::EnumWindows) {  // the argument of the caller's function
      const auto all = std::forward_as_tuple(arguments...);
      texts[1] = PrintPointer(reinterpret_cast<const void*>(std::get<1>(all)), Names());
    }
    if constexpr (api == Api::SendMessageTimeoutW) {  // the name of the changed setting
      const auto all = std::forward_as_tuple(arguments...);
      if (std::get<1>(all) == WM_SETTINGCHANGE) {
        texts[3] = Print(reinterpret_cast<const wchar_t*>(std::get<3>(all)));
      }
    }
    constexpr int kBytesAt = Of(api).bytesAt;
    if constexpr (kBytesAt >= 0) {
      constexpr auto kAt = static_cast<std::size_t>(kBytesAt);
      const auto all = std::forward_as_tuple(arguments...);
      texts[kAt] = PrintBytes(reinterpret_cast<const void*>(std::get<kAt>(all)),
                              static_cast<std::size_t>(std::get<kAt + 1>(all)));
    }
    return texts;
  }

  // The value that a call returns: its result, if that is a pointer or a socket, or the value
  // stored through a parameter.
  template <typename Result>
  static void NoteGiven(Calls& calls, Result result, A... arguments) {
    const auto all = std::forward_as_tuple(arguments...);
    const auto give = [&calls](const auto& value) { calls.Give(api, AsNumber(value)); };
    if constexpr (api == Api::SetClipboardData) {
      if (result != nullptr) calls.Transfer(api, Argument<1>(arguments...));
    }
    if constexpr (std::is_pointer_v<R> && !std::is_function_v<std::remove_pointer_t<R>>) {
      give(result);
    } else if constexpr (api == Api::socket || api == Api::accept) {
      give(result);
    } else if constexpr (api == Api::CreateProcessW) {
      const PROCESS_INFORMATION* started = std::get<9>(all);
      if (result != FALSE) give(started->hProcess);
      if (result != FALSE) give(started->hThread);
    } else if constexpr (api == Api::RegOpenKeyExW) {
      if (result == ERROR_SUCCESS) give(*std::get<4>(all));
    } else if constexpr (api == Api::RegCreateKeyExW) {
      if (result == ERROR_SUCCESS) give(*std::get<7>(all));
    } else if constexpr (api == Api::SHGetKnownFolderPath) {
      give(*std::get<3>(all));
    } else if constexpr (api == Api::OpenProcessToken) {
      if (result != FALSE) give(*std::get<2>(all));
    } else if constexpr (api == Api::ConvertSidToStringSidW) {
      if (result != FALSE) give(*std::get<1>(all));
    } else if constexpr (api == Api::ShellExecuteExW) {
      if (result != FALSE) give(std::get<0>(all)->hProcess);
    } else if constexpr (api == Api::NotifyUnicastIpAddressChange) {
      if (result == NO_ERROR) give(*std::get<4>(all));
    } else if constexpr (api == Api::WTSQuerySessionInformationW) {
      if (result != FALSE) give(*std::get<3>(all));
    } else if constexpr (api == Api::FormatMessageW) {
      if ((std::get<0>(all) & FORMAT_MESSAGE_ALLOCATE_BUFFER) != 0 && result != 0) {
        give(*reinterpret_cast<void**>(std::get<4>(all)));
      }
    } else if constexpr (api == Api::getaddrinfo) {
      if (result == 0) give(*std::get<3>(all));
    }
  }
};

namespace {

template <Api api>
void* HookAddress() {
  return reinterpret_cast<void*>(&Hook<api, Pointer<api>>::Run);
}

struct Slot {
  void* hook = nullptr;
  void* real = nullptr;
  std::vector<void**> places;
};

// The program's import table, read once, before it is changed.
struct Table {
  Table() {
    const ImportTable imports = ReadImportTable();
    for (std::size_t i = 0; i < kApiCount; ++i) {
      const auto [first, last] = imports.equal_range(kFunctions[i].name);
      for (auto entry = first; entry != last; ++entry) slots[i].places.push_back(entry->second);
      if (!slots[i].places.empty()) slots[i].real = *slots[i].places.front();
    }
#define WIN32_HOOK(name, fails, bytesAt) \
  slots[static_cast<std::size_t>(Api::name)].hook = HookAddress<Api::name>();
    WIN32_FUNCTIONS(WIN32_HOOK)
#undef WIN32_HOOK
    const auto kernel = ::GetModuleHandleW(L"kernel32.dll");
    lastError = reinterpret_cast<DWORD(WINAPI*)()>(
        reinterpret_cast<void*>(::GetProcAddress(kernel, "GetLastError")));
    setLastError = reinterpret_cast<void(WINAPI*)(DWORD)>(
        reinterpret_cast<void*>(::GetProcAddress(kernel, "SetLastError")));
    program = reinterpret_cast<const char*>(::GetModuleHandleW(nullptr));
    wchar_t path[MAX_PATH] = {};
    ::GetModuleFileNameW(nullptr, path, MAX_PATH);
    recordPath = std::wstring(path) + L".calls";
    processId = ::GetCurrentProcessId();
  }

  void Put(bool hooks) const {
    for (const Slot& slot : slots) {
      for (void** place : slot.places) {
        if (!SetImport(place, hooks ? slot.hook : slot.real)) std::abort();
      }
    }
  }

  std::array<Slot, kApiCount> slots;
  DWORD(WINAPI* lastError)() = nullptr;
  void(WINAPI* setLastError)(DWORD) = nullptr;
  const char* program = nullptr;
  DWORD processId = 0;
  std::wstring recordPath;
};

const Table& TheTable() {
  static const Table table;
  return table;
}

}  // namespace

Hooks::Lock::Lock() noexcept {
  ::AcquireSRWLockExclusive(&recordLock);
}

Hooks::Lock::~Lock() {
  ::ReleaseSRWLockExclusive(&recordLock);
}

void Hooks::Attach(Calls* calls) {
  TheTable();
  Calls* none = nullptr;
  if (!current.compare_exchange_strong(none, calls)) std::abort();  // one at a time
  TheTable().Put(true);
}

void Hooks::Detach() {
  TheTable().Put(false);
  current = nullptr;
}

Calls* Hooks::Current() noexcept {
  return current;
}

DWORD Hooks::ThreadId() noexcept {
  return ::GetCurrentThreadId();
}

DWORD Hooks::LastError() noexcept {
  return TheTable().lastError();
}

void Hooks::SetLastError(DWORD error) noexcept {
  TheTable().setLastError(error);
}

unsigned long long Hooks::OffsetInProgram(const void* address) {
  return static_cast<unsigned long long>(static_cast<const char*>(address) - TheTable().program);
}

void Hooks::AppendToRecord(const std::vector<std::string>& lines) {
  static bool isBegun = false;
  std::FILE* record = ::_wfopen(TheTable().recordPath.c_str(), isBegun ? L"ab" : L"wb");
  isBegun = true;
  if (record == nullptr) std::abort();
  for (const std::string& line : lines) std::fprintf(record, "%s\n", line.c_str());
  std::fclose(record);
}

Calls* CallsOfThisThread() {
  Calls* const calls = Hooks::Current();
  if (calls == nullptr) return nullptr;
  const bool isMeant =
      calls->threads_ == Calls::Threads::All || calls->thread_ == Hooks::ThreadId();
  return isMeant ? calls : nullptr;
}

void* RealAddress(Api api) {
  return TheTable().slots[static_cast<std::size_t>(api)].real;
}

namespace {

struct OpenHandle {
  void* object;
  ULONG_PTR processId;
  ULONG_PTR handle;
  ULONG access;
  USHORT trace;
  USHORT type;
  ULONG attributes;
  ULONG reserved;
};

}  // namespace

// Wine's GetProcessHandleCount returns 0, so the system's list of handles is counted.
std::size_t OpenHandles() {
  using Query = LONG(WINAPI*)(ULONG, void*, ULONG, ULONG*);
  constexpr ULONG kExtendedHandles = 64;
  constexpr LONG kTooShort = static_cast<LONG>(0xC0000004);
  const auto query = reinterpret_cast<Query>(reinterpret_cast<void*>(Real<Api::GetProcAddress>()(
      Real<Api::GetModuleHandleW>()(L"ntdll.dll"), "NtQuerySystemInformation")));
  std::vector<std::byte> buffer(1 << 16);
  ULONG neededBytes = 0;
  while (query(kExtendedHandles, buffer.data(), static_cast<ULONG>(buffer.size()), &neededBytes) ==
         kTooShort) {
    buffer.resize(buffer.size() * 2);
  }
  const auto count = *reinterpret_cast<const ULONG_PTR*>(buffer.data());
  const auto* handles = reinterpret_cast<const OpenHandle*>(buffer.data() + 2 * sizeof(ULONG_PTR));
  std::size_t own = 0;
  for (ULONG_PTR i = 0; i < count; ++i) {
    if (handles[i].processId == TheTable().processId) ++own;
  }
  return own;
}

}  // namespace win32
