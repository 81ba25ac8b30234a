#include <array>

#include "checks/computer_checks.h"
#include "platform/computer.h"
#include "platform/desktop_user.h"
#include "platform/handles_win.h"
#include "platform/modules_win.h"
#include "platform/path.h"
#include "platform/safe_files.h"
#include "platform/signature.h"

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

// The file goes when its handle does, also with a process that is killed.
DWORD WriteProbe(const std::wstring& folder) {
  const std::wstring path = platform::JoinPath(folder, kProbeName);
  const platform::FileHandle probe(
      ::CreateFileW(path.c_str(), GENERIC_WRITE | DELETE, 0, nullptr, CREATE_NEW,
                    FILE_ATTRIBUTE_NORMAL | FILE_FLAG_DELETE_ON_CLOSE, nullptr));
  const DWORD createError = ::GetLastError();
  if (!probe) return createError;
  const std::array<char, kProbeBytes> bytes{};
  DWORD writtenBytes = 0;
  const bool isWritten =
      ::WriteFile(probe.Get(), bytes.data(), kProbeBytes, &writtenBytes, nullptr) != FALSE;
  const DWORD writeError = ::GetLastError();
  if (!isWritten) return writeError;
  return writtenBytes == kProbeBytes ? 0 : ERROR_DISK_FULL;
}

}  // namespace

ProgramFacts ReadProgramFacts(const std::wstring& version, const std::string& signerPin) {
  ProgramFacts facts;
  facts.version = version;
  facts.signerPin = signerPin;
  facts.path = platform::ProgramPath();
  const platform::HeldFile file = platform::HoldFile(facts.path);
  if (!file.result.succeeded) return facts;
  facts.sizeBytes = file.bytes.size();
  facts.sha256 =
      platform::Sha256Hex(std::as_bytes(std::span(file.bytes.data(), file.bytes.size())));
  if (signerPin.empty()) return facts;
  const platform::Signature signature = platform::VerifySignature(file, facts.path);
  facts.trustError = signature.trustError;
  facts.signerKeySha256 = signature.signerKeySha256;
  return facts;
}

SystemFacts ReadSystemFacts() {
  SystemFacts facts;
  facts.isArm64 = platform::IsArm64Windows();
  // GetVersionEx tells a program what its manifest wants to hear.
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
  while (!IsThere(facts.probed)) {
    const std::wstring parent = platform::ParentFolder(facts.probed);
    if (parent.empty()) break;
    facts.probed = parent;
  }
  facts.error = WriteProbe(facts.probed);
  ULARGE_INTEGER freeBytes{};
  if (::GetDiskFreeSpaceExW(facts.probed.c_str(), &freeBytes, nullptr, nullptr) != FALSE) {
    facts.freeBytes = freeBytes.QuadPart;
  }
  return facts;
}

}  // namespace checks
