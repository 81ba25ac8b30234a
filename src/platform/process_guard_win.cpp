#include "platform/process_guard.h"

#include <string>
#include <vector>

#include "platform/unique_handle.h"
#include "platform/windows_sdk.h"
#include "text/strings.h"
// After the SDK, which it needs.
#include <delayimp.h>

namespace platform {
namespace {

struct EnvironmentTraits {
  using Raw = wchar_t*;
  static Raw Invalid() noexcept { return nullptr; }
  static bool IsValid(Raw block) noexcept { return block != nullptr; }
  static void Close(Raw block) noexcept { ::FreeEnvironmentStringsW(block); }
};
using Environment = UniqueHandle<EnvironmentTraits>;

// Called for each step of loading a library that is imported late (cmake/delayed_imports.cmake).
FARPROC WINAPI LoadFromSystemFolder(unsigned step, DelayLoadInfo* info) {
  if (step != dliNotePreLoadLibrary) return nullptr;
  return reinterpret_cast<FARPROC>(reinterpret_cast<void*>(
      ::LoadLibraryExA(info->szDll, nullptr, LOAD_LIBRARY_SEARCH_SYSTEM32)));
}

// Each policy is one word of flags; some of mingw-w64's structures for them come out longer.
void SetPolicy(PROCESS_MITIGATION_POLICY kind, DWORD flags) noexcept {
  ::SetProcessMitigationPolicy(kind, &flags, sizeof(flags));
}

}  // namespace

void LimitLibrarySearch() noexcept {
  __pfnDliNotifyHook2 = &LoadFromSystemFolder;
  ::SetDefaultDllDirectories(LOAD_LIBRARY_SEARCH_SYSTEM32 | LOAD_LIBRARY_SEARCH_USER_DIRS);
}

void RefuseForeignLibraries() noexcept {
  constexpr DWORD kDisableExtensionPoints = 1;
  SetPolicy(ProcessExtensionPointDisablePolicy, kDisableExtensionPoints);

  constexpr DWORD kNoRemoteImages = 1;
  constexpr DWORD kNoLowMandatoryLabelImages = 2;
  constexpr DWORD kPreferSystem32Images = 4;
  SetPolicy(ProcessImageLoadPolicy,
            kNoRemoteImages | kNoLowMandatoryLabelImages | kPreferSystem32Images);
}

void ForbidDynamicCode() noexcept {
  constexpr DWORD kProhibitDynamicCode = 1;
  SetPolicy(ProcessDynamicCodePolicy, kProhibitDynamicCode);
}

void ForgetVariables(std::wstring_view prefix) {
  const Environment block(::GetEnvironmentStringsW());
  if (!block) return;
  const std::wstring wanted = text::FoldCase(prefix);
  std::vector<std::wstring> names;
  for (std::wstring_view entry = block.Get(); !entry.empty();
       entry = std::wstring_view(entry.data() + entry.size() + 1)) {
    const std::wstring name(entry.substr(0, entry.find(L'=')));
    if (text::FoldCase(name).starts_with(wanted)) names.push_back(name);
  }
  for (const std::wstring& name : names) ::SetEnvironmentVariableW(name.c_str(), nullptr);
}

}  // namespace platform
