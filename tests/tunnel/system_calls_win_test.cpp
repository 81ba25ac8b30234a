// Every call of Windows with its arguments, and the effect of its failure.
#include <gtest/gtest.h>

#include <stdexcept>

#include "text/utf8.h"
#include "tunnel/adapter_list.h"
#include "tunnel/driver/windivert.h"
#include "win32/calls.h"

namespace tunnel {
namespace {

using namespace win32;

// ---- the network adapters

constexpr ULONG kListFlags =
    GAA_FLAG_SKIP_ANYCAST | GAA_FLAG_SKIP_MULTICAST | GAA_FLAG_SKIP_DNS_SERVER;
constexpr ULONG kListBytes = 1000;

// One adapter with one address, in the system's format.
struct Adapter {
  Adapter(IF_OPER_STATUS status, const std::string& address, UINT8 prefix) {
    ipv4.sin_family = AF_INET;
    ipv4.sin_addr.s_addr = ::inet_addr(address.c_str());
    unicast.Address = {reinterpret_cast<SOCKADDR*>(&ipv4), sizeof(ipv4)};
    unicast.OnLinkPrefixLength = prefix;
    record.OperStatus = status;
    record.FirstUnicastAddress = &unicast;
  }
  sockaddr_in ipv4{};
  IP_ADAPTER_UNICAST_ADDRESS unicast{};
  IP_ADAPTER_ADDRESSES record{};
};

// Makes the system list these adapters.
void List(Calls& calls, std::vector<Adapter>& adapters) {
  for (std::size_t i = 1; i < adapters.size(); ++i) {
    adapters[i - 1].record.Next = &adapters[i].record;
  }
  calls.AnswerWith<Api::GetAdaptersAddresses>(
      [first = &adapters.front().record](ULONG, ULONG, void*, IP_ADAPTER_ADDRESSES* list,
                                         ULONG* sizeBytes) -> ULONG {
        if (list == nullptr) {
          *sizeBytes = kListBytes;
          return ERROR_BUFFER_OVERFLOW;
        }
        *list = *first;
        return ERROR_SUCCESS;
      });
}

TEST(AdapterCalls, AskForTheLengthAndThenForTheList) {
  std::vector<Adapter> adapters;
  adapters.emplace_back(IfOperStatusUp, "10.1.2.3", UINT8{24});
  Calls calls;
  List(calls, adapters);
  CollectLocalNetworks();
  EXPECT_TRUE(calls.WereAmong(
      {Api::GetAdaptersAddresses},
      {Said<Api::GetAdaptersAddresses>(AF_INET, kListFlags, nullptr, nullptr, Ref{0}),
       Said<Api::GetAdaptersAddresses>(AF_INET, kListFlags, nullptr, Some{}, Ref{kListBytes})}));
}

TEST(AdapterCalls, KeepTheNetworksOfAdaptersThatAreUp) {
  std::vector<Adapter> adapters;
  adapters.reserve(4);
  adapters.emplace_back(IfOperStatusUp, "10.1.2.3", UINT8{24});
  adapters.emplace_back(IfOperStatusDown, "10.9.2.3", UINT8{24});
  adapters.emplace_back(IfOperStatusUp, "10.2.3.4", UINT8{16});
  adapters.emplace_back(IfOperStatusUp, "10.3.3.4", UINT8{16});
  adapters[2].ipv4.sin_family = AF_INET6;  // returned although not requested
  Calls calls;
  List(calls, adapters);
  const std::vector<Ipv4Network> networks = CollectLocalNetworks().networks;
  ASSERT_EQ(networks.size(), 2u);
  EXPECT_EQ(networks[0].network, 0x0A010200u);
  EXPECT_EQ(networks[0].prefix, 24u);
  EXPECT_EQ(networks[1].network, 0x0A030000u);
  EXPECT_TRUE(calls.WereAmong(
      {Api::ntohl},
      {Said<Api::ntohl>(0x0302010A), Said<Api::ntohl>(0x0302090A), Said<Api::ntohl>(0x0403030A)}));
}

TEST(AdapterCalls, KeepNamesKindsAndAddressesOfAllAdapters) {
  std::vector<Adapter> adapters;
  adapters.reserve(2);
  adapters.emplace_back(IfOperStatusUp, "10.1.2.3", UINT8{24});
  adapters.emplace_back(IfOperStatusDown, "10.9.2.3", UINT8{16});
  wchar_t name[] = L"以太网";
  wchar_t description[] = L"Controller";
  adapters[0].record.FriendlyName = name;
  adapters[0].record.Description = description;
  adapters[0].record.IfType = IF_TYPE_ETHERNET_CSMACD;
  adapters[1].record.FirstUnicastAddress = nullptr;
  Calls calls;
  List(calls, adapters);
  const AdapterList list = ListAdapters();
  ASSERT_EQ(list.adapters.size(), 2u);
  EXPECT_EQ(list.adapters[0].name, name);
  EXPECT_EQ(list.adapters[0].description, description);
  EXPECT_EQ(list.adapters[0].type, 6u);
  ASSERT_EQ(list.adapters[0].addresses.size(), 1u);
  EXPECT_EQ(list.adapters[0].addresses[0].onLinkPrefix, 24u);
  EXPECT_TRUE(list.adapters[1].name.empty());
  EXPECT_TRUE(list.adapters[1].addresses.empty());
}

TEST(AdapterCalls, ReturnNoNetworksWhenTheSystemListsNone) {
  std::vector<Adapter> adapters;
  adapters.emplace_back(IfOperStatusUp, "10.1.2.3", UINT8{24});
  for (const int nth : {1, 2}) {
    for (const DWORD error : {DWORD{ERROR_NO_DATA}, DWORD{ERROR_NOT_ENOUGH_MEMORY}}) {
      Calls calls;
      List(calls, adapters);
      calls.Fail(Api::GetAdaptersAddresses, error, nth);
      const LocalNetworks local = CollectLocalNetworks();
      EXPECT_TRUE(local.networks.empty()) << nth;
      EXPECT_EQ(local.error, error == ERROR_NO_DATA ? 0 : error) << nth;  // no list: no error
    }
  }
}

// The buffer's content after a failure must be ignored.
TEST(AdapterCalls, IgnoreTheBufferOfAFailedCall) {
  const Adapter adapter(IfOperStatusUp, "10.1.2.3", UINT8{24});
  Calls calls;
  calls.AnswerWith<Api::GetAdaptersAddresses>(
      [record = &adapter.record](ULONG, ULONG, void*, IP_ADAPTER_ADDRESSES* list,
                                 ULONG* sizeBytes) -> ULONG {
        *sizeBytes = kListBytes;
        if (list == nullptr) return ERROR_BUFFER_OVERFLOW;
        *list = *record;
        return ERROR_NO_DATA;
      });
  EXPECT_TRUE(CollectLocalNetworks().networks.empty());
}

// ---- the driver's library

// A library with every function.
void SimulateLibrary(Calls& calls) {
  calls.AnswerWith<Api::LoadLibraryW>(
      [](const wchar_t*) { return Real<Api::LoadLibraryW>()(L"version.dll"); });
  calls.AnswerWith<Api::GetProcAddress>([](HMODULE module, const char*) {
    return Real<Api::GetProcAddress>()(module, "VerQueryValueW");
  });
}

TEST(DriverLibraryCalls, LoadByTheBareNameBindFiveFunctionsAndFreeAtTheEnd) {
  Calls calls;
  SimulateLibrary(calls);
  LoadWinDivert();
  EXPECT_TRUE(calls.Were({
      Said<Api::LoadLibraryW>(L"WinDivert.dll"),
      Said<Api::GetLastError>(),
      Said<Api::GetProcAddress>(Handle{1}, "WinDivertOpen"),
      Said<Api::GetProcAddress>(Handle{1}, "WinDivertRecv"),
      Said<Api::GetProcAddress>(Handle{1}, "WinDivertSend"),
      Said<Api::GetProcAddress>(Handle{1}, "WinDivertHelperCalcChecksums"),
      Said<Api::GetProcAddress>(Handle{1}, "WinDivertClose"),
      Said<Api::FreeLibrary>(Handle{1}),
  }));
}

TEST(DriverLibraryCalls, ForwardTheSystemsErrorOfTheLastCall) {
  Calls calls;
  SimulateLibrary(calls);
  const auto api = LoadWinDivert();
  calls.AnswerWith<Api::GetLastError>([] { return DWORD{ERROR_ACCESS_DENIED}; });
  const int before = calls.Count(Api::GetLastError);
  EXPECT_EQ(api->lastError(), std::uint32_t{ERROR_ACCESS_DENIED});
  EXPECT_EQ(calls.Count(Api::GetLastError), before + 1);
  EXPECT_TRUE(calls.EachWas(Api::GetLastError, Said<Api::GetLastError>()));
}

TEST(DriverLibraryCalls, NameWhatIsMissingAndFreeTheLibrary) {
  const std::string noFile = "WinDivert.dll was not found in the runtime cache.";
  const std::string code = text::ToUtf8(DescribeDriverError(ERROR_PROC_NOT_FOUND));
  const std::string noExport = "WinDivert.dll is missing required exports.";
  for (int nth = 1; nth <= 6; ++nth) {
    Calls calls;
    SimulateLibrary(calls);
    calls.FailAny(ERROR_PROC_NOT_FOUND, nth);
    try {
      LoadWinDivert();
      ADD_FAILURE() << nth;
    } catch (const std::runtime_error& error) {
      EXPECT_EQ(error.what(), nth == 1 ? noFile + "\r\n" + code : noExport);
    }
    EXPECT_EQ(calls.Unbalanced(), "") << nth;
  }
}

}  // namespace
}  // namespace tunnel
