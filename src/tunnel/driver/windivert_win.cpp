#include <type_traits>
#include <utility>

#include "platform/handles_win.h"
#include "platform/modules_win.h"
#include "tunnel/driver/windivert.h"

namespace tunnel {

std::unique_ptr<WinDivertApi> LoadWinDivert() {
  auto api = std::make_unique<WinDivertApi>();
  platform::Module module(::LoadLibraryW(L"WinDivert.dll"));
  const DWORD error = ::GetLastError();
  if (!module) throw DriverError("WinDivert.dll was not found in the runtime cache.", error);
  const HMODULE library = module.Get();
  // Owned by the record before anything is bound, so that a missing export frees the library.
  api->module = std::make_shared<platform::Module>(std::move(module));

  const auto bind = [library](auto& function, const char* name) {
    function =
        platform::GetProcAddressAs<std::remove_reference_t<decltype(function)>>(library, name);
    return function != nullptr;
  };
  if (!bind(api->open, "WinDivertOpen") || !bind(api->recv, "WinDivertRecv") ||
      !bind(api->send, "WinDivertSend") ||
      !bind(api->calcChecksums, "WinDivertHelperCalcChecksums") ||
      !bind(api->close, "WinDivertClose")) {
    throw DriverError("WinDivert.dll is missing required exports.", 0);
  }
  api->lastError = []() -> std::uint32_t { return ::GetLastError(); };
  return api;
}

}  // namespace tunnel
