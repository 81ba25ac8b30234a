#pragma once

namespace update {

// This program's version, as the version resource and the central service know it.
inline constexpr wchar_t kClientVersion[] = L"1.0.4";

}  // namespace update
