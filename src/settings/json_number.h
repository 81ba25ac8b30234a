#pragma once

#include <string_view>

namespace settings {

// The number that the longest usable beginning of `run` spells: a sign, digits with perhaps a
// decimal point, perhaps an exponent. 0 when there is none ("", "-", "--1"). Too large is infinity,
// too small is 0, both with the sign. As the C library's wcstod in the C locale, whatever the
// process's locale, for runs of + - . E e and ASCII digits. Pure.
double ParseJsonNumber(std::wstring_view run);

// The unit that four units after "\u" spell, as the C library's wcstoul in base 16 takes them:
// leading white space, a sign and "0x" are allowed, the first unit that is no hexadecimal digit
// ends the number, and of the result the low 16 bits count. Pure.
wchar_t ParseHexUnit(std::wstring_view fourUnits);

}  // namespace settings
