// gb18030_tables.cpp: all tables of GB18030, computed by the compiler from the rows of two-byte codes.
//
// The four-byte codes of the Basic Multilingual Plane are its code points in ascending order, without surrogates and
// without those that had a shorter code in the first edition; afterwards the pairs that later editions exchanged swap
// their places.
#include "base/charset/gb18030_tables.hpp"

#include "base/charset/gb18030_data.hpp"

namespace {

constexpr unsigned plane = 0x10000;

constexpr bool is_surrogate(unsigned code_point) { return code_point >> 11 == 0xD800 >> 11; }

constexpr uint32_t utf8_entry(unsigned code_point) {
    const unsigned last = 0x80 | (code_point & 0x3F);
    if (code_point < 0x80) return code_point | 1 << 24;
    if (code_point < 0x800) return 0xC0 | code_point >> 6 | last << 8 | 2 << 24;
    return 0xE0 | code_point >> 12 | (0x80 | (code_point >> 6 & 0x3F)) << 8 | last << 16 | 3 << 24;
}

// Calls visit(code, code point) for every two-byte code.
template <class Visit> constexpr void for_each_code(Visit visit) {
    for (unsigned lead = 0; lead < gb18030_leads; ++lead)
        for (unsigned trail = 0; trail < gb18030_trails; ++trail)
            if (const char16_t code_point = gb18030_rows[lead][trail])
                visit((lead + gb18030_first_lead) << 8 | (trail + gb18030_first_trail), code_point);
}

template <class Entry> constexpr auto make_by_code(Entry (*entry_of)(unsigned code_point)) {
    Gb18030_by_code<Entry> entries{};
    for_each_code([&](unsigned code, unsigned code_point) { entries[code - 0x8000] = entry_of(code_point); });
    for (unsigned character = 0; character < 0x80; ++character)
        entries[gb18030_ascii_index + character] = entry_of(character);
    return entries;
}

constexpr auto make_codes() {
    std::array<uint16_t, plane> codes{};
    for_each_code(
        [&](unsigned code, unsigned code_point) { codes[code_point] = static_cast<uint16_t>(code >> 8 | code << 8); });
    return codes;
}

// What stands in the place of each code point among the four-byte codes; 0: the code point has no place.
constexpr auto make_places(const std::array<uint16_t, plane> &codes) {
    std::array<char16_t, plane> places{};
    for (unsigned code_point = 0x80; code_point < plane; ++code_point)
        if (!codes[code_point] && !is_surrogate(code_point)) places[code_point] = static_cast<char16_t>(code_point);
    for (const auto &pair : gb18030_exchanged) {
        places[pair.now] = pair.first_edition;
        places[pair.first_edition] = 0;
    }
    return places;
}

constexpr auto make_four_byte(const std::array<char16_t, plane> &places) {
    std::array<char16_t, gb18030_plane_codes> code_points{};
    unsigned number = 0;
    for (const char16_t code_point : places)
        if (code_point) code_points[number++] = code_point;
    return code_points;
}

constexpr auto make_numbers(const std::array<char16_t, gb18030_plane_codes> &code_points) {
    std::array<uint16_t, plane> numbers{};
    numbers.fill(gb18030_no_number);
    for (unsigned number = 0; number < code_points.size(); ++number)
        numbers[code_points[number]] = static_cast<uint16_t>(number);
    return numbers;
}

} // namespace

constexpr Gb18030_by_code<char16_t> gb18030_code_points =
    make_by_code<char16_t>([](unsigned code_point) { return static_cast<char16_t>(code_point); });
constexpr Gb18030_by_code<uint32_t> gb18030_utf8 = make_by_code<uint32_t>(utf8_entry);
constexpr std::array<uint16_t, plane> gb18030_codes = make_codes();
static constexpr std::array<char16_t, plane> places = make_places(gb18030_codes);
constexpr std::array<char16_t, gb18030_plane_codes> gb18030_four_byte = make_four_byte(places);
constexpr std::array<uint16_t, plane> gb18030_numbers = make_numbers(gb18030_four_byte);

static_assert(gb18030_four_byte.back() == 0xFFFF, "the four-byte codes of the plane end with its last code point");
