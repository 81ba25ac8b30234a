#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "tests/driver_fixture.h"

using driver_test::DriverLibrary;
using packets::Bytes;

namespace {

// All exports of the published library.
constexpr const char* kExports[] = {"WinDivertClose",
                                    "WinDivertGetParam",
                                    "WinDivertHelperCalcChecksums",
                                    "WinDivertHelperCompileFilter",
                                    "WinDivertHelperDecrementTTL",
                                    "WinDivertHelperEvalFilter",
                                    "WinDivertHelperFormatFilter",
                                    "WinDivertHelperFormatIPv4Address",
                                    "WinDivertHelperFormatIPv6Address",
                                    "WinDivertHelperHashPacket",
                                    "WinDivertHelperHtonIPv6Address",
                                    "WinDivertHelperHtonIpv6Address",
                                    "WinDivertHelperHtonl",
                                    "WinDivertHelperHtonll",
                                    "WinDivertHelperHtons",
                                    "WinDivertHelperNtohIPv6Address",
                                    "WinDivertHelperNtohIpv6Address",
                                    "WinDivertHelperNtohl",
                                    "WinDivertHelperNtohll",
                                    "WinDivertHelperNtohs",
                                    "WinDivertHelperParseIPv4Address",
                                    "WinDivertHelperParseIPv6Address",
                                    "WinDivertHelperParsePacket",
                                    "WinDivertOpen",
                                    "WinDivertRecv",
                                    "WinDivertRecvEx",
                                    "WinDivertSend",
                                    "WinDivertSendEx",
                                    "WinDivertSetParam",
                                    "WinDivertShutdown"};

TEST_F(DriverLibrary, HasThePublishedExportsAndNoOther) {
  for (const char* name : kExports) EXPECT_NE(library_.Find(name), nullptr) << name;
  const auto* image = reinterpret_cast<const std::uint8_t*>(::GetModuleHandleW(L"WinDivert.dll"));
  ASSERT_NE(image, nullptr);
  const auto* dos = reinterpret_cast<const IMAGE_DOS_HEADER*>(image);
  const auto* headers = reinterpret_cast<const IMAGE_NT_HEADERS64*>(image + dos->e_lfanew);
  const auto& entry = headers->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_EXPORT];
  const auto* exports =
      reinterpret_cast<const IMAGE_EXPORT_DIRECTORY*>(image + entry.VirtualAddress);
  EXPECT_EQ(exports->NumberOfNames, std::size(kExports));
}

TEST_F(DriverLibrary, CompilesFiltersIntoObjects) {
  const char* message = nullptr;
  UINT position = 0;
  EXPECT_FALSE(library_.compile("udp and x", 0, nullptr, 0, &message, &position));
  EXPECT_EQ(position, 8U);
  ASSERT_NE(message, nullptr);
  std::string tests = "true";
  for (int i = 1; i < 256; ++i) tests += " and true";
  std::vector<char> object(8192);
  const auto bytes = static_cast<UINT>(object.size());
  ASSERT_TRUE(library_.compile(tests.c_str(), 0, object.data(), bytes, nullptr, nullptr));
  EXPECT_EQ(std::count(object.begin() + 8, object.end(), '_'), 256);
  EXPECT_EQ(OpenError(object.data(), 0, 0, 0), 87U) << "of no use";
  ASSERT_TRUE(library_.compile("udp", 0, object.data(), bytes, &message, &position));
  EXPECT_STREQ(message, "No error");
  EXPECT_EQ(OpenError(object.data(), 0, 0, 0), 0U);
  EXPECT_FALSE(library_.compile("udp", 0, object.data(), 11, nullptr, nullptr));
  EXPECT_EQ(::GetLastError(), 122U);
  EXPECT_FALSE(library_.compile(nullptr, 0, nullptr, 0, nullptr, nullptr));
  EXPECT_EQ(::GetLastError(), 87U);
}

