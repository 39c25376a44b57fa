// value_check: walks the binary encoding of values and tables without building them.
//
// Each tag has a shape; the walk knows how long each shape is. It is as strict as reading is generous: what Import
// would report, cut, leave out or stop at is damage here.
#include "base/kv/value_check.hpp"

#include <climits>

#include "base/byte_reader.hpp"
#include "base/key/key.hpp"
#include "base/kv/decode_budget.hpp"
#include "base/kv/value_types.hpp"

namespace {

enum class Form : uint8_t { fixed, wide, text, packed, packed_wide, texts, table };

struct Shape {
    Form form;
    uint8_t width; // in bytes, of the payload or of an element
};

template <class Type> constexpr Shape shape_of() {
    using enum Tq4_value_storage;
    constexpr auto storage = Type::storage;
    constexpr auto width = static_cast<uint8_t>(Type::width);
    if (storage == text) return {Form::text, width};
    if (storage == texts) return {Form::texts, width};
    if (storage == table) return {Form::table, width};
    if (storage == packed) return {Type::has_width_byte ? Form::packed_wide : Form::packed, width};
    return {Type::has_width_byte ? Form::wide : Form::fixed, width};
}

constexpr auto shapes = Tq4_value_rows([](auto row) { return shape_of<decltype(row)>(); });

class Walk {
    Tq4_byte_reader m_in;
    const uint8_t *const m_begin = m_in.at();
    const uint8_t *m_damaged = nullptr;
    Tq4_decode_budget m_budget{UINT64_MAX}; // counts; Result compares

public:
    Walk(const char *buf, long len) : m_in(buf, len) {}

    Tq4_checked Result(bool complete) const {
        const auto offset = [&](const uint8_t *at) { return static_cast<std::size_t>(at - m_begin); };
        if (!complete) return {false, offset(m_damaged)};
        const std::size_t length = offset(m_in.at());
        const bool fits = m_budget.taken() <= Tq4_decode_budget::Allowance(length);
        return {fits, fits ? length : 0};
    }

    // A value inside so many tables.
    bool Value(int depth) {
        const uint8_t *start = m_in.at();
        return Payload(depth) || Damaged(start);
    }

    bool Table(int depth) {
        const uint8_t *start = m_in.at();
        uint8_t case_flag;
        uint32_t entries;
        if (!m_in.Read(case_flag) || !m_in.Read(entries)) return Damaged(start);
        for (Tq4_decode_budget::Entries charged(entries); entries; --entries) {
            const uint8_t *entry = m_in.at();
            Tq4_key_wire key;
            if (!Tq4_key_read(m_in, key)) return Damaged(entry);
            m_budget.Entry(charged);
            m_budget.Bytes(key.text.size);
            if (!Value(depth)) return false;
        }
        return true;
    }

private:
    // The innermost place is told, which is the first to come here.
    bool Damaged(const uint8_t *at) {
        if (!m_damaged) m_damaged = at;
        return false;
    }

    bool Held(uint64_t bytes) { return m_budget.Bytes(bytes); }
    bool Skip(uint64_t bytes) { return bytes <= m_in.left() && (m_in.Take(bytes), true); }

    bool Payload(int depth) {
        uint8_t tag;
        if (!m_in.Read(tag) || tag >= std::size(shapes)) return false;
        const Shape shape = shapes[tag];
        switch (shape.form) {
        case Form::fixed:
            return Skip(shape.width);
        case Form::wide:
            return Wide();
        case Form::text:
        case Form::packed: {
            uint32_t count;
            return m_in.Read(count) && Held(uint64_t{count} * shape.width) && Skip(uint64_t{count} * shape.width);
        }
        case Form::packed_wide:
            return PackedWide();
        case Form::texts:
            return Texts();
        case Form::table:
            if (depth >= Tq4_value_nesting_limit) return false;
            if (Tq4_decode_budget::NoTable({m_in.at(), m_in.left()})) return Skip(Tq4_decode_budget::header);
            return m_budget.Table() && Table(depth + 1);
        }
        return false;
    }

    // Any other width than 8 and 4 takes no bytes.
    static uint64_t taken_by(uint8_t width) { return width == 8 || width == 4 ? width : 0; }

    bool Wide() {
        uint8_t width;
        return m_in.Read(width) && Skip(taken_by(width));
    }

    // Every element is asked to leave 8 bytes, however many it takes.
    bool PackedWide() {
        uint32_t count;
        uint8_t width;
        if (!m_in.Read(count) || !m_in.Read(width)) return false;
        if (count == 0) return true;
        const uint64_t taken = taken_by(width);
        const uint64_t zeros = taken ? 0 : count * uint64_t{8};
        if (m_budget.Zeros(zeros) < zeros) return false;
        if (taken) Held(count * uint64_t{8});
        return m_in.left() >= (count - 1) * taken + 8 && Skip(count * taken);
    }

    bool Texts() {
        uint16_t count, length;
        if (!m_in.Read(count)) return false;
        m_budget.Array();
        for (; count; --count)
            if (!m_in.Read(length) || !Skip(length) || !m_budget.Element(length)) return false;
        return true;
    }
};

} // namespace

Tq4_checked Tq4_value_check(const char *buf, long len) {
    Walk walk(buf, len);
    return walk.Result(walk.Value(0));
}

Tq4_checked Tq4_value_table_check(const char *buf, long len) {
    Walk walk(buf, len);
    return walk.Result(walk.Table(1));
}

// What is longer than Import can be given is no encoding for it.
static long length_of(Tq4_checked checked) {
    return checked.complete && checked.at <= INT_MAX ? static_cast<long>(checked.at) : 0;
}

long Tq4_value_itf_Check(Tq4_value v, const char *buf, long len) {
    return v ? length_of(Tq4_value_check(buf, len)) : 0;
}

long Tq4_value_table_itf_Check(Tq4_value_table t, const char *buf, long len) {
    return t ? length_of(Tq4_value_table_check(buf, len)) : 0;
}
