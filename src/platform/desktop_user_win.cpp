#include <memory>
#include <vector>

#include "platform/desktop_user.h"
#include "platform/handles_win.h"
#include "platform/mutex.h"
// After the SDK, which they need.
#include <knownfolders.h>
#include <objbase.h>
#include <sddl.h>
#include <shlobj.h>
#include <wtsapi32.h>

namespace platform {
namespace {

using TokenHandle = ProcessHandle;  // closed by CloseHandle, too

TokenHandle TokenOf(HANDLE process, DWORD access) {
  HANDLE token = nullptr;
  if (::OpenProcessToken(process, access, &token) == FALSE) return TokenHandle();
  return TokenHandle(token);
}

// Empty without a process, and when it denies access.
TokenHandle TokenOfProcess(std::uint32_t id, DWORD access) {
  if (id == 0) return TokenHandle();
  // The least right with which OpenProcessToken works.
  const ProcessHandle process(::OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, id));
  return process ? TokenOf(process.Get(), access) : TokenHandle();
}

std::wstring SidText(PSID sid) {
  wchar_t* text = nullptr;
  if (::ConvertSidToStringSidW(sid, &text) == FALSE) return {};
  const std::unique_ptr<wchar_t, decltype(&::LocalFree)> owned(text, &::LocalFree);
  return owned.get();
}

std::wstring SidOfToken(const TokenHandle& token) {
  if (!token) return {};
  // The first call fails and returns the size; the sid follows the structure in the same buffer.
  DWORD sizeBytes = 0;
  ::GetTokenInformation(token.Get(), TokenUser, nullptr, 0, &sizeBytes);
  std::vector<std::byte> buffer(sizeBytes);
  if (buffer.empty() || ::GetTokenInformation(token.Get(), TokenUser, buffer.data(), sizeBytes,
                                              &sizeBytes) == FALSE) {
    return {};
  }
  return SidText(static_cast<const TOKEN_USER*>(static_cast<void*>(buffer.data()))->User.Sid);
}

// The session's user is the desktop's. Returns his name, or that of his computer or domain.
std::wstring SessionText(WTS_INFO_CLASS what) {
  wchar_t* text = nullptr;
  DWORD sizeBytes = 0;
  if (::WTSQuerySessionInformationW(WTS_CURRENT_SERVER_HANDLE, WTS_CURRENT_SESSION, what, &text,
                                    &sizeBytes) == FALSE) {
    return {};
  }
  const std::unique_ptr<void, decltype(&::WTSFreeMemory)> owned(text, &::WTSFreeMemory);
  return text == nullptr ? std::wstring() : std::wstring(text);
}

std::wstring SidOfSession() {
  const std::wstring name = SessionText(WTSUserName);
  if (name.empty()) return {};
  // With the domain, because a local account may have the same name.
  const std::wstring account = SessionText(WTSDomainName) + L"\\" + name;
  std::vector<std::byte> sid(SECURITY_MAX_SID_SIZE);
  std::wstring domain(MAX_PATH, L'\0');
  auto sidBytes = static_cast<DWORD>(sid.size());
  auto domainUnits = static_cast<DWORD>(domain.size());
  SID_NAME_USE use = SidTypeUnknown;
  if (::LookupAccountNameW(nullptr, account.c_str(), sid.data(), &sidBytes, domain.data(),
                           &domainUnits, &use) == FALSE) {
    return {};
  }
  // The name may also be a group's or a computer's.
  return use == SidTypeUser ? SidText(sid.data()) : std::wstring();
}

std::wstring FolderOfToken(const TokenHandle& token) {
  if (!token) return {};
  wchar_t* path = nullptr;
  const HRESULT result =
      ::SHGetKnownFolderPath(FOLDERID_LocalAppData, KF_FLAG_DEFAULT, token.Get(), &path);
  // Must be freed after a failure, too.
  const std::unique_ptr<wchar_t, decltype(&::CoTaskMemFree)> owned(path, &::CoTaskMemFree);
  return SUCCEEDED(result) && path != nullptr ? std::wstring(path) : std::wstring();
}

// As the user's shell stored it. SHGetKnownFolderPath needs his token, which is out of reach here.
std::wstring FolderInRegistry(const std::wstring& sid) {
  const std::wstring key =
      sid + L"\\Software\\Microsoft\\Windows\\CurrentVersion\\Explorer\\Shell Folders";
  std::wstring path(MAX_PATH, L'\0');
  auto sizeBytes = static_cast<DWORD>(path.size() * sizeof(wchar_t));
  if (::RegGetValueW(HKEY_USERS, key.c_str(), L"Local AppData", RRF_RT_REG_SZ, nullptr, path.data(),
                     &sizeBytes) != ERROR_SUCCESS) {
    return {};
  }
  return path.c_str();  // up to the terminator; the buffer is longer
}

}  // namespace

std::uint32_t ShellProcess() {
  DWORD process = 0;
  const HWND shell = ::GetShellWindow();
  if (shell != nullptr) ::GetWindowThreadProcessId(shell, &process);
  return process;
}

std::wstring OwnSid() {
  return SidOfToken(TokenOf(::GetCurrentProcess(), TOKEN_QUERY));
}

std::wstring DesktopSid(std::uint32_t shellProcess) {
  const std::wstring sid = SidOfToken(TokenOfProcess(shellProcess, TOKEN_QUERY));
  return sid.empty() ? SidOfSession() : sid;
}

std::wstring DesktopLocalAppData(std::uint32_t shellProcess, const std::wstring& sid) {
  // SHGetKnownFolderPath requires both rights to the token of another user.
  const std::wstring folder =
      FolderOfToken(TokenOfProcess(shellProcess, TOKEN_QUERY | TOKEN_IMPERSONATE));
  return folder.empty() ? FolderInRegistry(sid) : folder;
}

std::optional<DesktopUser> OtherDesktopUser() {
  static Mutex lock;
  static std::optional<DesktopUser> found;
  const MutexLock held(lock);
  // Kept once found, so that a shell that restarts changes nothing.
  if (!found) {
    const std::uint32_t shell = ShellProcess();
    const std::wstring own = OwnSid();
    found = FindOtherDesktopUser(own, DesktopSid(shell), [shell](const std::wstring& sid) {
      return DesktopLocalAppData(shell, sid);
    });
  }
  return found;
}

}  // namespace platform
