// value_check.hpp: a look over encoded bytes before they are imported.
//
// For callers that must not be stopped by malformed bytes. The walk builds nothing; it costs less than Import, and is
// linear in the bytes.
#pragma once

#include <cstddef>

#include "tq4/value_table.h"

struct Tq4_checked {
    // The bytes hold a whole encoding: Import takes it in as it was written, reports nothing and does not stop.
    bool complete;
    // Complete: how long the encoding is, what Import returns. Else the offset of the innermost key or value that is
    // damaged or cut off, or where the next one is missing.
    std::size_t at;
};

// Of a value, and of a table as the table's own Dump writes it. Null and lengths that are not positive are not
// complete.
Tq4_checked Tq4_value_check(const char *buf, long len);
Tq4_checked Tq4_value_table_check(const char *buf, long len);

// The slots: the length of the encoding, or 0.
long Tq4_value_itf_Check(Tq4_value v, const char *buf, long len);
long Tq4_value_table_itf_Check(Tq4_value_table t, const char *buf, long len);
