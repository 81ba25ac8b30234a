#include "checks/system_services.h"
#include "platform/handles_win.h"
// After the SDK, which it needs.
#include <winsvc.h>

#include <memory>
#include <optional>
#include <vector>

namespace checks {
namespace {

constexpr wchar_t kServicesKey[] = L"SYSTEM\\CurrentControlSet\\Services\\";

struct ServiceHandleTraits {
  using Raw = SC_HANDLE;
  static Raw Invalid() noexcept { return nullptr; }
  static bool IsValid(Raw handle) noexcept { return handle != nullptr; }
  static void Close(Raw handle) noexcept { ::CloseServiceHandle(handle); }
};
using ServiceHandle = platform::UniqueHandle<ServiceHandleTraits>;

bool IsMarkedForDeletion(const std::wstring& name) {
  DWORD flag = 0;
  DWORD sizeBytes = sizeof(flag);
  const LSTATUS status =
      ::RegGetValueW(HKEY_LOCAL_MACHINE, (kServicesKey + name).c_str(), L"DeleteFlag",
                     RRF_RT_REG_DWORD, nullptr, &flag, &sizeBytes);
  return status == ERROR_SUCCESS && flag != 0;
}

// Adds the service's configuration.
void AddConfiguration(SC_HANDLE manager, ServiceFacts& service) {
  // The manager does not report the mark; it keeps it in the registry.
  service.isMarkedForDeletion = IsMarkedForDeletion(service.name);
  const ServiceHandle opened(::OpenServiceW(manager, service.name.c_str(), SERVICE_QUERY_CONFIG));
  // Without the right to ask, the service is still listed by its name.
  if (!opened) return;
  DWORD neededBytes = 0;
  // Fails, and returns the required size.
  ::QueryServiceConfigW(opened.Get(), nullptr, 0, &neededBytes);
  // operator new[] aligns for any record.
  const auto buffer = std::make_unique<std::byte[]>(neededBytes);
  auto* const config = reinterpret_cast<QUERY_SERVICE_CONFIGW*>(buffer.get());
  if (neededBytes < sizeof(*config) ||
      ::QueryServiceConfigW(opened.Get(), config, neededBytes, &neededBytes) == FALSE) {
    return;
  }
  service.isDisabled = config->dwStartType == SERVICE_DISABLED;
  if (config->lpBinaryPathName != nullptr) service.path = config->lpBinaryPathName;
}

// The records and, in the same buffer, their texts.
struct DriverList {
  std::vector<std::byte> buffer;
  DWORD count = 0;
  DWORD error = 0;
};

DriverList EnumerateDrivers(SC_HANDLE manager) {
  constexpr int kTries = 3;  // drivers may be added after the query for the size
  DriverList list;
  DWORD sizeBytes = 0;
  for (int i = 0; i < kTries; ++i) {
    DWORD missingBytes = 0;
    DWORD resume = 0;
    list.error = 0;
    const BOOL isWhole =
        ::EnumServicesStatusExW(manager, SC_ENUM_PROCESS_INFO, SERVICE_DRIVER, SERVICE_STATE_ALL,
                                reinterpret_cast<BYTE*>(list.buffer.data()), sizeBytes,
                                &missingBytes, &list.count, &resume, nullptr);
    if (isWhole != FALSE) return list;
    list.error = ::GetLastError();
    // A partial list would look complete.
    list.count = 0;
    if (list.error != ERROR_MORE_DATA) return list;
    sizeBytes += missingBytes;
    list.buffer.resize(sizeBytes);
  }
  return list;
}

}  // namespace

ServiceList ListDrivers() {
  ServiceList result;
  // Enumerating requires no administrator rights, so the report also works without them.
  const ServiceHandle manager(
      ::OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT | SC_MANAGER_ENUMERATE_SERVICE));
  const DWORD openError = ::GetLastError();
  if (!manager) {
    result.error = openError;
    return result;
  }
  const DriverList list = EnumerateDrivers(manager.Get());
  result.error = list.error;
  const auto* const records =
      reinterpret_cast<const ENUM_SERVICE_STATUS_PROCESSW*>(list.buffer.data());
  for (DWORD i = 0; i < list.count; ++i) {
    ServiceFacts service;
    service.name = records[i].lpServiceName;
    service.displayName = records[i].lpDisplayName;
    service.isRunning = records[i].ServiceStatusProcess.dwCurrentState == SERVICE_RUNNING;
    // The check needs the names of all drivers, but the configuration of these only.
    if (IsWinDivertService(service.name)) AddConfiguration(manager.Get(), service);
    result.drivers.push_back(std::move(service));
  }
  return result;
}

}  // namespace checks
