#include "remote/launch_program.h"

namespace remote {

std::wstring JoinArguments(std::span<const std::wstring> arguments) {
  std::wstring joined;
  for (const std::wstring& argument : arguments) {
    if (!joined.empty()) joined += L' ';
    joined += L'"' + argument + L'"';
  }
  return joined;
}

}  // namespace remote
