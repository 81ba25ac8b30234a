#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

// Versions of programs: as texts, and in the version resource of a file. Pure; any thread.
namespace update {

// Negative, zero or positive when version `a` is older than, equal to or newer than `b`.
//
// A version is the list of its numbers: each maximal run of the digits 0 to 9 is one, whatever
// separates the runs ("v2.1-rc3" is 2, 1, 3). A number beyond 2147483647 counts as that; digits of
// other scripts are not digits here. Lists are compared number by number, and a missing number
// counts as 0. If the lists are equal, the texts decide, compared unit by unit and ignoring letter
// case: "1.0.4.0" is newer than "1.0.4", and so is "1.0.4b", which equals "1.0.4B".
//
// A total order: swapping the arguments swaps the sign, and the order is transitive.
int CompareVersions(std::wstring_view a, std::wstring_view b);

// Compares the numbers only: 0 when they are equal, whatever the texts.
int CompareVersionNumbers(std::wstring_view a, std::wstring_view b);

using FileVersion = std::array<std::uint16_t, 4>;

// The file version in the version resource of a Windows program, as Explorer shows it. `program` is
// the whole file. Empty when the bytes are not a program, hold no version resource or are damaged
// on the way to it. Safe for any bytes.
std::optional<FileVersion> ReadFileVersion(std::span<const std::byte> program);

// "1.0.4.0".
std::wstring FileVersionText(const FileVersion& version);

// Whether `version` is higher than `current`, a build's version of at most four numbers; missing
// numbers are 0.
bool IsHigher(const FileVersion& version, std::wstring_view current);

}  // namespace update
