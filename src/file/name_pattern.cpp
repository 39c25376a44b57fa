// name_pattern: two cursors, and the place to come back to when the last '*' must take one more byte.
#include "file/name_pattern.hpp"

#include <cstdint>

#include "base/charset/utf8.hpp"

namespace {

constexpr uint32_t Not_a_character = 0x80000000; // plus the byte

// Takes the first character off a text that is not empty.
uint32_t take_character(std::string_view &text) {
    uint32_t character;
    const int size = utf8_decode({reinterpret_cast<const uint8_t *>(text.data()), text.size()}, &character);
    if (size <= 0) character = Not_a_character + static_cast<uint8_t>(text.front());
    text.remove_prefix(size <= 0 ? 1 : static_cast<unsigned long>(size));
    return character;
}

// Takes a set, whose '[' is first in the pattern, and tells whether the character is in it. False, and nothing taken,
// when the set has no end.
bool take_set(std::string_view &pattern, uint32_t character, bool *matches) {
    std::string_view set = pattern.substr(1);
    const bool negated = set.starts_with('!') || set.starts_with('^');
    if (negated) set.remove_prefix(1);
    bool found = false;
    for (bool first = true; !set.empty() && (first || set.front() != ']'); first = false) {
        const uint32_t low = take_character(set);
        uint32_t high = low;
        if (set.size() >= 2 && set[0] == '-' && set[1] != ']') {
            set.remove_prefix(1);
            high = take_character(set);
        }
        found = found || (low <= character && character <= high);
    }
    if (set.empty()) return false;
    pattern = set.substr(1);
    *matches = found != negated;
    return true;
}

// Takes one character of the name, and what stands for it in the pattern, which does not begin with '*'.
bool take_one(std::string_view &pattern, std::string_view &name) {
    if (pattern.empty()) return false;
    if (pattern.front() == '?') {
        take_character(name);
        pattern.remove_prefix(1);
        return true;
    }
    std::string_view rest = name;
    bool matches;
    if (pattern.front() == '[' && take_set(pattern, take_character(rest), &matches)) {
        name = rest;
        return matches;
    }
    if (pattern.front() != name.front()) return false;
    pattern.remove_prefix(1);
    name.remove_prefix(1);
    return true;
}

} // namespace

bool Tq4_name_matches(std::string_view pattern, std::string_view name) {
    if (pattern == "*.*") return true;
    std::string_view behind_star, name_there; // where the last '*' ended, and what it has left of the name
    bool starred = false;
    while (!name.empty()) {
        if (pattern.starts_with('*')) {
            starred = true;
            pattern.remove_prefix(1);
            behind_star = pattern;
            name_there = name;
        } else if (!take_one(pattern, name)) {
            if (!starred) return false;
            name_there.remove_prefix(1);
            pattern = behind_star;
            name = name_there;
        }
    }
    return pattern.find_first_not_of('*') == std::string_view::npos;
}
