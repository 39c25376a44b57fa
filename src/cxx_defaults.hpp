// cxx_defaults.hpp: the library's own hooks, to tell whether a host has replaced one.
#pragma once

#include "tq4/cxx_support.h"

extern const Tq4_cxx_support_ Tq4_cxx_defaults;