TEST_F(DriverLibrary, EvaluatesTextsAndObjects) {
  char object[64];
  ASSERT_TRUE(library_.compile("udp", 0, object, sizeof(object), nullptr, nullptr));
  const Bytes udp = packets::Ip(17, packets::Udp(1, 2, {}));
  const Record record{};
  const auto eval = [&](const char* filter, const Bytes& packet) {
    ::SetLastError(1234);
    const BOOL matches =
        library_.eval(filter, packet.data(), static_cast<UINT>(packet.size()), &record);
    return std::pair(matches, ::GetLastError());
  };
  const std::pair<BOOL, DWORD> matches(TRUE, 0), differs(FALSE, 0), failed(FALSE, 87);
  EXPECT_EQ(eval(object, udp), matches);
  EXPECT_EQ(eval("inbound and udp", udp), matches);
  EXPECT_EQ(eval("outbound and udp", udp), differs);
  EXPECT_EQ(eval("udp and x", udp), failed);
  EXPECT_EQ(eval(nullptr, udp), failed);
  Bytes malformed = udp;
  malformed[0] = 0x44;
  EXPECT_EQ(eval("true", malformed), failed);
  EXPECT_EQ(eval("true", Bytes(udp.begin(), udp.begin() + 19)), failed);
  Bytes ipv6(40);
  ipv6[0] = 0x60;
  EXPECT_EQ(eval("ipv6", ipv6), matches);
  EXPECT_EQ(eval("ip", ipv6), differs);
}

template <typename Function>
Function Bound(const Library& library, const char* name) {
  return reinterpret_cast<Function>(library.Find(name));
}

TEST_F(DriverLibrary, FormatsFiltersAndAddresses) {
  const auto format =
      Bound<BOOL (*)(const char*, int, char*, UINT)>(library_, "WinDivertHelperFormatFilter");
  char object[64], text[64];
  ASSERT_TRUE(library_.compile("udp or tcp", 0, object, sizeof(object), nullptr, nullptr));
  EXPECT_TRUE(format(object, 0, text, sizeof(text)));
  EXPECT_STREQ(text, "udp or tcp");
  EXPECT_FALSE(format("udp or x", 0, text, sizeof(text)));
  EXPECT_EQ(::GetLastError(), 87U);
  const auto formatIp =
      Bound<BOOL (*)(UINT32, char*, UINT)>(library_, "WinDivertHelperFormatIPv4Address");
  const auto parseIp =
      Bound<BOOL (*)(const char*, UINT32*)>(library_, "WinDivertHelperParseIPv4Address");
  EXPECT_TRUE(formatIp(0x0A000005, text, 9));
  EXPECT_STREQ(text, "10.0.0.5");
  EXPECT_FALSE(formatIp(0x0A000005, text, 8));
  EXPECT_EQ(::GetLastError(), 122U);
  UINT32 address = 0;
  EXPECT_TRUE(parseIp("10.0.0.5", &address));
  EXPECT_EQ(address, 0x0A000005U);
  EXPECT_TRUE(parseIp("10.0.0.5", nullptr));
  EXPECT_FALSE(parseIp("10.0.0", &address));
  EXPECT_EQ(::GetLastError(), 87U);
  const auto parseIpv6 =
      Bound<BOOL (*)(const char*, UINT32*)>(library_, "WinDivertHelperParseIPv6Address");
  EXPECT_FALSE(parseIpv6("::1", nullptr));
  EXPECT_EQ(::GetLastError(), 120U);
}

