// Input: three paths, one per line, and a process id. The command line written for the replacement
// process must yield them again when it is split by the system's published rules.

#include <cwchar>
#include <optional>
#include <vector>

#include "fuzz_input.h"
#include "shell/command_line.h"
#include "update/apply_update.h"

namespace update {
namespace {

using fuzz::Require;

// The program's name, which comes first. A quoted name ends at the next quote, any other at a
// blank; backslashes are not special.
std::wstring TakeProgram(std::wstring_view& rest) {
  const bool isQuoted = rest.starts_with(L'"');
  if (isQuoted) rest.remove_prefix(1);
  const std::size_t end = std::min(rest.find_first_of(isQuoted ? L"\"" : L" \t"), rest.size());
  const std::wstring program(rest.substr(0, end));
  rest.remove_prefix(std::min(end + (isQuoted ? 1 : 0), rest.size()));
  return program;
}

// Every other argument, as documented for CommandLineToArgvW: 2n backslashes before a quote yield
// n, and the quote begins or ends a quoted part; 2n+1 yield n and a literal quote. All other
// backslashes are literal. A quote right after one that ends a quoted part is literal, too.
std::wstring TakeArgument(std::wstring_view& rest) {
  std::wstring argument;
  bool isQuoted = false;
  while (!rest.empty() && (isQuoted || (rest.front() != L' ' && rest.front() != L'\t'))) {
    const std::size_t slashes = std::min(rest.find_first_not_of(L'\\'), rest.size());
    rest.remove_prefix(slashes);
    if (!rest.starts_with(L'"')) {
      argument.append(slashes, L'\\');
      if (slashes > 0) continue;
      argument += rest.front();
    } else {
      argument.append(slashes / 2, L'\\');
      const bool isEnd = slashes % 2 == 0;
      const bool isDoubled = isEnd && isQuoted && rest.substr(1).starts_with(L'"');
      if (!isEnd || isDoubled) argument += L'"';
      if (isEnd) isQuoted = !isQuoted;
      if (isDoubled) rest.remove_prefix(1);
    }
    rest.remove_prefix(1);
  }
  return argument;
}

std::vector<std::wstring> Split(std::wstring_view commandLine) {
  std::vector<std::wstring> arguments{TakeProgram(commandLine)};
  for (;;) {
    commandLine.remove_prefix(std::min(commandLine.find_first_not_of(L" \t"), commandLine.size()));
    if (commandLine.empty()) return arguments;
    arguments.push_back(TakeArgument(commandLine));
  }
}

// False for the texts that QuoteArgument() does not preserve, and for a zero, which ends a command
// line.
bool IsPreserved(const std::wstring& text) {
  return text.find(L'\0') == std::wstring::npos && text.find(L"\\\"") == std::wstring::npos &&
         !text.ends_with(L'\\');
}

void Run(fuzz::Input input) {
  const std::wstring updater = input.WideLine();
  const std::wstring source = input.WideLine();
  const std::wstring destination = input.WideLine();
  std::uint32_t processId = 0;
  for (int i = 0; i < 4; ++i) processId = processId << 8 | input.Byte();

  const std::wstring commandLine = UpdaterCommandLine(updater, processId, source, destination);
  const std::vector<std::wstring> arguments = Split(commandLine);
  shell::ParseApplyUpdate(arguments);
  // A quote cannot be preserved in the program's name; no path contains one.
  if (updater.find_first_of(L"\"\0", 0, 2) != std::wstring::npos) return;
  if (!IsPreserved(source) || !IsPreserved(destination)) return;
  Require(arguments.size() == 5 && arguments[0] == updater);
  const auto read = shell::ParseApplyUpdate(arguments);
  Require(read && read->parentPid == processId);
  Require(read->source == source && read->destination == destination);
}

}  // namespace
}  // namespace update

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t sizeBytes) {
  update::Run(fuzz::Input(data, sizeBytes));
  return 0;
}
