#include "tests/driver_library.h"

#include <stdexcept>
#include <string>

namespace {

std::wstring LibraryPath() {
  wchar_t path[MAX_PATH] = {};
  ::GetModuleFileNameW(nullptr, path, MAX_PATH);
  std::wstring folder(path);
  folder.resize(folder.find_last_of(L'\\'));
  return folder + L"\\..\\lab\\driver\\WinDivert.dll";
}

}  // namespace

Library::Library()
    : module_(::LoadLibraryW(LibraryPath().c_str())),
      open(Bind<Open>("WinDivertOpen")),
      recv(Bind<Recv>("WinDivertRecv")),
      recvEx(Bind<RecvEx>("WinDivertRecvEx")),
      send(Bind<Send>("WinDivertSend")),
      sendEx(Bind<SendEx>("WinDivertSendEx")),
      shutdown(Bind<BOOL (*)(HANDLE, int)>("WinDivertShutdown")),
      close(Bind<BOOL (*)(HANDLE)>("WinDivertClose")),
      setParam(Bind<BOOL (*)(HANDLE, int, UINT64)>("WinDivertSetParam")),
      getParam(Bind<BOOL (*)(HANDLE, int, UINT64*)>("WinDivertGetParam")),
      calc(Bind<BOOL (*)(void*, UINT, Record*, UINT64)>("WinDivertHelperCalcChecksums")),
      compile(Bind<Compile>("WinDivertHelperCompileFilter")),
      eval(Bind<BOOL (*)(const char*, const void*, UINT, const Record*)>(
          "WinDivertHelperEvalFilter")) {
  if (!module_) throw std::runtime_error("WinDivert.dll does not load.");
}

void* Library::Find(const char* name) const {
  return reinterpret_cast<void*>(::GetProcAddress(module_.Get(), name));
}
