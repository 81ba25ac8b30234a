#include "shell/command_line.h"

#include <cwchar>

#include "text/strings.h"

namespace shell {

std::optional<ApplyUpdateArguments> ParseApplyUpdate(const std::vector<std::wstring>& arguments) {
  // The first argument is the program's own name.
  if (arguments.size() < 5 || !text::EqualsIgnoreCase(arguments[1], L"--apply-update")) {
    return std::nullopt;
  }
  // wcstoul() returns 0 without a leading number.
  const auto pid = static_cast<std::uint32_t>(std::wcstoul(arguments[2].c_str(), nullptr, 10));
  return ApplyUpdateArguments{pid, arguments[3], arguments[4]};
}

std::optional<CheckArguments> ParseCheck(const std::vector<std::wstring>& arguments) {
  if (arguments.size() < 2 || !text::EqualsIgnoreCase(arguments[1], L"--check")) {
    return std::nullopt;
  }
  CheckArguments request;
  if (arguments.size() > 2 && !arguments[2].empty()) request.file = arguments[2];
  return request;
}

std::optional<std::wstring> DevelopmentTreeRoot(std::wstring_view programPath) {
  const std::size_t end = programPath.find(L"\\src\\VelmarineNative\\");
  if (end == std::wstring_view::npos) return std::nullopt;
  return std::wstring(programPath.substr(0, end));
}

}  // namespace shell
