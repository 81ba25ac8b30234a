#include "update/quote_argument.h"

namespace update {

std::wstring QuoteArgument(std::wstring_view text) {
  std::wstring quoted = L"\"";
  for (const wchar_t unit : text) {
    if (unit == L'"') quoted += L'\\';
    quoted += unit;
  }
  return quoted += L'"';
}

}  // namespace update
