// text_cell.hpp: the bytes of a key or a value.
//
// Up to 22 bytes lie in the cell, more in a block on the heap; a NUL follows them. Where the host makes strings, they
// lie in one of the host's. No text at all is a state of its own, and the state of zeroed memory: the last byte tells
// no text (0), the number of bytes in the cell plus one, or where else they are. Cells may be moved about in memory as
// they are. A cell is a plain part of a union; its owner calls Release.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "base/short_copy.hpp"
#include "base/string/string.hpp"
#include "object_memory.hpp"
#include "tq4/cxx_support.h"

class Tq4_text_cell {
    static constexpr std::size_t size_in_bytes = 24;
    static constexpr uint8_t on_heap = 0xFF, in_string = 0xFE;

    uint8_t m_raw[size_in_bytes] = {};

    struct Heap {
        uint8_t *data; // owned
        uint64_t size;
    };
    uint8_t state() const { return m_raw[size_in_bytes - 1]; }
    Heap heap() const {
        Heap block;
        std::memcpy(&block, m_raw, sizeof block);
        return block;
    }
    static uint8_t *Allocate(std::size_t n) {
        return static_cast<uint8_t *>(n <= Tq4_thread_record::largest ? Tq4_object_memory(n) : std::malloc(n));
    }
    void Free() {
        if (state() == on_heap) Tq4_object_memory_free(heap().data, heap().size + 1);
        if (state() == in_string) Tq4_cxx_support->delete_obj(string());
    }

public:
    static constexpr std::size_t most_inside = size_in_bytes - 2;
    static constexpr std::size_t most = std::size_t{1} << 47; // more than a process can address

    explicit operator bool() const { return state() != 0; }

    // A text that lies in the cell: all bytes of the cell may be read, and a NUL is among them.
    bool inside() const { return state() != 0 && state() < in_string; }
    const uint8_t (&raw() const)[size_in_bytes] { return m_raw; }
    uint8_t size_inside() const { return static_cast<uint8_t>(state() - 1); }

    // The host's string, borrowed; null when the text does not lie in one.
    Tq4_string string() const {
        Tq4_string held = nullptr;
        if (state() == in_string) std::memcpy(&held, m_raw, sizeof held);
        return held;
    }

    // The text, borrowed; null data when there is none.
    Tq4_bytes view() const {
        if (state() == 0) return {nullptr, 0};
        if (state() < in_string) return {m_raw, state() - std::size_t{1}};
        if (state() == in_string) return Tq4_record<const Tq4_string_obj>(string())->view();
        const Heap block = heap();
        return {block.data, block.size};
    }

    // No text is only like no text. Inline for short texts: look-ups ask nothing else.
    [[gnu::always_inline]] bool Is(Tq4_bytes text) const {
        if (!inside() || !text.data) return IsElsewhere(text);
        return state() == text.size + 1 && Tq4_short_same(m_raw, text.data, text.size);
    }

    // The bytes may be this cell's own. More than there can be memory for leaves the text as it is.
    void Assign(const void *bytes, std::size_t n) {
        if (n <= most_inside) return AssignFew(static_cast<const uint8_t *>(bytes), n);
        const Heap block{n < most ? Allocate(n + 1) : nullptr, n};
        if (!block.data) return *this ? void() : AssignFew(nullptr, 0);
        std::memcpy(block.data, bytes, n);
        block.data[n] = 0;
        Free();
        std::memcpy(m_raw, &block, sizeof block);
        SetState(on_heap);
    }

    // The same in a cell without a text. From the first of the bytes on, `readable` bytes may be read. How long a short
    // text is cannot be guessed: all that the cell holds is copied, by moves of fixed size.
    void Fill(const uint8_t *bytes, std::size_t n, std::size_t readable) {
        if (n > most_inside || readable < size_in_bytes) return FillSlowly(bytes, n);
        std::memcpy(m_raw, bytes, size_in_bytes);
        m_raw[n] = 0;
        SetState(n + 1);
    }

    // n zero bytes, for the caller to fill; null, and no text, when there is no memory for them.
    uint8_t *Zeros(std::size_t n) {
        Release();
        if (n <= most_inside) {
            SetState(n + 1);
            return m_raw;
        }
        const Heap block{n < most ? Allocate(n + 1) : nullptr, n};
        if (!block.data) return nullptr;
        std::memset(block.data, 0, n + 1);
        std::memcpy(m_raw, &block, sizeof block);
        SetState(on_heap);
        return block.data;
    }

    // The string holds the text from now on and belongs to the cell.
    void Hold(Tq4_string string) {
        Free();
        std::memcpy(m_raw, &string, sizeof string);
        SetState(in_string);
    }

    // True when the bytes found room behind the text, in the cell.
    bool AppendInside(const void *bytes, std::size_t n) {
        const std::size_t size = state() - std::size_t{1};
        if (state() == 0 || state() >= in_string || n > most_inside - size) return false;
        std::memmove(m_raw + size, bytes, n);
        m_raw[size + n] = 0;
        m_raw[size_in_bytes - 1] = static_cast<uint8_t>(size + n + 1);
        return true;
    }

    // Whether there is memory of the text's own.
    bool owns_memory() const { return state() >= in_string; }
    // The end of the cell.
    void End() {
        if (owns_memory()) Free();
    }
    // No text any more.
    void Release() {
        Free();
        std::memset(m_raw, 0, sizeof m_raw);
    }

private:
    [[gnu::noinline]] void FillSlowly(const uint8_t *bytes, std::size_t n) { Assign(bytes, n); }
    [[gnu::noinline]] bool IsElsewhere(Tq4_bytes text) const {
        const Tq4_bytes own = view();
        if (!own.data || !text.data) return own.data == text.data;
        return own.size == text.size && std::memcmp(own.data, text.data, own.size) == 0;
    }
    void SetState(std::size_t state) { m_raw[size_in_bytes - 1] = static_cast<uint8_t>(state); }

    using Sixteen = uint8_t __attribute__((vector_size(16))); // in a register, unlike a struct of this size

    void AssignFew(const uint8_t *bytes, std::size_t n) {
        if (n >= sizeof(Sixteen))
            AssignEnds<Sixteen>(bytes, n);
        else if (n >= sizeof(uint64_t))
            AssignEnds<uint64_t>(bytes, n);
        else if (n >= sizeof(uint32_t))
            AssignEnds<uint32_t>(bytes, n);
        else if (n >= sizeof(uint16_t))
            AssignEnds<uint16_t>(bytes, n);
        else
            AssignEnds<uint8_t>(n ? bytes : &nothing, n ? 1 : 0);
    }
    // In two pieces of fixed size that overlap, both read before anything is freed or written.
    template <class Piece> void AssignEnds(const uint8_t *bytes, std::size_t n) {
        const std::size_t last = n < sizeof(Piece) ? 0 : n - sizeof(Piece);
        Piece first, second;
        std::memcpy(&first, bytes, sizeof first);
        std::memcpy(&second, bytes + last, sizeof second);
        Free();
        std::memcpy(m_raw, &first, sizeof first);
        std::memcpy(m_raw + last, &second, sizeof second);
        m_raw[n] = 0;
        SetState(n + 1);
    }
    static constexpr uint8_t nothing = 0;
};
