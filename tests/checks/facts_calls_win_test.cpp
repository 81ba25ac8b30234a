// Every Windows call of the checks: its arguments, and the effect of its failure.
#include <gtest/gtest.h>

#include <cstring>
#include <cwchar>
#include <string>
#include <vector>

#include "checks/computer_checks.h"
#include "checks/network_checks.h"
#include "checks/real_checks.h"
#include "checks/service_checks.h"
#include "checks/system_services.h"
#include "platform/scratch_folder.h"
#include "text/utf8.h"
#include "win32/calls.h"

namespace checks {
namespace {

using namespace win32;

TEST(FolderCalls, WriteAFileThatIsDeletedWithItsHandle) {
  const platform::ScratchFolder scratch;
  const std::wstring folder = scratch.Folder();
  const std::wstring probe = scratch.Path(L"Velmarine.Check.probe");
  {
    Calls calls;
    EXPECT_EQ(ProbeFolder(L"x", folder).error, 0u);
    EXPECT_TRUE(calls.Were({
        Said<Api::GetFileAttributesW>(folder),
        Said<Api::CreateFileW>(probe, GENERIC_WRITE | DELETE, 0, nullptr, CREATE_NEW,
                               FILE_ATTRIBUTE_NORMAL | FILE_FLAG_DELETE_ON_CLOSE, nullptr),
        Said<Api::GetLastError>(),
        Said<Api::WriteFile>(Handle{1}, std::string(4096, '\0'), 4096, Ref{0}, nullptr),
        Said<Api::GetLastError>(),
        Said<Api::CloseHandle>(Handle{1}),
        Said<Api::GetDiskFreeSpaceExW>(folder, Some{}, nullptr, nullptr),
    }));
  }
  EXPECT_EQ(::GetFileAttributesW(probe.c_str()), INVALID_FILE_ATTRIBUTES);
  const auto probeIt = [&] {
    const FolderFacts facts = ProbeFolder(L"x", folder);
    return std::to_string(facts.error) + (facts.freeBytes ? " free" : "");
  };
  EXPECT_EQ(EachFailure(probeIt, ERROR_DISK_FULL),
            "all well: 0 free\nGetFileAttributesW: 0 free\nCreateFileW: 112 free\n"
            "WriteFile: 112 free\nCloseHandle: 0 free\nGetDiskFreeSpaceExW: 0\n");
}

TEST(FolderCalls, ProbeTheNearestParentOfAMissingFolder) {
  const platform::ScratchFolder scratch;
  const FolderFacts facts = ProbeFolder(L"x", scratch.Path(L"a\\b"));
  EXPECT_EQ(facts.probed, scratch.Folder());
  EXPECT_EQ(facts.error, 0u);
  EXPECT_EQ(::GetFileAttributesW(scratch.Path(L"a").c_str()), INVALID_FILE_ATTRIBUTES);
}

TEST(RightsCalls, TakeTheElevationFromTheOwnToken) {
  Calls calls;
  EXPECT_EQ(ReadRightsFacts().isElevated, true) << "Wine's user is an administrator";
  EXPECT_TRUE(calls.Had(Said<Api::GetCurrentProcess>()));
  EXPECT_TRUE(calls.Had(Said<Api::OpenProcessToken>(Text{"-1"}, TOKEN_QUERY, Some{})));
  EXPECT_TRUE(
      calls.Had(Said<Api::GetTokenInformation>(Handle{1}, TokenElevation, Some{}, 4, Ref{0})));
  calls.Fail(Api::GetTokenInformation, ERROR_ACCESS_DENIED);
  EXPECT_EQ(ReadRightsFacts().isElevated, std::nullopt);
  calls.Fail(Api::OpenProcessToken, ERROR_ACCESS_DENIED);
  EXPECT_EQ(ReadRightsFacts().isElevated, std::nullopt);
}

TEST(SystemCalls, AskForTheTrueVersion) {
  Calls calls;
  const SystemFacts facts = ReadSystemFacts();
  EXPECT_EQ(facts.major, 10u);
  EXPECT_GT(facts.build, 0u);
  EXPECT_GE(facts.dpi, 96u);
  EXPECT_TRUE(calls.Had(Said<Api::GetModuleHandleW>(L"ntdll.dll")));
  EXPECT_TRUE(calls.Had(Said<Api::GetModuleHandleW>(L"user32.dll")));
  calls.Fail(Api::GetProcAddress, ERROR_PROC_NOT_FOUND, 0);
  EXPECT_EQ(ReadSystemFacts().build, 0u);
  EXPECT_EQ(ReadSystemFacts().dpi, 0u);
}

TEST(ProgramCalls, ReadTheOwnFile) {
  const ProgramFacts facts = ReadProgramFacts(L"1.0", "pin");
  EXPECT_NE(facts.path.find(L"checks_test.exe"), std::wstring::npos);
  EXPECT_GT(facts.sizeBytes, 100000u);
  EXPECT_EQ(facts.sha256.size(), 64u);
  EXPECT_NE(facts.trustError, 0u) << "nobody has signed it";
  EXPECT_EQ(ReadProgramFacts(L"1.0", "").trustError, 0u) << "not asked";
}

// ---- kernel services

constexpr wchar_t kPath[] = L"\\??\\C:\\R\\WinDivert64.sys";

// Simulates a service manager with an ordinary driver and WinDivert's, which is disabled and marked
// for deletion.
void AnswerServices(Calls& calls) {
  constexpr DWORD kListBytes = 2 * sizeof(ENUM_SERVICE_STATUS_PROCESSW);
  // Any handle; CloseServiceHandle() accepts it.
  calls.AnswerWith<Api::OpenServiceW>([](SC_HANDLE, const wchar_t*, DWORD) {
    return Real<Api::OpenSCManagerW>()(nullptr, nullptr, SC_MANAGER_CONNECT);
  });
  calls.AnswerWith<Api::EnumServicesStatusExW>(
      [](SC_HANDLE, SC_ENUM_TYPE, DWORD, DWORD, BYTE* buffer, DWORD sizeBytes, DWORD* missingBytes,
         DWORD* count, DWORD*, const wchar_t*) {
        static wchar_t disk[] = L"disk";
        static wchar_t divert[] = L"WinDivert";
        *missingBytes = sizeBytes < kListBytes ? kListBytes - sizeBytes : 0;
        *count = *missingBytes == 0 ? 2 : 0;
        Real<Api::SetLastError>()(ERROR_MORE_DATA);
        if (*missingBytes != 0) return FALSE;
        auto* const records = reinterpret_cast<ENUM_SERVICE_STATUS_PROCESSW*>(buffer);
        records[0] = {disk, disk, {}};
        records[0].ServiceStatusProcess.dwCurrentState = SERVICE_RUNNING;
        records[1] = {divert, divert, {}};
        records[1].ServiceStatusProcess.dwCurrentState = SERVICE_STOPPED;
        return TRUE;
      });
  calls.AnswerWith<Api::QueryServiceConfigW>(
      [](SC_HANDLE, QUERY_SERVICE_CONFIGW* config, DWORD sizeBytes, DWORD* neededBytes) {
        static wchar_t path[64];
        std::wcscpy(path, kPath);
        *neededBytes = sizeof(QUERY_SERVICE_CONFIGW);
        if (sizeBytes < sizeof(QUERY_SERVICE_CONFIGW)) return FALSE;
        *config = {};
        config->dwStartType = SERVICE_DISABLED;
        config->lpBinaryPathName = path;
        return TRUE;
      });
  calls.AnswerWith<Api::RegGetValueW>(
      [](HKEY, const wchar_t*, const wchar_t*, DWORD, DWORD*, void* value, DWORD*) {
        const DWORD flag = 1;
        std::memcpy(value, &flag, sizeof(flag));
        return LSTATUS{ERROR_SUCCESS};
      });
}

std::string Described(const ServiceList& list) {
  std::string text = std::to_string(list.error);
  for (const ServiceFacts& service : list.drivers) {
    text += " " + text::ToUtf8(service.name) + (service.isRunning ? " running" : "") +
            (service.isDisabled ? " disabled" : "") +
            (service.isMarkedForDeletion ? " marked" : "") + text::ToUtf8(service.path);
  }
  return text;
}

TEST(ServiceCalls, QueryAllDriversAndTheDetailsOfWinDiverts) {
  Calls calls;
  AnswerServices(calls);
  EXPECT_EQ(Described(ListDrivers()),
            "0 disk running WinDivert disabled marked\\??\\C:\\R\\WinDivert64.sys");
  constexpr DWORD kListBytes = 2 * sizeof(ENUM_SERVICE_STATUS_PROCESSW);
  constexpr DWORD kConfigBytes = sizeof(QUERY_SERVICE_CONFIGW);
  EXPECT_TRUE(calls.Were({
      Said<Api::OpenSCManagerW>(nullptr, nullptr,
                                SC_MANAGER_CONNECT | SC_MANAGER_ENUMERATE_SERVICE),
      Said<Api::GetLastError>(),
      Said<Api::EnumServicesStatusExW>(Handle{1}, SC_ENUM_PROCESS_INFO, SERVICE_DRIVER,
                                       SERVICE_STATE_ALL, nullptr, 0, Ref{0}, Ref{0}, Ref{0},
                                       nullptr),
      Said<Api::GetLastError>(),
      Said<Api::EnumServicesStatusExW>(Handle{1}, SC_ENUM_PROCESS_INFO, SERVICE_DRIVER,
                                       SERVICE_STATE_ALL, Some{}, kListBytes, Ref{0}, Ref{0},
                                       Ref{0}, nullptr),
      Said<Api::RegGetValueW>(HKEY_LOCAL_MACHINE, L"SYSTEM\\CurrentControlSet\\Services\\WinDivert",
                              L"DeleteFlag", RRF_RT_REG_DWORD, nullptr, Some{}, Ref{4}),
      Said<Api::OpenServiceW>(Handle{1}, L"WinDivert", SERVICE_QUERY_CONFIG),
      Said<Api::QueryServiceConfigW>(Handle{2}, nullptr, 0, Ref{0}),
      Said<Api::QueryServiceConfigW>(Handle{2}, Some{}, kConfigBytes, Ref{kConfigBytes}),
      Said<Api::CloseServiceHandle>(Handle{2}),
      Said<Api::CloseServiceHandle>(Handle{1}),
  }));
  EXPECT_EQ(calls.Unbalanced(), "");
}

TEST(ServiceCalls, ContinueAfterAFailure) {
  const std::string all = "0 disk running WinDivert disabled marked\\??\\C:\\R\\WinDivert64.sys";
  EXPECT_EQ(
      EachFailure([] { return Described(ListDrivers()); }, ERROR_ACCESS_DENIED, AnswerServices),
      "all well: " + all + "\nOpenSCManagerW: 5\nEnumServicesStatusExW: 5\n" +
          "EnumServicesStatusExW: 5\n" +
          "RegGetValueW: 0 disk running WinDivert disabled\\??\\C:\\R\\WinDivert64.sys\n" +
          "OpenServiceW: 0 disk running WinDivert marked\n" +
          "QueryServiceConfigW: 0 disk running WinDivert marked\n" +
          "QueryServiceConfigW: 0 disk running WinDivert marked\n" + "CloseServiceHandle: " + all +
          "\nCloseServiceHandle: " + all + "\n");
}

// ---- routes and proxies

wchar_t* GlobalCopy(const wchar_t* text) {
  auto* const copy =
      static_cast<wchar_t*>(::GlobalAlloc(GMEM_FIXED, (std::wcslen(text) + 1) * sizeof(wchar_t)));
  return std::wcscpy(copy, text);
}

void AnswerNetworks(Calls& calls) {
  calls.AnswerWith<Api::GetIpForwardTable2>([](ADDRESS_FAMILY, MIB_IPFORWARD_TABLE2** table) {
    static MIB_IPFORWARD_TABLE2 one{};
    one.NumEntries = 1;
    one.Table[0].DestinationPrefix.Prefix.Ipv4.sin_addr.s_addr = 0x000010AC;  // network order
    one.Table[0].DestinationPrefix.PrefixLength = 12;
    *table = &one;
    return NETIO_STATUS{NO_ERROR};
  });
  calls.AnswerWith<Api::FreeMibTable>([](void*) {});
}

TEST(RouteCalls, ReadAndFreeTheTable) {
  Calls calls;
  AnswerNetworks(calls);
  const NetworkFacts facts = ReadNetworkFacts();
  ASSERT_EQ(facts.routes.size(), 1u);
  EXPECT_EQ(facts.routes[0], (tunnel::Ipv4Network{0xAC100000, 12}));
  EXPECT_TRUE(calls.WereAmong(
      {Api::GetIpForwardTable2, Api::FreeMibTable},
      {Said<Api::GetIpForwardTable2>(AF_INET, Some{}), Said<Api::FreeMibTable>(Some{})}));
  EXPECT_TRUE(calls.Had(Said<Api::ntohl>(0x000010AC)));
  calls.Fail(Api::GetIpForwardTable2, ERROR_NOT_FOUND);
  EXPECT_EQ(ReadNetworkFacts().routesError, DWORD{ERROR_NOT_FOUND});
}

void AnswerProxies(Calls& calls) {
  calls.AnswerWith<Api::WinHttpGetDefaultProxyConfiguration>([](WINHTTP_PROXY_INFO* info) {
    *info = {WINHTTP_ACCESS_TYPE_NAMED_PROXY, GlobalCopy(L"sys:1"), GlobalCopy(L"<local>")};
    return TRUE;
  });
  calls.AnswerWith<Api::WinHttpGetIEProxyConfigForCurrentUser>(
      [](WINHTTP_CURRENT_USER_IE_PROXY_CONFIG* config) {
        *config = {TRUE, GlobalCopy(L"http://pac"), GlobalCopy(L"user:2"), GlobalCopy(L"a")};
        return TRUE;
      });
}

TEST(ProxyCalls, ReadBothAndFreeTheirTexts) {
  Calls calls;
  AnswerProxies(calls);
  const ProxyFacts facts = ReadProxyFacts();
  EXPECT_EQ(facts.systemProxy + L" " + facts.systemBypass, L"sys:1 <local>");
  EXPECT_EQ(facts.script + L" " + facts.userProxy, L"http://pac user:2");
  EXPECT_TRUE(facts.isAutoDetected);
  EXPECT_TRUE(calls.WereAmong(
      {Api::WinHttpGetDefaultProxyConfiguration, Api::WinHttpGetIEProxyConfigForCurrentUser},
      {Said<Api::WinHttpGetDefaultProxyConfiguration>(Some{}),
       Said<Api::WinHttpGetIEProxyConfigForCurrentUser>(Some{})}));
  EXPECT_TRUE(calls.WereAmong({Api::GlobalFree},
                              {Said<Api::GlobalFree>(Handle{1}), Said<Api::GlobalFree>(Handle{2}),
                               Said<Api::GlobalFree>(Handle{3}), Said<Api::GlobalFree>(Handle{4}),
                               Said<Api::GlobalFree>(Handle{5})}));
}

TEST(ProxyCalls, KeepTheCodeOfAFailure) {
  Calls calls;
  calls.Fail(Api::WinHttpGetDefaultProxyConfiguration, 5);
  calls.Fail(Api::WinHttpGetIEProxyConfigForCurrentUser, 2);
  const ProxyFacts facts = ReadProxyFacts();
  EXPECT_EQ(facts.systemError, 5u);
  EXPECT_EQ(facts.userError, 2u);
  EXPECT_TRUE(calls.Had(Said<Api::GetLastError>()));
}

// ---- time, power, opening a file

TEST(TimeZoneCalls, ReturnTheZonesNameAndOffset) {
  Calls calls;
  DWORD kind = TIME_ZONE_ID_STANDARD;
  calls.AnswerWith<Api::GetTimeZoneInformation>([&kind](TIME_ZONE_INFORMATION* zone) {
    *zone = {};
    zone->Bias = -480;
    zone->DaylightBias = -60;
    std::wcscpy(zone->StandardName, L"CST");
    std::wcscpy(zone->DaylightName, L"CDT");
    return kind;
  });
  EXPECT_EQ(TimeZoneLine(), L"时区：UTC+08:00 CST");
  kind = TIME_ZONE_ID_DAYLIGHT;
  EXPECT_EQ(TimeZoneLine(), L"时区：UTC+09:00 CDT");
  EXPECT_TRUE(
      calls.EachWas(Api::GetTimeZoneInformation, Said<Api::GetTimeZoneInformation>(Some{})));
  calls.Fail(Api::GetTimeZoneInformation, 5);
  EXPECT_EQ(TimeZoneLine(), L"时区：系统没有说");
}

TEST(PowerCalls, LoadTheSystemsLibrary) {
  Calls calls;
  ReadPowerFacts();  // the result depends on this system
  EXPECT_TRUE(
      calls.Had(Said<Api::LoadLibraryExW>(L"powrprof.dll", nullptr, LOAD_LIBRARY_SEARCH_SYSTEM32)));
  calls.Fail(Api::LoadLibraryExW, ERROR_MOD_NOT_FOUND);
  EXPECT_EQ(ReadPowerFacts().error, DWORD{ERROR_PROC_NOT_FOUND});
}

TEST(ShowFileCalls, OpenItWithItsProgram) {
  Calls calls;
  calls.AnswerWith<Api::ShellExecuteExW>([](SHELLEXECUTEINFOW* info) {
    EXPECT_STREQ(info->lpVerb, L"open");
    EXPECT_STREQ(info->lpFile, L"C:\\报告.txt");
    EXPECT_EQ(info->nShow, SW_SHOWNORMAL);
    EXPECT_EQ(info->fMask, DWORD{SEE_MASK_NOASYNC | SEE_MASK_FLAG_NO_UI});
    return TRUE;
  });
  ShowFile(L"C:\\报告.txt");
  EXPECT_EQ(calls.Count(Api::ShellExecuteExW), 1);
  EXPECT_TRUE(calls.WereAmong(
      {Api::CoInitializeEx, Api::CoUninitialize},
      {Said<Api::CoInitializeEx>(nullptr, COINIT_APARTMENTTHREADED | COINIT_DISABLE_OLE1DDE),
       Said<Api::CoUninitialize>()}));
  calls.Fail(Api::CoInitializeEx, 5);
  calls.Fail(Api::ShellExecuteExW, 5);
  ShowFile(L"C:\\报告.txt");
  EXPECT_EQ(calls.Count(Api::CoUninitialize), 1);
}

}  // namespace
}  // namespace checks