TEST_F(DriverLibrary, ParsesPacketsOneByOne) {
  const auto parse =
      Bound<BOOL (*)(void*, UINT, void**, void**, UINT8*, void**, void**, void**, void**, void**,
                     UINT*, void**, UINT*)>(library_, "WinDivertHelperParsePacket");
  Bytes both = packets::Join(packets::Ip(6, packets::Tcp(1, 2, packets::Payload(3))),
                             packets::Ip(17, packets::Udp(3, 4, {})));
  void *ip = nullptr, *ipv6 = &ip, *icmp = &ip, *icmpv6 = &ip, *tcp = nullptr, *udp = nullptr;
  void *data = nullptr, *next = nullptr;
  UINT8 protocol = 0;
  UINT dataBytes = 0, nextBytes = 0;
  const auto step = [&](void* packet, UINT bytes) {
    return parse(packet, bytes, &ip, &ipv6, &protocol, &icmp, &icmpv6, &tcp, &udp, &data,
                 &dataBytes, &next, &nextBytes);
  };
  ASSERT_TRUE(step(both.data(), static_cast<UINT>(both.size())));
  EXPECT_EQ(ip, both.data());
  EXPECT_EQ(protocol, 6);
  EXPECT_EQ(tcp, both.data() + 20);
  EXPECT_EQ(data, both.data() + 40);
  EXPECT_EQ(dataBytes, 3U);
  EXPECT_EQ(next, both.data() + 43);
  EXPECT_EQ(nextBytes, 28U);
  for (const void* absent : {ipv6, icmp, icmpv6, udp}) EXPECT_EQ(absent, nullptr);
  ASSERT_TRUE(step(next, nextBytes));
  EXPECT_EQ(udp, both.data() + 63);
  EXPECT_EQ(data, nullptr);
  EXPECT_EQ(next, nullptr);
  EXPECT_FALSE(step(next, nextBytes));
  EXPECT_TRUE(parse(both.data(), 43, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                    nullptr, nullptr, nullptr, nullptr));
  EXPECT_FALSE(step(both.data(), 42));
}

TEST_F(DriverLibrary, SwapsBytesAndHashesHeaders) {
  EXPECT_EQ(Bound<UINT16 (*)(UINT16)>(library_, "WinDivertHelperNtohs")(0x1234), 0x3412);
  EXPECT_EQ(Bound<UINT32 (*)(UINT32)>(library_, "WinDivertHelperHtonl")(0x12345678), 0x78563412U);
  EXPECT_EQ(Bound<UINT64 (*)(UINT64)>(library_, "WinDivertHelperNtohll")(0x0123456789ABCDEF),
            0xEFCDAB8967452301U);
  UINT words[4] = {0x01020304, 0x05060708, 0x090A0B0C, 0x0D0E0F10};
  Bound<void (*)(const UINT*, UINT*)>(library_, "WinDivertHelperNtohIPv6Address")(words, words);
  EXPECT_EQ(words[0], 0x100F0E0DU);
  EXPECT_EQ(words[3], 0x04030201U);
  const auto hash =
      Bound<UINT64 (*)(const void*, UINT, UINT64)>(library_, "WinDivertHelperHashPacket");
  Bytes packet = packets::Ip(17, packets::Udp(1, 2, {5}));
  const auto bytes = static_cast<UINT>(packet.size());
  const UINT64 before = hash(packet.data(), bytes, 0);
  packet.back() = 6;
  EXPECT_EQ(hash(packet.data(), bytes, 0), before);
  EXPECT_NE(hash(packet.data(), bytes, 1), before);
  packet[21] = 9;
  EXPECT_NE(hash(packet.data(), bytes, 0), before);
}

TEST_F(DriverLibrary, TakesAHop) {
  const auto decrement = Bound<BOOL (*)(void*, UINT)>(library_, "WinDivertHelperDecrementTTL");
  Bytes packet = packets::Ip(17, packets::Udp(1, 2, {}));
  packet[8] = 2;
  EXPECT_TRUE(decrement(packet.data(), static_cast<UINT>(packet.size())));
  EXPECT_EQ(packet[8], 1);
  EXPECT_FALSE(decrement(packet.data(), static_cast<UINT>(packet.size())));
  EXPECT_FALSE(decrement(nullptr, 20));
}

}  // namespace
