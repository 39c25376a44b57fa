// limits.hpp: the ceilings of the data model, all above what well-formed messages need.
#pragma once

// Levels of tables within tables that encoded bytes or JSON text may ask for. Import calls itself for each; the JSON
// readers keep a place for each.
inline constexpr int Tq4_value_nesting_limit = 512;

// Levels of tables within tables, made by calls, through which a function may call itself before it puts the rest off:
// some kilobytes of stack.
inline constexpr int Tq4_table_recursion_limit = 32;

// Lines that one call prints about what is wrong with its input.
inline constexpr unsigned Tq4_value_reports_limit = 10;

// Bytes that one call takes as zeros because a count announces elements that the input does not hold: those that its
// end cut off, and those of a width that takes no bytes.
inline constexpr unsigned long Tq4_value_zero_bytes_limit = 1 << 18;
