#include <array>

#include "checks/computer_checks.h"
#include "platform/computer.h"
#include "platform/desktop_user.h"
#include "platform/handles_win.h"
#include "platform/modules_win.h"
#include "platform/path.h"
#include "platform/safe_files.h"
#include "platform/signature.h"
// After the SDK, which it needs.
#include <powrprof.h>

namespace checks {
namespace {

constexpr wchar_t kProbeName[] = L"Velmarine.Check.probe";
constexpr std::size_t kProbeBytes = 4096;

std::optional<bool> IsElevated() {
  HANDLE opened = nullptr;
  if (::OpenProcessToken(::GetCurrentProcess(), TOKEN_QUERY, &opened) == FALSE) {
    return std::nullopt;
  }
  const platform::FileHandle token(opened);
  TOKEN_ELEVATION elevation{};
  DWORD sizeBytes = 0;
  if (::GetTokenInformation(token.Get(), TokenElevation, &elevation, sizeof(elevation),
                            &sizeBytes) == FALSE) {
    return std::nullopt;
  }
  return elevation.TokenIsElevated != 0;
}

bool IsThere(const std::wstring& folder) {
  return ::GetFileAttributesW(folder.c_str()) != INVALID_FILE_ATTRIBUTES;
}

// The system deletes the file with its handle, even if the process is killed.
DWORD WriteProbe(const std::wstring& folder) {
  const std::wstring path = platform::JoinPath(folder, kProbeName);
  const platform::FileHandle probe(
      // CREATE_NEW: an existing file of that name would be deleted with the handle.
      ::CreateFileW(path.c_str(), GENERIC_WRITE | DELETE, 0, nullptr, CREATE_NEW,
                    FILE_ATTRIBUTE_NORMAL | FILE_FLAG_DELETE_ON_CLOSE, nullptr));
  const DWORD createError = ::GetLastError();
  if (!probe) return createError;
  // With contents: a full disk may still take an empty file.
  const std::array<char, kProbeBytes> bytes{};
  DWORD writtenBytes = 0;
  const bool isWritten =
      ::WriteFile(probe.Get(), bytes.data(), kProbeBytes, &writtenBytes, nullptr) != FALSE;
  const DWORD writeError = ::GetLastError();
  if (!isWritten) return writeError;
  return writtenBytes == kProbeBytes ? 0 : ERROR_DISK_FULL;
}

// Windows' names; mingw-w64's header lacks some.
constexpr GUID kSleep = {
    0x238C9FA8, 0x0AAD, 0x41ED, {0x83, 0xF4, 0x97, 0xBE, 0x24, 0x2C, 0x8F, 0x20}};
constexpr GUID kSleepAfter = {
    0x29F6C1DB, 0x86DA, 0x48C5, {0x9F, 0xDB, 0xF2, 0xB6, 0x7B, 0x1F, 0x44, 0xDA}};
constexpr GUID kButtons = {
    0x4F971E89, 0xEEBD, 0x4455, {0xA8, 0xDE, 0x9E, 0x59, 0x04, 0x0E, 0x73, 0x47}};
constexpr GUID kLidAction = {
    0x5CA83367, 0x6E45, 0x459F, {0xA2, 0x7B, 0x47, 0x6B, 0x1D, 0x01, 0xC9, 0x36}};
constexpr GUID kUsb = {
    0x2A737441, 0x1930, 0x4402, {0x8D, 0x77, 0xB2, 0xBE, 0xBB, 0xA3, 0x08, 0xA3}};
constexpr GUID kUsbSuspend = {
    0x48E6B7A6, 0x50F5, 0x4782, {0xA5, 0xD4, 0x53, 0xBB, 0x8F, 0x07, 0xE2, 0x26}};
constexpr GUID kWifi = {
    0x19CBB8FA, 0x5279, 0x450E, {0x9F, 0xAC, 0x8A, 0x3D, 0x5F, 0xED, 0xD0, 0xC1}};
constexpr GUID kWifiSaving = {
    0x12BBEBE6, 0x58D6, 0x4636, {0x95, 0xBB, 0x32, 0x17, 0xEF, 0x86, 0x7C, 0x1A}};

using GetActiveScheme = DWORD(WINAPI*)(HKEY, GUID**);
using ReadValue = DWORD(WINAPI*)(HKEY, const GUID*, const GUID*, const GUID*, DWORD*);
using GetCapabilities = BOOLEAN(WINAPI*)(SYSTEM_POWER_CAPABILITIES*);

struct PowerLibrary {
  platform::Module module;
  GetActiveScheme getActiveScheme = nullptr;
  ReadValue readOnMains = nullptr;
  ReadValue readOnBattery = nullptr;
  GetCapabilities getCapabilities = nullptr;
};

// Loaded on demand, and only from Windows' own folder.
PowerLibrary LoadPowerLibrary() {
  PowerLibrary library;
  library.module.Reset(::LoadLibraryExW(L"powrprof.dll", nullptr, LOAD_LIBRARY_SEARCH_SYSTEM32));
  const HMODULE module = library.module.Get();
  if (module == nullptr) return library;
  library.getActiveScheme =
      platform::GetProcAddressAs<GetActiveScheme>(module, "PowerGetActiveScheme");
  library.readOnMains = platform::GetProcAddressAs<ReadValue>(module, "PowerReadACValueIndex");
  library.readOnBattery = platform::GetProcAddressAs<ReadValue>(module, "PowerReadDCValueIndex");
  library.getCapabilities =
      platform::GetProcAddressAs<GetCapabilities>(module, "GetPwrCapabilities");
  return library;
}

PowerSetting ReadSetting(const PowerLibrary& library, const GUID& plan, const GUID& group,
                         const GUID& setting) {
  PowerSetting found;
  DWORD value = 0;
  if (library.readOnMains != nullptr &&
      library.readOnMains(nullptr, &plan, &group, &setting, &value) == ERROR_SUCCESS) {
    found.onMains = value;
  }
  if (library.readOnBattery != nullptr &&
      library.readOnBattery(nullptr, &plan, &group, &setting, &value) == ERROR_SUCCESS) {
    found.onBattery = value;
  }
  return found;
}

}  // namespace

ProgramFacts ReadProgramFacts(const std::wstring& version, const std::string& signerPin) {
  ProgramFacts facts;
  facts.version = version;
  facts.signerPin = signerPin;
  facts.path = platform::ProgramPath();
  // Held, so that sum and signature are of the same bytes.
  const platform::HeldFile file = platform::HoldFile(facts.path);
  if (!file.result.succeeded) return facts;
  facts.sizeBytes = file.bytes.size();
  facts.sha256 =
      platform::Sha256Hex(std::as_bytes(std::span(file.bytes.data(), file.bytes.size())));
  // Such a build accepts any update, so there is nothing to compare.
  if (signerPin.empty()) return facts;
  const platform::Signature signature = platform::VerifySignature(file, facts.path);
  facts.trustError = signature.trustError;
  facts.signerKeySha256 = signature.signerKeySha256;
  return facts;
}

SystemFacts ReadSystemFacts() {
  SystemFacts facts;
  facts.isArm64 = platform::IsArm64Windows();
  // Not GetVersionEx: its answer depends on the program's manifest.
  using GetVersion = LONG(WINAPI*)(OSVERSIONINFOW*);
  const auto getVersion =
      platform::GetProcAddressAs<GetVersion>(::GetModuleHandleW(L"ntdll.dll"), "RtlGetVersion");
  OSVERSIONINFOW version{};
  version.dwOSVersionInfoSize = sizeof(version);
  if (getVersion != nullptr && getVersion(&version) == 0) {
    facts.major = version.dwMajorVersion;
    facts.minor = version.dwMinorVersion;
    facts.build = version.dwBuildNumber;
  }
  using GetDpi = UINT(WINAPI*)();
  const auto getDpi =
      platform::GetProcAddressAs<GetDpi>(::GetModuleHandleW(L"user32.dll"), "GetDpiForSystem");
  if (getDpi != nullptr) facts.dpi = getDpi();
  return facts;
}

RightsFacts ReadRightsFacts() {
  return {IsElevated(), platform::OtherDesktopUser().has_value()};
}

FolderFacts ProbeFolder(const std::wstring& name, const std::wstring& path) {
  FolderFacts facts;
  facts.name = name;
  facts.path = path;
  facts.probed = path;
  // The report must not create folders, so a missing one is judged by its parent.
  while (!IsThere(facts.probed)) {
    const std::wstring parent = platform::ParentFolder(facts.probed);
    // The drive itself is missing; the probe then reports why.
    if (parent.empty()) break;
    facts.probed = parent;
  }
  facts.error = WriteProbe(facts.probed);
  ULARGE_INTEGER freeBytes{};
  // The caller's share, which a quota may limit.
  if (::GetDiskFreeSpaceExW(facts.probed.c_str(), &freeBytes, nullptr, nullptr) != FALSE) {
    facts.freeBytes = freeBytes.QuadPart;
  }
  return facts;
}

PowerFacts ReadPowerFacts() {
  PowerFacts facts;
  const PowerLibrary library = LoadPowerLibrary();
  if (library.getActiveScheme == nullptr) {
    facts.error = ERROR_PROC_NOT_FOUND;
    return facts;
  }
  SYSTEM_POWER_CAPABILITIES capabilities{};
  // Without this answer the computer counts as one without a battery.
  if (library.getCapabilities != nullptr && library.getCapabilities(&capabilities) != FALSE) {
    facts.hasBattery = capabilities.SystemBatteriesPresent != FALSE;
    facts.hasModernStandby = capabilities.spare2[2] != 0;  // AoAc, which this header lacks
  }
  GUID* allocated = nullptr;
  // The settings belong to a plan; only those of the active one apply.
  facts.error = library.getActiveScheme(nullptr, &allocated);
  if (facts.error != 0 || allocated == nullptr) return facts;
  const GUID plan = *allocated;
  ::LocalFree(allocated);
  facts.sleepSeconds = ReadSetting(library, plan, kSleep, kSleepAfter);
  facts.lidAction = ReadSetting(library, plan, kButtons, kLidAction);
  facts.usbSuspend = ReadSetting(library, plan, kUsb, kUsbSuspend);
  facts.wifiSaving = ReadSetting(library, plan, kWifi, kWifiSaving);
  return facts;
}

}  // namespace checks
