#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

namespace update {

using FileVersion = std::array<std::uint16_t, 4>;

// The file version in the version resource of a Windows program, given the whole file: what
// Explorer shows in its properties. Nothing when the bytes are no such program, hold no version
// resource, or are damaged on the way to it. Reads any bytes safely. Pure; any thread.
std::optional<FileVersion> ReadFileVersion(std::span<const std::byte> program);

// "1.0.4.0".
std::wstring FileVersionText(const FileVersion& version);

// Whether `version` is higher than `current`, the text of at most four numbers that a build is
// named by; numbers that it leaves out are 0. Pure; any thread.
bool IsHigher(const FileVersion& version, std::wstring_view current);

}  // namespace update
