#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

// Reads how and from where the program was started. Pure.
namespace shell {

struct ApplyUpdateArguments {
  std::uint32_t parentPid = 0;  // 0 when it is not a number
  std::wstring source;
  std::wstring destination;
};

// "--apply-update" in any letter case and its three arguments; `arguments` starts with the
// program's own name. Nothing for any other command line, which starts the client.
std::optional<ApplyUpdateArguments> ParseApplyUpdate(const std::vector<std::wstring>& arguments);

struct CheckArguments {
  std::optional<std::wstring> file;  // nothing: the program chooses
};

// "--check" in any letter case, perhaps with a file; nothing for any other command line.
std::optional<CheckArguments> ParseCheck(const std::vector<std::wstring>& arguments);

// The root of the source tree whose build output holds `programPath`: the part before
// "\src\VelmarineNative\". Nothing for a program anywhere else.
std::optional<std::wstring> DevelopmentTreeRoot(std::wstring_view programPath);

}  // namespace shell
