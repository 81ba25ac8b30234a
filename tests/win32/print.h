#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <type_traits>

#include "win32/functions.h"

// The arguments of a call as readable text, identical for recorded and expected calls.
namespace win32 {

// "h1", "h2" ... for the handles and other pointers returned by recorded calls.
using Names = std::map<std::uintptr_t, std::string>;

// Placeholders for values that the test cannot know.
struct Handle {  // the `number`-th that was returned, from 1
  int number;
};
struct Some {};  // any pointer except null
struct Ref {     // a pointer to this number
  std::uint64_t number;
};
struct Text {  // printed unchanged
  std::string text;
};

std::string Print(const wchar_t* text);  // quoted, in UTF-8; "#301" for a resource's number
std::string Print(const std::wstring& text);
std::string Print(const GUID& id);
std::string Print(const STARTUPINFOW* startup);
std::string Print(const WNDCLASSEXW* window, const Names& names);
std::string Print(const RECT* area);
std::string Print(const sockaddr* address);  // "127.0.0.1:80"
std::string Print(const addrinfo* hints);
std::string Print(const INITCOMMONCONTROLSEX* controls);
std::string Print(const INPUT* input);  // the first one, a keyboard input
std::string Print(const SHELLEXECUTEINFOW* start);
std::string Print(const timeval* time);                        // "{0 s 20000 us}"
std::string Print(const fd_set* sockets, const Names& names);  // "{h1}"
std::string PrintBytes(const void* bytes, std::size_t lengthBytes);
std::string PrintPointer(const volatile void* pointer, const Names& names);
std::string PrintNumber(std::uint64_t number, const Names& names);

template <typename T>
std::string Print(const T& value, const Names& names) {
  using Plain = std::remove_cv_t<T>;
  if constexpr (std::is_same_v<Plain, Handle>) {
    return "h" + std::to_string(value.number);
  } else if constexpr (std::is_same_v<Plain, Some>) {
    return "ptr";
  } else if constexpr (std::is_same_v<Plain, Ref>) {
    return "&" + std::to_string(value.number);
  } else if constexpr (std::is_same_v<Plain, Text>) {
    return value.text;
  } else if constexpr (std::is_same_v<Plain, std::string>) {
    return PrintBytes(value.data(), value.size());
  } else if constexpr (std::is_array_v<T> && std::is_convertible_v<T, const char*>) {
    return PrintBytes(value, sizeof(value) - 1);
  } else if constexpr (std::is_same_v<Plain, std::nullptr_t>) {
    return "null";
  } else if constexpr (std::is_same_v<Plain, WNDCLASSEXW*> ||
                       std::is_same_v<Plain, const WNDCLASSEXW*>) {
    return Print(static_cast<const WNDCLASSEXW*>(value), names);
  } else if constexpr (std::is_convertible_v<Plain, const fd_set*>) {
    return Print(static_cast<const fd_set*>(value), names);
  } else if constexpr (std::is_same_v<Plain, std::wstring> || std::is_same_v<Plain, GUID> ||
                       std::is_convertible_v<Plain, const wchar_t*> ||
                       std::is_convertible_v<Plain, const RECT*> ||
                       std::is_same_v<Plain, const sockaddr*> ||
                       std::is_same_v<Plain, const addrinfo*> ||
                       std::is_convertible_v<Plain, const STARTUPINFOW*> ||
                       std::is_convertible_v<Plain, const INPUT*> ||
                       std::is_convertible_v<Plain, const SHELLEXECUTEINFOW*> ||
                       std::is_convertible_v<Plain, const timeval*> ||
                       std::is_convertible_v<Plain, const INITCOMMONCONTROLSEX*>) {
    return Print(value);
  } else if constexpr (std::is_same_v<Plain, DWORD*> || std::is_same_v<Plain, int*>) {
    return value == nullptr ? "null" : "&" + std::to_string(*value);
  } else if constexpr (std::is_pointer_v<Plain>) {
    if constexpr (std::is_function_v<std::remove_pointer_t<Plain>>) {
      return value == nullptr ? "null" : "function";
    } else {
      return PrintPointer(value, names);
    }
  } else if constexpr (std::is_enum_v<Plain>) {
    return std::to_string(static_cast<long long>(value));
  } else if constexpr (sizeof(Plain) == 8) {  // a message's parameter may be a handle, a socket is
    return std::is_signed_v<Plain> && value < Plain{}
               ? std::to_string(value)
               : PrintNumber(static_cast<std::uint64_t>(value), names);
  } else {
    return std::to_string(value);
  }
}

}  // namespace win32
