#include "win32/import_table.h"

#include "platform/windows_sdk.h"

namespace win32 {

ImportTable ReadImportTable() {
  ImportTable table;
  auto* base = reinterpret_cast<unsigned char*>(::GetModuleHandleW(nullptr));
  const auto* dos = reinterpret_cast<const IMAGE_DOS_HEADER*>(base);
  const auto* headers = reinterpret_cast<const IMAGE_NT_HEADERS64*>(base + dos->e_lfanew);
  const IMAGE_DATA_DIRECTORY& imports =
      headers->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT];
  auto* module = reinterpret_cast<const IMAGE_IMPORT_DESCRIPTOR*>(base + imports.VirtualAddress);
  for (; module->Name != 0; ++module) {
    auto* name = reinterpret_cast<const IMAGE_THUNK_DATA64*>(base + module->OriginalFirstThunk);
    auto** place = reinterpret_cast<void**>(base + module->FirstThunk);
    for (; name->u1.AddressOfData != 0; ++name, ++place) {
      if (IMAGE_SNAP_BY_ORDINAL64(name->u1.Ordinal)) continue;
      const auto* hint =
          reinterpret_cast<const IMAGE_IMPORT_BY_NAME*>(base + name->u1.AddressOfData);
      table.emplace(reinterpret_cast<const char*>(hint->Name), place);
    }
  }
  return table;
}

bool SetImport(void** place, void* value) {
  DWORD before = 0;
  if (!::VirtualProtect(place, sizeof(*place), PAGE_READWRITE, &before)) return false;
  *place = value;
  return ::VirtualProtect(place, sizeof(*place), before, &before) != FALSE;
}

}  // namespace win32
