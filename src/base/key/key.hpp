// key.hpp: the key's record, for the maps and tables that hash and compare keys.
#pragma once

#include <cstdint>

#include "base/charset/conversion.hpp"
#include "base/key/keyed_hash.hpp"
#include "base/key/text_cell.hpp"
#include "nested.hpp"
#include "tq4/key.h"

class Tq4_byte_reader;
class Tq4_byte_writer;

// The numeric part: h is the low-addressed half of id, l the high-addressed one.
union Tq4_key_number {
    uint64_t id = 0;
    struct {
        uint32_t h, l;
    } rid;
};

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
    uint8_t cf = 0;                         // non-zero: the string part ignores case
    bool m_indexed = false;                 // a table's index reads this key: the table is told before it changes
    Tq4_key_number iid;                     // kinds 1 and 5 use rid.l, 2 and 6 id, 3 and 7 both halves
    Tq4_text_cell sid; // the string part, a mere label in kinds 1 to 3; none when no text was given

    Tq4_key_obj() = default;
    ~Tq4_key_obj() { sid.End(); }
    Tq4_key_obj(const Tq4_key_obj &) = delete;
    Tq4_key_obj &operator=(const Tq4_key_obj &) = delete;

    void Reset() { Set(Tq4_key_type_Unvalid, {}, {}, 0); }
    void Copy(const Tq4_key_obj *source); // null empties
    bool Equal(const Tq4_key_obj &other) const;

    long Dump(Tq4_string out) const;
    int Import(const char *buf, int len);
    void ImportInEmpty(Tq4_byte_reader &in); // the same in an empty key that is in no index
    uint64_t Hash(int nocase) const { return HashUnder(nocase || cf); }
    void SetNoCase(int flag);
    void SetS(const char *text, int len, int nocase);
    // SetS of exactly these bytes, in an empty key. From the first of them on, `readable` bytes may
    // be read.
    void FillText(Tq4_bytes text, int nocase, std::size_t readable) {
        m_type = Tq4_key_type_String;
        cf = nocase != 0;
        if (Tq4_cxx_support->new_string == Tq4_cxx_defaults.new_string)
            sid.Fill(text.data, text.size, readable);
        else
            SetHostsText({reinterpret_cast<const char *>(text.data), text.size});
    }
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
    bool EqualS(const char *text, int nocase) const {
        return m_type == Tq4_key_type_String && text_is(Tq4_text_bytes(text), cf || nocase);
    }
    bool EqualLS(unsigned long l, const char *text, int nocase) const {
        return m_type == Tq4_key_type_LS && iid.id == l && text_is(Tq4_text_bytes(text), cf || nocase);
    }
    long enc(const char *data, unsigned long len, Tq4_string out) const;
    long dec(const char *data, unsigned long len, Tq4_string out) const;

    void DumpTo(Tq4_byte_writer &out) const;

    // For maps. The string part; null data when there is none.
    Tq4_bytes text() const { return sid.view(); }
    static bool same_text(Tq4_bytes a, Tq4_bytes b, bool nocase);
    // Whether it is these bytes.
    [[gnu::always_inline]] bool text_is(Tq4_bytes given, bool nocase) const {
        return nocase ? same_text(text(), given, true) : sid.Is(given);
    }
    // Equal, as if the key's own flag were own_cf.
    bool EqualUnder(int own_cf, const Tq4_key_obj &other) const;
    // The hash by nocase alone, whatever cf says.
    uint64_t HashUnder(int nocase) const;
    // Whether the string part is more than a label; and the hash in an index, folded or not: equal keys have equal
    // ones, and keys that differ in case have equal folded ones.
    bool identified_by_text() const { return m_type >= Tq4_key_type_String && m_type <= Tq4_key_type_IIS; }
    uint64_t FullHash(bool folded) const;

private:
    struct Text { // null data: no string part
        const char *data = nullptr;
        unsigned long len = 0;
    };
    void Set(uint32_t type, Tq4_key_number number, Text text, int nocase);
    void SetText(Text text) {
        if (text.data && Tq4_cxx_support->new_string == Tq4_cxx_defaults.new_string)
            sid.Assign(text.data, Tq4_text_length(text.data, text.len));
        else
            SetHostsText(text);
    }
    void SetHostsText(Text text);
    [[gnu::noinline]] void ImportRest(Tq4_byte_reader &in);
};

// Called before an indexed key changes.
void Tq4_key_leaves_index(Tq4_key_obj &key);

extern const Tq4_key_ Tq4_key_itf;
extern const Tq4_object_itf Tq4_key_obj_itf;

// A key in its owner's memory.
struct Tq4_key_nesting {
    static constexpr auto hook = &Tq4_cxx_support_::new_key;
    static const Tq4_object_itf *oitf() { return &Tq4_key_obj_itf; }
    static const void *itf() { return &Tq4_key_itf; }
};
using Tq4_nested_key = Tq4_nested<Tq4_key, Tq4_key_obj, Tq4_key_nesting>;

// The full hash of a key, told by what identifies it.
inline uint64_t Tq4_key_full_hash(uint32_t type, uint64_t number) { return Tq4_keyed_number(type, number); }
[[gnu::always_inline]] inline uint64_t Tq4_key_full_hash(uint32_t type, uint64_t number, Tq4_bytes text, bool folded) {
    const uint64_t start = type == Tq4_key_type_String ? Tq4_keyed_start() : Tq4_keyed_number(type, number);
    return folded ? Tq4_keyed_folded_text(start, text) : Tq4_keyed_text<false>(start, text);
}

// The string hash of exactly these bytes.
uint64_t Tq4_key_hash_bytes(Tq4_bytes text, int nocase);
// What turns the hash of a key's string part into the hash of a key of kind 6.
inline uint64_t Tq4_key_hash_text_number(uint64_t text_hash, uint64_t number) { return text_hash * 33 + number; }
