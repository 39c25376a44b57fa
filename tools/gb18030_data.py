#!/usr/bin/env python3
"""Writes src/base/charset/gb18030_data.hpp, the data of GB18030 (edition 2022), to standard output.

usage: tools/gb18030_data.py [charmap.gz] > src/base/charset/gb18030_data.hpp

The source is the POSIX charmap GB18030 of Debian's package `locales` (/usr/share/i18n/charmaps/GB18030.gz; this data is
from version 2.36), from which the rows of two-byte codes are taken as they are but for PRIVATE_USE below. The four-byte
codes are not stored: those of the Basic Multilingual Plane are its code points in ascending order, without surrogates
and without those that had a two-byte code in the first edition; EXCHANGED then swaps the pairs that later editions
exchanged. The script proves that this rule gives every four-byte code of the charmap before it writes anything.
"""
import gzip
import re
import sys
import unicodedata

# The two-byte codes that keep their private-use code point although the charmap gives them the ideograph of a
# supplementary plane: (code, code point). The reason is the same for all six: the ideograph has a four-byte code of its
# own beyond 90308130, so both stay convertible there and back, and every two-byte code fits into one 16-bit unit.
PRIVATE_USE = [
    (0xFE51, 0xE816),  # U+20087 is 95329031
    (0xFE52, 0xE817),  # U+20089 is 95329033
    (0xFE53, 0xE818),  # U+200CC is 95329730
    (0xFE6C, 0xE831),  # U+215D7 is 9536B937
    (0xFE76, 0xE83B),  # U+2298F is 9630BA35
    (0xFE91, 0xE855),  # U+241FE is 9635B630
]

# The two-byte codes whose code point a later edition exchanged with the private-use one of the first edition:
# (code, first edition, now). The private-use code point took over the four-byte code that the other one had.
EXCHANGED = [
    (0xA8BC, 0xE7C7, 0x1E3F),  # edition 2005: m with acute came into Unicode
    # Edition 2022: the presentation forms of vertical punctuation (Unicode 4.1).
    (0xA6D9, 0xE78D, 0xFE10), (0xA6DA, 0xE78E, 0xFE12), (0xA6DB, 0xE78F, 0xFE11), (0xA6DC, 0xE790, 0xFE13),
    (0xA6DD, 0xE791, 0xFE14), (0xA6DE, 0xE792, 0xFE15), (0xA6DF, 0xE793, 0xFE16), (0xA6EC, 0xE794, 0xFE17),
    (0xA6ED, 0xE795, 0xFE18), (0xA6F3, 0xE796, 0xFE19),
    # Edition 2022: the radicals and components that Unicode 4.1 placed behind the ideographs.
    (0xFE59, 0xE81E, 0x9FB4), (0xFE61, 0xE826, 0x9FB5), (0xFE66, 0xE82B, 0x9FB6), (0xFE67, 0xE82C, 0x9FB7),
    (0xFE6D, 0xE832, 0x9FB8), (0xFE7E, 0xE843, 0x9FB9), (0xFE90, 0xE854, 0x9FBA), (0xFEA0, 0xE864, 0x9FBB),
]

LEADS = range(0x81, 0xFF)
HALVES = (range(0x40, 0xA1), range(0xA1, 0xFF))  # trail bytes; 7F is a hole

HEADER = """\
// gb18030_data.hpp: written by tools/gb18030_data.py from the charmap GB18030 of Debian's package locales, which lists
// the mappings of the published standard; the script names the few dozen where the edition of 2022 differs.
#pragma once

#include "base/charset/gb18030_tables.hpp"

// clang-format off

// The code points of the two-byte codes: a row for each lead byte 81..FE, in it a column for each trail byte 40..FE,
// the hole at 7F being 0. Private use and all that an editor might alter is escaped.
constexpr char16_t gb18030_rows[gb18030_leads][gb18030_trails + 1] = {
"""

