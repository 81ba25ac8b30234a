#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace shell {

// What a program started to replace another one is told.
struct ApplyUpdateArguments {
  std::uint32_t parentPid = 0;
  std::wstring source;
  std::wstring destination;
};

// The request in `arguments` (the program's own name first): "--apply-update" in any letter case
// and three arguments behind it; a process id that is no number is 0. Nothing for every other
// command line, which starts the client.
std::optional<ApplyUpdateArguments> ParseApplyUpdate(const std::vector<std::wstring>& arguments);

// What a program started only to write a report is told.
struct CheckArguments {
  std::optional<std::wstring> file;  // where to; nothing: the program's choice
};

// The request in `arguments`: "--check" in any letter case, perhaps with a file behind it. Nothing
// for every other command line.
std::optional<CheckArguments> ParseCheck(const std::vector<std::wstring>& arguments);

}  // namespace shell
