// gb18030.hpp: GB18030, edition 2022, to and from UTF-8 and 16-bit units.
//
// A text grows to twice its bytes at most, in every direction. All may be called from any thread.
#pragma once

#include "base/charset/conversion.hpp"

// Through whole code points: a supplementary character is four bytes on both sides. Surrogate code points have no
// GB18030 form and end the conversion.
Tq4_converted utf8_to_gb18030(Tq4_bytes in, Tq4_room out);
Tq4_converted gb18030_to_utf8(Tq4_bytes in, Tq4_room out);

// Units are in host order; an odd last byte is ignored. A character beyond the 16-bit units ends gb18030_to_units.
Tq4_converted units_to_gb18030(Tq4_bytes in, Tq4_room out);
Tq4_converted gb18030_to_units(Tq4_bytes in, Tq4_room out);
