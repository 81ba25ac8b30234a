#include "platform/path.h"

#include <algorithm>

namespace platform {
namespace {

// Folder calls reserve room for an 8.3 name within the 260 characters of the plain form.
constexpr std::size_t kLongestPlainPath = 247;

bool IsSlash(wchar_t unit) {
  return unit == L'\\' || unit == L'/';
}

}  // namespace

std::wstring JoinPath(std::wstring_view base, std::wstring_view relative) {
  std::wstring joined(base);
  if (!joined.empty() && joined.back() != L'\\' && joined.back() != L'/') joined += L'\\';
  joined += relative;
  return joined;
}

std::wstring ParentFolder(std::wstring_view path) {
  const auto slash = path.find_last_of(L"\\/");
  return slash == std::wstring_view::npos ? std::wstring() : std::wstring(path.substr(0, slash));
}

std::wstring ExtendedPath(std::wstring_view path) {
  // Short paths stay plain: the prefix turns off the interpretation of "/", "." and relative paths.
  if (path.size() <= kLongestPlainPath) return std::wstring(path);
  const bool onDrive = path[1] == L':' && IsSlash(path[2]);
  // After two slashes, "?" or "." marks a form that must not get another prefix.
  const bool onServer = IsSlash(path[0]) && IsSlash(path[1]) && path[2] != L'?' && path[2] != L'.';
  if (!onDrive && !onServer) return std::wstring(path);
  std::wstring extended = onDrive ? L"\\\\?\\" : L"\\\\?\\UNC\\";
  extended += path.substr(onDrive ? 0 : 2);
  std::replace(extended.begin(), extended.end(), L'/', L'\\');
  return extended;
}

std::wstring PathFromBuffer(std::span<const wchar_t> buffer, std::size_t lengthUnits) {
  // A path that did not fit: the calls then return the needed size, or the buffer's own.
  if (lengthUnits >= buffer.size()) return {};
  return std::wstring(buffer.data(), lengthUnits);
}

}  // namespace platform
