#pragma once

#include <string>

namespace checks {

// Opens the file with the program that the user has for its kind. Returns at once; a failure is not
// reported. Any thread.
void ShowFile(const std::wstring& path);

}  // namespace checks
