#pragma once

#include <string_view>

namespace update {

// Negative, zero or positive as version `a` is older than, equal to or newer than `b`.
//
// A version is the list of its numbers: each maximal run of the digits 0 to 9 is one, whatever
// stands between the runs ("v2.1-rc3" is 2, 1, 3). A number past 2147483647 counts as that. Digits
// of other scripts are no digits here. Lists are compared number by number, a missing one counting
// as 0. Equal lists leave it to the texts, compared unit by unit without regard to letter case:
// "1.0.4.0" is newer than "1.0.4", and so is "1.0.4b", which equals "1.0.4B".
//
// Total over all texts: swapping the arguments swaps the sign, and the order is transitive. Pure;
// any thread.
int CompareVersions(std::wstring_view a, std::wstring_view b);

// The same by the numbers alone: 0 where they are equal, whatever the texts.
int CompareVersionNumbers(std::wstring_view a, std::wstring_view b);

}  // namespace update
