// limits.hpp: the ceilings of the data model, all above what well-formed messages need.
#pragma once

// Levels of tables within tables that encoded bytes or JSON text may ask for: decoding recurses, and so does printing
// what it built.
inline constexpr int Tq4_value_nesting_limit = 512;

// Levels of tables within tables, made by calls, through which a function may call itself before it puts the rest off:
// some kilobytes of stack.
inline constexpr int Tq4_table_recursion_limit = 32;

// Memory that a count in encoded bytes may claim beyond what the input holds: for elements that the end of the input
// cut off; and for elements of a width that takes no bytes, since a few bytes suffice to ask for them again and again.
inline constexpr unsigned long Tq4_value_missing_bytes_limit = 1 << 20;
inline constexpr unsigned long Tq4_value_widthless_bytes_limit = 4096;
