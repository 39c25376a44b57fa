// gb18030_tables.hpp: the direct-index tables of GB18030, complete at build time.
//
// They are constant data of some 520 KiB, shared by all processes and paged in from the file only where a text touches
// them: a Chinese text touches about 40 KiB in each direction, an ASCII text nothing.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

// Two-byte codes have a lead byte of 81..FE and a trail byte of 40..FE without 7F.
constexpr unsigned gb18030_first_lead = 0x81, gb18030_leads = 126;
constexpr unsigned gb18030_first_trail = 0x40, gb18030_trails = 191;

// Four-byte codes are numbered in ascending order from 81308130 on. First comes the Basic Multilingual Plane, as far as
// it has no shorter codes; the supplementary planes begin at 90308130. Between and behind them nothing is assigned.
constexpr unsigned gb18030_plane_codes = 39420;
constexpr unsigned gb18030_first_supplementary = 189000;
constexpr unsigned gb18030_supplementary_codes = 0x100000;

// Tables of two-byte codes are indexed by the code less 8000. Behind the codes, from gb18030_ascii_index on, stand the
// ASCII characters, so that a mixed run of both is looked up alike.
constexpr unsigned gb18030_ascii_index = 0x8000;
template <class Entry> using Gb18030_by_code = std::array<Entry, gb18030_ascii_index + 0x80>;

// The code point; 0 where there is none (and for NUL).
extern const Gb18030_by_code<char16_t> gb18030_code_points;
// The UTF-8 form: in memory order from the low byte, its length in the top byte; 0 where there is none.
extern const Gb18030_by_code<uint32_t> gb18030_utf8;

// The two-byte code of a 16-bit code point, its lead byte in the low half; 0 where there is none (ASCII included).
extern const std::array<uint16_t, 0x10000> gb18030_codes;

// The number of the four-byte code of a 16-bit code point without a shorter one; gb18030_no_number for surrogates and
// for those with a shorter one.
constexpr uint16_t gb18030_no_number = 0xFFFF;
extern const std::array<uint16_t, 0x10000> gb18030_numbers;

// The code point of a numbered four-byte code of the Basic Multilingual Plane.
extern const std::array<char16_t, gb18030_plane_codes> gb18030_four_byte;
