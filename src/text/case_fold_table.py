#!/usr/bin/env python3
"""Writes case_fold_table.h beside itself, from the Unicode data that Python carries.

A unit's folded form is Unicode's simple case folding (status C and S of CaseFolding.txt): one unit
to one unit of the basic plane. Foldings to several units (status F) and the Turkish ones (status T)
are left out. Run it again when the letters of a later Unicode version are wanted.
"""

import pathlib
import unicodedata

HEAD = """#pragma once

#include <cstdint>

// The simple case folding of the basic plane, Unicode {version}: {count} units.
// Written by case_fold_table.py; change that, not this.
namespace text {{

// Every `step`-th unit from `first` to `last` folds to the one `distance` further on, modulo 65536.
// Ascending; no two ranges overlap.
struct CaseRange {{
  std::uint16_t first;
  std::uint16_t last;
  std::uint16_t step;
  std::uint16_t distance;
}};

// clang-format off
inline constexpr CaseRange kCaseRanges[] = {{
"""
TAIL = """};
// clang-format on

}  // namespace text
"""


def folded(unit):
    letter = chr(unit)
    full = letter.casefold()
    if len(full) == 1:
        return ord(full)
    # Where the full folding has several units, the simple one, if there is one, is the lower case.
    lower = letter.lower()
    return ord(lower) if len(lower) == 1 else unit


def ranges():
    found = []
    for unit in range(0x10000):
        distance = (folded(unit) - unit) % 0x10000
        if distance == 0:
            continue
        if found and found[-1][3] == distance:
            first, last, step, _ = found[-1]
            gap = unit - last
            if gap == step or (first == last and gap <= 2):
                found[-1] = (first, unit, gap, distance)
                continue
        found.append((unit, unit, 1, distance))
    return found


def main():
    rows = ranges()
    count = sum((last - first) // step + 1 for first, last, step, _ in rows)
    text = HEAD.format(version=unicodedata.unidata_version, count=count)
    for at in range(0, len(rows), 3):
        line = ["{0x%04X, 0x%04X, %d, 0x%04X}," % row for row in rows[at : at + 3]]
        text += "    " + " ".join(line) + "\n"
    pathlib.Path(__file__).with_name("case_fold_table.h").write_text(text + TAIL)


if __name__ == "__main__":
    main()
