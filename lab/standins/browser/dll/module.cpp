#include "module.h"

namespace browser {
namespace {

HINSTANCE Find(DWORD flags) {
  HMODULE module = nullptr;
  ::GetModuleHandleExW(flags | GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS,
                       reinterpret_cast<LPCWSTR>(&OwnModule), &module);
  return module;
}

}  // namespace

HINSTANCE OwnModule() {
  return Find(GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT);
}

void StayLoaded() {
  Find(GET_MODULE_HANDLE_EX_FLAG_PIN);
}

}  // namespace browser
