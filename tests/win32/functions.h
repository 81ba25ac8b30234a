#pragma once

#include "platform/windows_sdk.h"
// Require the SDK header above; icmpapi.h and netioapi.h require iphlpapi.h.
// clang-format off
#include <bcrypt.h>
#include <commctrl.h>
#include <dwmapi.h>
#include <iphlpapi.h>
#include <icmpapi.h>
#include <netioapi.h>
#include <objbase.h>
#include <sddl.h>
#include <shellapi.h>
#include <shlobj.h>
#include <softpub.h>
#include <wincrypt.h>
#include <winhttp.h>
#include <winsvc.h>
#include <wintrust.h>
#include <wtsapi32.h>
// clang-format on

#include <cstddef>
#include <string>

// The Windows functions that the program calls, and how each reports a failure.
namespace win32 {

enum class FailsAs {
  Never,         // cannot fail, or not detectably
  Zero,          // FALSE, null or 0, with the last error
  MinusOne,      // INVALID_HANDLE_VALUE, SOCKET_ERROR, WAIT_FAILED ..., with the last error
  Error,         // returns the error
  HResult,       // returns the error as an HRESULT
  Close,         // like Zero, but closes the handle nevertheless
  CloseToError,  // like Error, likewise
};

// X(function, form of its failure, index of a parameter that points to bytes that it only reads and
// whose length is the next parameter; -1 = none).
#define WIN32_FUNCTIONS(X)                                          \
  X(AppendMenuW, Zero, -1)                                          \
  X(BCryptCloseAlgorithmProvider, CloseToError, -1)                 \
  X(BCryptCreateHash, Error, -1)                                    \
  X(BCryptDestroyHash, CloseToError, -1)                            \
  X(BCryptFinishHash, Error, -1)                                    \
  X(BCryptHashData, Error, 1)                                       \
  X(BCryptOpenAlgorithmProvider, Error, -1)                         \
  X(BeginPaint, Zero, -1)                                           \
  X(CancelIoEx, Zero, -1)                                           \
  X(CancelMibChangeNotify2, CloseToError, -1)                       \
  X(CloseClipboard, Close, -1)                                      \
  X(CloseHandle, Close, -1)                                         \
  X(CloseServiceHandle, Close, -1)                                  \
  X(CoInitializeEx, HResult, -1)                                    \
  X(CoTaskMemFree, Never, -1)                                       \
  X(CoUninitialize, Never, -1)                                      \
  X(CommandLineToArgvW, Zero, -1)                                   \
  X(ConvertSidToStringSidW, Zero, -1)                               \
  X(ConvertStringSecurityDescriptorToSecurityDescriptorW, Zero, -1) \
  X(CopyFileW, Zero, -1)                                            \
  X(CreateDirectoryW, Zero, -1)                                     \
  X(CreateEventW, Zero, -1)                                         \
  X(CreateFileMappingW, Zero, -1)                                   \
  X(CreateFileW, MinusOne, -1)                                      \
  X(CreateFontW, Zero, -1)                                          \
  X(CreateProcessW, Zero, -1)                                       \
  X(CreateSolidBrush, Zero, -1)                                     \
  X(CreateWindowExW, Zero, -1)                                      \
  X(CryptEncodeObject, Zero, -1)                                    \
  X(DefWindowProcW, Never, -1)                                      \
  X(DeleteFileW, Zero, -1)                                          \
  X(DeleteObject, Close, -1)                                        \
  X(DestroyWindow, Close, -1)                                       \
  X(DispatchMessageW, Never, -1)                                    \
  X(DrawTextW, Zero, -1)                                            \
  X(DwmSetWindowAttribute, HResult, 2)                              \
  X(EmptyClipboard, Zero, -1)                                       \
  X(EndPaint, Close, -1)                                            \
  X(EnumServicesStatusExW, Zero, -1)                                \
  X(EnumWindows, Zero, -1)                                          \
  X(FillRect, Zero, -1)                                             \
  X(FindClose, Close, -1)                                           \
  X(FindFirstFileW, MinusOne, -1)                                   \
  X(FindNextFileW, Zero, -1)                                        \
  X(FindResourceW, Zero, -1)                                        \
  X(FindWindowW, Zero, -1)                                          \
  X(FlushFileBuffers, Zero, -1)                                     \
  X(FormatMessageW, Zero, -1)                                       \
  X(FrameRect, Zero, -1)                                            \
  X(FreeEnvironmentStringsW, Close, -1)                             \
  X(FreeLibrary, Close, -1)                                         \
  X(FreeMibTable, Never, -1)                                        \
  X(GetAdaptersAddresses, Error, -1)                                \
  X(GetClientRect, Zero, -1)                                        \
  X(GetClipboardData, Zero, -1)                                     \
  X(GetClipboardOwner, Zero, -1)                                    \
  X(GetCommandLineW, Never, -1)                                     \
  X(GetCurrentDirectoryW, Zero, -1)                                 \
  X(GetCurrentProcess, Never, -1)                                   \
  X(GetCurrentProcessId, Never, -1)                                 \
  X(GetDiskFreeSpaceExW, Zero, -1)                                  \
  X(GetEnvironmentStringsW, Zero, -1)                               \
  X(GetFileAttributesExW, Zero, -1)                                 \
  X(GetFileAttributesW, MinusOne, -1)                               \
  X(GetFileInformationByHandle, Zero, -1)                           \
  X(GetFileInformationByHandleEx, Zero, -1)                         \
  X(GetFileSizeEx, Zero, -1)                                        \
  X(GetFinalPathNameByHandleW, Zero, -1)                            \
  X(GetFocus, Zero, -1)                                             \
  X(GetForegroundWindow, Zero, -1)                                  \
  X(GetFullPathNameW, Zero, -1)                                     \
  X(GetIpForwardTable2, Error, -1)                                  \
  X(GetLastError, Never, -1)                                        \
  X(GetLocalTime, Never, -1)                                        \
  X(GetMessageW, MinusOne, -1)                                      \
  X(GetModuleFileNameW, Zero, -1)                                   \
  X(GetModuleHandleW, Zero, -1)                                     \
  X(GetMonitorInfoW, Zero, -1)                                      \
  X(GetProcAddress, Zero, -1)                                       \
  X(GetShellWindow, Zero, -1)                                       \
  X(GetStockObject, Zero, -1)                                       \
  X(GetSystemMenu, Zero, -1)                                        \
  X(GetTempPathW, Zero, -1)                                         \
  X(GetTickCount, Never, -1)                                        \
  X(GetTickCount64, Never, -1)                                      \
  X(GetTimeZoneInformation, MinusOne, -1)                           \
  X(GetTokenInformation, Zero, -1)                                  \
  X(GetWindow, Zero, -1)                                            \
  X(GetWindowLongPtrW, Zero, -1)                                    \
  X(GetWindowRect, Zero, -1)                                        \
  X(GetWindowTextLengthW, Zero, -1)                                 \
  X(GetWindowTextW, Zero, -1)                                       \
  X(GetWindowThreadProcessId, Zero, -1)                             \
  X(GetWindowsDirectoryW, Zero, -1)                                 \
  X(GlobalAlloc, Zero, -1)                                          \
  X(GlobalFree, Never, -1)                                          \
  X(GlobalLock, Zero, -1)                                           \
  X(GlobalSize, Zero, -1)                                           \
  X(GlobalUnlock, Close, -1)                                        \
  X(IcmpCloseHandle, Close, -1)                                     \
  X(IcmpCreateFile, MinusOne, -1)                                   \
  X(IcmpSendEcho, Zero, 2)                                          \
  X(InitCommonControlsEx, Zero, -1)                                 \
  X(InvalidateRect, Zero, -1)                                       \
  X(IsHungAppWindow, Zero, -1)                                      \
  X(IsIconic, Zero, -1)                                             \
  X(IsWindowVisible, Zero, -1)                                      \
  X(KillTimer, Close, -1)                                           \
  X(LoadCursorW, Zero, -1)                                          \
  X(LoadIconW, Zero, -1)                                            \
  X(LoadLibraryExA, Zero, -1)                                       \
  X(LoadLibraryExW, Zero, -1)                                       \
  X(LoadLibraryW, Zero, -1)                                         \
  X(LoadResource, Zero, -1)                                         \
  X(LocalFree, Never, -1)                                           \
  X(LockResource, Zero, -1)                                         \
  X(LookupAccountNameW, Zero, -1)                                   \
  X(MapViewOfFile, Zero, -1)                                        \
  X(MessageBoxW, Zero, -1)                                          \
  X(MonitorFromWindow, Zero, -1)                                    \
  X(MoveFileExW, Zero, -1)                                          \
  X(MsgWaitForMultipleObjects, MinusOne, -1)                        \
  X(NotifyUnicastIpAddressChange, Error, -1)                        \
  X(OpenClipboard, Zero, -1)                                        \
  X(OpenFileMappingW, Zero, -1)                                     \
  X(OpenProcess, Zero, -1)                                          \
  X(OpenProcessToken, Zero, -1)                                     \
  X(OpenSCManagerW, Zero, -1)                                       \
  X(OpenServiceW, Zero, -1)                                         \
  X(PeekMessageW, Zero, -1)                                         \
  X(PostMessageW, Zero, -1)                                         \
  X(PostQuitMessage, Never, -1)                                     \
  X(ProcessIdToSessionId, Zero, -1)                                 \
  X(QueryFullProcessImageNameW, Zero, -1)                           \
  X(QueryServiceConfigW, Zero, -1)                                  \
  X(ReadFile, Zero, -1)                                             \
  X(RegCloseKey, CloseToError, -1)                                  \
  X(RegCreateKeyExW, Error, -1)                                     \
  X(RegGetValueW, Error, -1)                                        \
  X(RegOpenKeyExW, Error, -1)                                       \
  X(RegQueryValueExW, Error, -1)                                    \
  X(RegSetValueExW, Error, 4)                                       \
  X(RegisterClassExW, Zero, -1)                                     \
  X(RegisterClipboardFormatW, Zero, -1)                             \
  X(RegisterSuspendResumeNotification, Zero, -1)                    \
  X(RemoveDirectoryW, Zero, -1)                                     \
  X(SHCreateDirectoryExW, Error, -1)                                \
  X(SHGetKnownFolderPath, HResult, -1)                              \
  X(SelectObject, Zero, -1)                                         \
  X(SendInput, Zero, -1)                                            \
  X(SendMessageTimeoutW, Zero, -1)                                  \
  X(SendMessageW, Zero, -1)                                         \
  X(SetBkColor, MinusOne, -1)                                       \
  X(SetBkMode, Zero, -1)                                            \
  X(SetClipboardData, Zero, -1)                                     \
  X(SetDefaultDllDirectories, Zero, -1)                             \
  X(SetDllDirectoryW, Zero, -1)                                     \
  X(SetEndOfFile, Zero, -1)                                         \
  X(SetEnvironmentVariableW, Zero, -1)                              \
  X(SetErrorMode, Never, -1)                                        \
  X(SetEvent, Zero, -1)                                             \
  X(SetFileAttributesW, Zero, -1)                                   \
  X(SetFileInformationByHandle, Zero, 2)                            \
  X(SetForegroundWindow, Zero, -1)                                  \
  X(SetKernelObjectSecurity, Zero, -1)                              \
  X(SetLastError, Never, -1)                                        \
  X(SetProcessDPIAware, Zero, -1)                                   \
  X(SetProcessMitigationPolicy, Zero, 1)                            \
  X(SetTextColor, MinusOne, -1)                                     \
  X(SetTimer, Zero, -1)                                             \
  X(SetWindowLongPtrW, Zero, -1)                                    \
  X(SetWindowPos, Zero, -1)                                         \
  X(SetWindowTextW, Zero, -1)                                       \
  X(ShellExecuteExW, Zero, -1)                                      \
  X(ShowWindow, Never, -1)                                          \
  X(ShowWindowAsync, Zero, -1)                                      \
  X(SizeofResource, Zero, -1)                                       \
  X(Sleep, Never, -1)                                               \
  X(TerminateProcess, Zero, -1)                                     \
  X(TranslateMessage, Zero, -1)                                     \
  X(UnmapViewOfFile, Close, -1)                                     \
  X(UnregisterSuspendResumeNotification, Close, -1)                 \
  X(UpdateWindow, Zero, -1)                                         \
  X(WSACleanup, Close, -1)                                          \
  X(WSAGetLastError, Never, -1)                                     \
  X(WSAStartup, Error, -1)                                          \
  X(WTHelperGetProvCertFromChain, Zero, -1)                         \
  X(WTHelperGetProvSignerFromChain, Zero, -1)                       \
  X(WTHelperProvDataFromStateData, Zero, -1)                        \
  X(WTSFreeMemory, Never, -1)                                       \
  X(WTSQuerySessionInformationW, Zero, -1)                          \
  X(WTSRegisterSessionNotification, Zero, -1)                       \
  X(WTSUnRegisterSessionNotification, Close, -1)                    \
  X(WaitForSingleObject, MinusOne, -1)                              \
  X(WinHttpCloseHandle, Close, -1)                                  \
  X(WinHttpConnect, Zero, -1)                                       \
  X(WinHttpCrackUrl, Zero, -1)                                      \
  X(WinHttpGetDefaultProxyConfiguration, Zero, -1)                  \
  X(WinHttpGetIEProxyConfigForCurrentUser, Zero, -1)                \
  X(WinHttpOpen, Zero, -1)                                          \
  X(WinHttpOpenRequest, Zero, -1)                                   \
  X(WinHttpQueryDataAvailable, Zero, -1)                            \
  X(WinHttpQueryHeaders, Zero, -1)                                  \
  X(WinHttpReadData, Zero, -1)                                      \
  X(WinHttpReceiveResponse, Zero, -1)                               \
  X(WinHttpSendRequest, Zero, 3)                                    \
  X(WinHttpSetOption, Zero, -1)                                     \
  X(WinHttpSetStatusCallback, MinusOne, -1)                         \
  X(WinHttpSetTimeouts, Zero, -1)                                   \
  X(WinVerifyTrust, Error, -1)                                      \
  X(WriteFile, Zero, 1)                                             \
  X(accept, MinusOne, -1)                                           \
  X(bind, MinusOne, -1)                                             \
  X(closesocket, Close, -1)                                         \
  X(connect, MinusOne, -1)                                          \
  X(freeaddrinfo, Never, -1)                                        \
  X(getaddrinfo, Error, -1)                                         \
  X(getsockname, MinusOne, -1)                                      \
  X(getsockopt, MinusOne, -1)                                       \
  X(htonl, Never, -1)                                               \
  X(ioctlsocket, MinusOne, -1)                                      \
  X(listen, MinusOne, -1)                                           \
  X(ntohl, Never, -1)                                               \
  X(recv, MinusOne, -1)                                             \
  X(recvfrom, MinusOne, -1)                                         \
  X(select, MinusOne, -1)                                           \
  X(send, MinusOne, 1)                                              \
  X(sendto, MinusOne, 1)                                            \
  X(setsockopt, MinusOne, 3)                                        \
  X(shutdown, MinusOne, -1)                                         \
  X(socket, MinusOne, -1)

#define WIN32_NAME(name, fails, bytesAt) name,
enum class Api : std::size_t { WIN32_FUNCTIONS(WIN32_NAME) Count };
#undef WIN32_NAME

inline constexpr std::size_t kApiCount = static_cast<std::size_t>(Api::Count);

struct Function {
  const char* name;
  FailsAs failsAs;
  int bytesAt;
};

#define WIN32_FUNCTION(name, fails, bytesAt) {#name, FailsAs::fails, bytesAt},
inline constexpr Function kFunctions[] = {WIN32_FUNCTIONS(WIN32_FUNCTION)};
#undef WIN32_FUNCTION

constexpr const Function& Of(Api api) {
  return kFunctions[static_cast<std::size_t>(api)];
}

// A function's type without its header's attributes.
template <typename R, typename... A>
auto Plain(R (*)(A...)) -> R (*)(A...);

// The type of a pointer to the function: Pointer<Api::CreateFileW>.
template <Api api>
struct PointerTo;
#define WIN32_POINTER(name, fails, bytesAt) \
  template <>                               \
  struct PointerTo<Api::name> {             \
    using Type = decltype(Plain(&::name));  \
  };
WIN32_FUNCTIONS(WIN32_POINTER)
#undef WIN32_POINTER
template <Api api>
using Pointer = typename PointerTo<api>::Type;

}  // namespace win32
