#include "win32/print.h"

#include <iomanip>
#include <sstream>

#include "text/utf8.h"

namespace win32 {
namespace {

constexpr std::uintptr_t kFirstAddress = 0x10000;  // smaller values are resource numbers

template <typename... Parts>
std::string Join(const Parts&... parts) {
  std::ostringstream text;
  (text << ... << parts);
  return text.str();
}

std::string Hex(unsigned long number, int digits) {
  std::ostringstream text;
  text << std::hex << std::uppercase << std::setfill('0') << std::setw(digits) << number;
  return text.str();
}

}  // namespace

std::string Print(const wchar_t* text) {
  const auto address = reinterpret_cast<std::uintptr_t>(text);
  if (text == nullptr) return "null";
  if (address < kFirstAddress) return "#" + std::to_string(address);
  return '"' + text::ToUtf8(text) + '"';
}

std::string Print(const std::wstring& text) {
  return Print(text.c_str());
}

std::string Print(const GUID& id) {
  return "{" + Hex(id.Data1, 8) + "}";
}

std::string Print(const STARTUPINFOW* startup) {
  if (startup == nullptr) return "null";
  return Join("{", startup->cb, " flags ", startup->dwFlags, " show ", startup->wShowWindow, "}");
}

std::string Print(const WNDCLASSEXW* window, const Names& names) {
  if (window == nullptr) return "null";
  return Join("{", window->cbSize, " style ", window->style, " extra ", window->cbClsExtra, " ",
              window->cbWndExtra, " icons ", PrintPointer(window->hIcon, names), " ",
              PrintPointer(window->hIconSm, names), " cursor ",
              PrintPointer(window->hCursor, names), " brush ",
              PrintPointer(window->hbrBackground, names), " menu ", Print(window->lpszMenuName),
              " ", Print(window->lpszClassName), "}");
}

std::string Print(const RECT* area) {
  if (area == nullptr) return "null";
  return Join("[", area->left, " ", area->top, " ", area->right, " ", area->bottom, "]");
}

std::string Print(const sockaddr* address) {
  if (address == nullptr) return "null";
  if (address->sa_family != AF_INET) return Join("family ", address->sa_family);
  const auto* ipv4 = reinterpret_cast<const sockaddr_in*>(address);
  const auto* bytes = reinterpret_cast<const unsigned char*>(&ipv4->sin_addr);
  const auto* port = reinterpret_cast<const unsigned char*>(&ipv4->sin_port);
  return Join(+bytes[0], ".", +bytes[1], ".", +bytes[2], ".", +bytes[3], ":",
              port[0] * 256 + port[1]);
}

std::string Print(const addrinfo* hints) {
  if (hints == nullptr) return "null";
  return Join("{flags ", hints->ai_flags, " family ", hints->ai_family, " type ",
              hints->ai_socktype, " protocol ", hints->ai_protocol, "}");
}

std::string Print(const INITCOMMONCONTROLSEX* controls) {
  if (controls == nullptr) return "null";
  return Join("{", controls->dwSize, " classes ", controls->dwICC, "}");
}

std::string Print(const timeval* time) {
  if (time == nullptr) return "null";
  return Join("{", time->tv_sec, " s ", time->tv_usec, " us}");
}

std::string Print(const fd_set* sockets, const Names& names) {
  if (sockets == nullptr) return "null";
  std::string text;
  for (u_int i = 0; i < sockets->fd_count; ++i) {
    text += (i == 0 ? "" : " ") + PrintNumber(sockets->fd_array[i], names);
  }
  return "{" + text + "}";
}

std::string Print(const INPUT* input) {
  if (input == nullptr) return "null";
  return Join("{type ", input->type, " key ", input->ki.wVk, " scan ", input->ki.wScan, " flags ",
              input->ki.dwFlags, " time ", input->ki.time, " extra ", input->ki.dwExtraInfo, "}");
}

std::string Print(const SHELLEXECUTEINFOW* start) {
  if (start == nullptr) return "null";
  return Join("{", start->cbSize, " mask ", start->fMask, " window ",
              PrintPointer(start->hwnd, Names()), " verb ", Print(start->lpVerb), " ",
              Print(start->lpFile), " ", Print(start->lpParameters), " in ",
              Print(start->lpDirectory), " show ", start->nShow, "}");
}

std::string PrintBytes(const void* bytes, std::size_t lengthBytes) {
  constexpr std::size_t kShownBytes = 96;
  if (bytes == nullptr) return "null";
  std::string shown = "\"";
  const auto* units = static_cast<const unsigned char*>(bytes);
  for (std::size_t i = 0; i < lengthBytes && i < kShownBytes; ++i) {
    const unsigned char unit = units[i];
    const bool plain = unit >= ' ' && unit < 0x7F && unit != '\\' && unit != '"';
    shown += plain ? std::string(1, static_cast<char>(unit)) : "\\x" + Hex(unit, 2);
  }
  if (lengthBytes > kShownBytes) shown += "...";
  return shown + '"';
}

std::string PrintPointer(const volatile void* pointer, const Names& names) {
  const auto address = reinterpret_cast<std::uintptr_t>(pointer);
  if (const auto found = names.find(address); found != names.end()) return found->second;
  if (address == 0) return "null";
  if (address > ~std::uintptr_t{kFirstAddress}) return "-" + std::to_string(~address + 1);
  // The predefined registry keys, and system colours as a window class's background.
  if (address < kFirstAddress) return "#" + std::to_string(address);
  if (pointer == HKEY_CURRENT_USER) return "HKEY_CURRENT_USER";
  if (pointer == HKEY_LOCAL_MACHINE) return "HKEY_LOCAL_MACHINE";
  if (pointer == HKEY_USERS) return "HKEY_USERS";
  return "ptr";
}

std::string PrintNumber(std::uint64_t number, const Names& names) {
  const auto found = names.find(static_cast<std::uintptr_t>(number));
  return found != names.end() && number != 0 ? found->second : std::to_string(number);
}

}  // namespace win32
