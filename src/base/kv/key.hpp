// key.hpp: the key's record, for the maps and tables that hash and compare keys.
#pragma once

#include <cstdint>

#include "base/charset/conversion.hpp"
#include "base/wbuf.hpp"
#include "own.hpp"
#include "tq4/key.h"

// The numeric part: h is the low-addressed half of id, l the high-addressed one.
union Tq4_key_number {
    uint64_t id = 0;
    struct {
        uint32_t h, l;
    } rid;
};

class Tq4_byte_reader;

// A key as its encoding tells it. What the input ends before keeps its default.
struct Tq4_key_wire {
    uint32_t type = Tq4_key_type_Unvalid;
    Tq4_key_number number;
    uint8_t nocase = 0;
    Tq4_bytes text = {nullptr, 0}; // borrowed from the input; null data without a string
};
// Reads a key; false when the input ends inside it.
bool Tq4_key_read(Tq4_byte_reader &in, Tq4_key_wire &key);

struct Tq4_key_obj {
    uint32_t m_type = Tq4_key_type_Unvalid; // a Tq4_key_type, or a kind of 8 to 15 that a peer sent
    Tq4_key_number iid;                     // kinds 1 and 5 use rid.l, 2 and 6 id, 3 and 7 both halves
    Tq4_hooked<Tq4_string> sid; // the string part, a mere label in kinds 1 to 3; null when no text was given
    uint8_t cf = 0;             // non-zero: the string part ignores case

    void Reset() { Set(Tq4_key_type_Unvalid, {}, {}, 0); }
    void Copy(const Tq4_key_obj *source); // null empties
    bool Equal(const Tq4_key_obj &other) const;

    long Dump(Tq4_string out) const;
    int Import(const char *buf, int len);
    uint64_t Hash(int nocase) const;
    void SetNoCase(int flag) { cf = flag != 0; }
    void SetS(const char *text, int len, int nocase);
    void SetI(unsigned i, const char *label);
    void SetL(unsigned long l, const char *label);
    void SetII(unsigned h, unsigned l, const char *label);
    void SetIS(unsigned i, const char *text, int nocase);
    void SetLS(unsigned long l, const char *text, int nocase);
    void SetIIS(unsigned h, unsigned l, const char *text, int nocase);
    Tq4_key_type GetType() const { return static_cast<Tq4_key_type>(m_type); }
    unsigned GetIH() const { return iid.rid.h; }
    unsigned GetIL() const { return iid.rid.l; }
    unsigned long GetL() const { return iid.id; }
    const char *GetS() const;
    bool EqualI(unsigned i) const { return m_type == Tq4_key_type_I && iid.rid.l == i; }
    bool EqualL(unsigned long l) const { return m_type == Tq4_key_type_L && iid.id == l; }
    bool EqualII(unsigned h, unsigned l) const { return m_type == Tq4_key_type_II && iid.rid.h == h && iid.rid.l == l; }
    bool EqualS(const char *text, int nocase) const { return m_type == Tq4_key_type_String && text_is(text, nocase); }
    bool EqualLS(unsigned long l, const char *text, int nocase) const {
        return m_type == Tq4_key_type_LS && iid.id == l && text_is(text, nocase);
    }
    long enc(const char *data, unsigned long len, Tq4_string out) const;
    long dec(const char *data, unsigned long len, Tq4_string out) const;

    void DumpTo(Tq4_wbuf *out) const;

    // For maps, which know the text's length: the string part is exactly these bytes.
    bool text_is(Tq4_bytes text, int nocase) const;
    bool text_is(const char *text, int nocase) const;

private:
    struct Text { // null data: no string part
        const char *data = nullptr;
        unsigned long len = 0;
    };
    void Set(uint32_t type, Tq4_key_number number, Text text, int nocase);
    Tq4_bytes text() const;
};

// The string hash of exactly these bytes.
uint64_t Tq4_key_hash_bytes(Tq4_bytes text, int nocase);
// What turns the hash of a key's string part into the hash of a key of kind 6.
inline uint64_t Tq4_key_hash_text_number(uint64_t text_hash, uint64_t number) { return text_hash * 33 + number; }
