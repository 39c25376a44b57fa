// name_pattern.hpp: file names and patterns with '*', '?' and "[set]".
#pragma once

#include <string_view>

// Whether the whole name matches. '*' stands for any bytes, '?' for one UTF-8 character (a byte that begins none stands
// for itself). "[a-z_]" stands for one character of a set and "[!a-z]" for one outside it; a ']' that comes first
// belongs to the set. A '[' without its ']' stands for itself. "*.*" matches every name. Takes time at most
// proportional to the product of the lengths, times the pattern's for every '[' without its ']'.
bool Tq4_name_matches(std::string_view pattern, std::string_view name);
