// Compares the folding table with the C library's case tables, which come from another source.

#include <gtest/gtest.h>
#include <locale.h>

#include <cstdint>
#include <cwctype>
#include <string>

#include "text/strings.h"

namespace text {
namespace {

// The C library has no case folding, but upper-casing and then lower-casing unifies the same
// characters: the micro sign and the letter mu have the same upper case.
class SystemCase {
 public:
  SystemCase() : locale_(::newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr)) {}
  ~SystemCase() {
    if (IsThere()) ::freelocale(locale_);
  }
  SystemCase(const SystemCase&) = delete;
  SystemCase& operator=(const SystemCase&) = delete;

  [[nodiscard]] bool IsThere() const { return locale_ != nullptr; }
  [[nodiscard]] std::uint32_t Upper(std::uint32_t unit) const {
    return static_cast<std::uint32_t>(::towupper_l(unit, locale_));
  }
  [[nodiscard]] std::uint32_t Lower(std::uint32_t unit) const {
    return static_cast<std::uint32_t>(::towlower_l(unit, locale_));
  }

 private:
  locale_t locale_;
};

bool IsCherokee(std::uint32_t unit) {
  return (unit >= 0x13A0 && unit <= 0x13FD) || (unit >= 0xAB70 && unit <= 0xABBF);
}

TEST(FoldCase, AgreesWithTheSystemOnEveryUnit) {
  const SystemCase system;
  ASSERT_TRUE(system.IsThere());
  int changed = 0;
  for (std::uint32_t unit = 0; unit <= 0xFFFF; ++unit) {
    std::uint32_t wanted = system.Upper(unit);
    // Cherokee folds to upper case, because its lower-case letters were added to Unicode later.
    if (!IsCherokee(unit)) wanted = system.Lower(wanted);
    // The Turkish dotted I and dotless i pair with ASCII letters, but do not fold.
    if (unit == 0x0130 || unit == 0x0131) wanted = unit;
    const std::wstring folded = FoldCase(std::wstring(1, static_cast<wchar_t>(unit)));
    ASSERT_EQ(folded.size(), 1u);
    EXPECT_EQ(static_cast<std::uint32_t>(folded[0]), wanted) << std::hex << unit;
    changed += wanted != unit;
  }
  EXPECT_GT(changed, 1000) << "the system knows its letters";
}

TEST(FoldCase, NeverGivesAnUpperCaseLetter) {
  const SystemCase system;
  ASSERT_TRUE(system.IsThere());
  for (std::uint32_t unit = 0; unit <= 0xFFFF; ++unit) {
    if (IsCherokee(unit) || unit == 0x0130) continue;
    const auto folded =
        static_cast<std::uint32_t>(FoldCase(std::wstring(1, static_cast<wchar_t>(unit)))[0]);
    EXPECT_EQ(system.Lower(folded), folded) << std::hex << unit;
  }
}

}  // namespace
}  // namespace text
