// value_text.hpp: the bytes of a value: a text, or the elements of a packed array.
//
// They lie in a cell until somebody asks for them as a string object, or appends more than the cell takes; where the
// host makes strings, they lie in one of the host's from the start. What the cell held stays there beside the string,
// since pointers to it may have been given out. There may be no bytes at all, which counts as empty and is the state of
// zeroed memory. Like the cell it is a plain part of a union, moved as it is; its owner calls Release.
#pragma once

#include "base/key/text_cell.hpp"
#include "cxx_defaults.hpp"

class Tq4_value_text {
    Tq4_string m_string = nullptr; // owned: the bytes, when there is one
    Tq4_text_cell m_cell;          // owned: the bytes, when there is none

    static bool hosts_strings() { return Tq4_cxx_support->new_string != Tq4_cxx_defaults.new_string; }

public:
    explicit operator bool() const { return m_string || m_cell; }

    // Borrowed; null data when there are none.
    Tq4_bytes view() const;
    // "" when there are none.
    const char *c_str() const;
    // The string object as far as there is one.
    Tq4_string string() const { return m_string; }
    // The cell when all of the bytes lie in it; null else.
    const Tq4_text_cell *inside() const { return !m_string && m_cell.inside() ? &m_cell : nullptr; }
    bool owns_memory() const { return m_string || m_cell.owns_memory(); }

    // The string object, made when there is none yet.
    Tq4_string own_string();
    // The bytes may be its own.
    void Assign(const void *bytes, unsigned long n);
    // The same where there are none yet. From the first of the bytes on, `readable` bytes may be read.
    void Fill(Tq4_bytes bytes, std::size_t readable) {
        hosts_strings() ? Assign(bytes.data, bytes.size) : m_cell.Fill(bytes.data, bytes.size, readable);
    }
    void Append(const void *bytes, unsigned long n);
    // n zero bytes to be filled, where there are none yet; null for 0, and when there is no memory.
    uint8_t *Zeros(unsigned long n);
    // The other's bytes, in a string when they lie in one there, where there are none yet.
    void Copy(const Tq4_value_text &source);
    bool Equal(const Tq4_value_text &other) const;
    void Release();
};
