// limits.hpp: the ceilings of the data model, all above what well-formed messages need.
#pragma once

// Levels of tables within tables that encoded bytes or JSON text may ask for: decoding recurses, and so do printing,
// copying and deleting what it built.
inline constexpr int Tq4_value_nesting_limit = 512;