MIDDLE = """\
};

// Code points that later editions exchanged: the first had the two-byte code in the first edition, the second has it
// now, and the first took over the second's place among the four-byte codes.
constexpr struct { char16_t first_edition, now; } gb18030_exchanged[] = {
"""


def read_charmap(path):
    """{code: code point} of the Basic Multilingual Plane's one- and four-byte codes and of all two-byte codes."""
    codes = {}
    with gzip.open(path, "rt", encoding="ascii", errors="replace") as lines:
        for line in lines:
            if line.startswith("END CHARMAP"):
                break
            entry = re.match(r"<U([0-9A-F]+)>\s+((?:/x[0-9a-f]{2})+)\s", line)
            if entry and (int(entry[1], 16) < 0x10000 or len(entry[2]) == 8):
                codes[int(entry[2].replace("/x", ""), 16)] = int(entry[1], 16)
    return codes


def four_byte_code(linear):
    code = 0
    for place, base in ((1260 * 10, 0x81), (1260, 0x30), (10, 0x81), (1, 0x30)):
        code = code << 8 | base + linear // place
        linear %= place
    return code


def four_byte_code_points(two_byte):
    """The code points of the four-byte codes in order."""
    taken = set(two_byte.values())
    for _, first, now in EXCHANGED:
        taken.remove(now)
        taken.add(first)
    places = {now: first for _, first, now in EXCHANGED}
    plane = (c for c in range(0x80, 0x10000) if not 0xD800 <= c < 0xE000 and c not in taken)
    return [places.get(c, c) for c in plane]


def check(condition, text):
    if not condition:
        sys.exit("gb18030_data.py: " + text)


def two_byte_codes(charmap):
    two_byte = {code: point for code, point in charmap.items() if 0xFF < code < 0x10000}
    check(len(two_byte) == len(LEADS) * 190, "the charmap lacks two-byte codes")
    for code, point in PRIVATE_USE:
        check(two_byte[code] > 0xFFFF, "the charmap no longer differs at %04X" % code)
        two_byte[code] = point
    for code, _, now in EXCHANGED:
        check(two_byte[code] == now, "the charmap is of an older edition at %04X" % code)
    return two_byte


def check_four_byte_codes(charmap, two_byte):
    listed = {code: point for code, point in charmap.items() if code > 0xFFFF}
    ours = {four_byte_code(i): point for i, point in enumerate(four_byte_code_points(two_byte))}
    differing = [point for code, point in ours.items() if listed.get(code) != point]
    # The charmap leaves out the private-use code points of edition 2022; that of 2005 it has.
    check(sorted(differing) == sorted(first for _, first, _ in EXCHANGED[1:]), "the rule and the charmap differ")
    check(all(code in ours for code in listed), "the charmap has four-byte codes that the rule lacks")


def literal(point):
    """The character itself where it shows as a glyph and normalising the file would not change it."""
    character = chr(point)
    shows = unicodedata.category(character)[0] in "LNSP" and character not in '"\\'
    return character if shows and unicodedata.is_normalized("NFC", character) else "\\u%04x" % point


def main():
    charmap = read_charmap(sys.argv[1] if len(sys.argv) > 1 else "/usr/share/i18n/charmaps/GB18030.gz")
    two_byte = two_byte_codes(charmap)
    check_four_byte_codes(charmap, two_byte)
    out = [HEADER]
    for lead in LEADS:
        for half in HALVES:
            text = "".join("\\0" if trail == 0x7F else literal(two_byte[lead << 8 | trail]) for trail in half)
            out.append('%s u"%s"%s\n' % ("/* %02X */" % lead if half is HALVES[0] else "        ", text,
                                         "," if half is HALVES[-1] else ""))
    out.append(MIDDLE)
    out.extend("    {0x%04X, 0x%04X}, // %04X\n" % (first, now, code) for code, first, now in EXCHANGED)
    out.append("};\n")
    sys.stdout.write("".join(out))


if __name__ == "__main__":
    main()
