// key: a tagged record of a number and a string.
//
// What the kinds do differently stands in one table: how a kind hashes, which of its numbers identify it, whether its
// string does, and how its number travels. Kinds 8 to 15 can only come from a peer; they hash to 0 and are told apart
// by id.
#include "base/key/key.hpp"

#include <cctype>
#include <cstring>

#include "base/byte_reader.hpp"
#include "base/byte_writer.hpp"
#include "base/charset/crypto_quick.hpp"
#include "base/key/key_wire.hpp"
#include "base/string/string.hpp"
#include "tq4/byte_order.h"

static_assert(offsetof(Tq4_key_number, rid.h) == 0);

namespace {

enum class Wire : unsigned char { word32, halves, word64 };

struct Kind {
    uint64_t (*hash)(Tq4_key_number n, uint64_t text_hash);
    uint64_t (*number)(Tq4_key_number n); // that identifies the key
    bool has_text;                        // the string part identifies it
    Wire wire;                            // of the number
    bool cipher32;                        // gives the cipher 4 numeric bytes instead of 8
};

uint64_t no_number(Tq4_key_number) { return 0; }
uint64_t low(Tq4_key_number n) { return n.rid.l; }
uint64_t whole(Tq4_key_number n) { return n.id; }
uint64_t no_hash(Tq4_key_number, uint64_t) { return 0; }

const Kind foreign = {no_hash, whole, false, Wire::word64, false};
const Kind kinds[] = {
    {no_hash, no_number, false, Wire::word64, false},
    {[](Tq4_key_number n, uint64_t) { return low(n); }, low, false, Wire::word32, true},
    {[](Tq4_key_number n, uint64_t) { return whole(n); }, whole, false, Wire::word64, false},
    // By 16, deliberately not by the 33 of the other kinds.
    {[](Tq4_key_number n, uint64_t) { return (uint64_t{n.rid.h} << 4) + n.rid.l; }, whole, false, Wire::halves, false},
    {[](Tq4_key_number, uint64_t s) { return s; }, no_number, true, Wire::word64, false},
    {[](Tq4_key_number n, uint64_t s) { return Tq4_key_hash_text_number(s, n.rid.l); }, low, true, Wire::word64, true},
    {[](Tq4_key_number n, uint64_t s) { return Tq4_key_hash_text_number(s, n.id); }, whole, true, Wire::word64, false},
    {[](Tq4_key_number n, uint64_t s) {
         return Tq4_key_hash_text_number(Tq4_key_hash_text_number(s, n.rid.h), n.rid.l);
     },
     whole, true, Wire::word64, false},
};

const Kind &kind_of(uint32_t type) { return type < std::size(kinds) ? kinds[type] : foreign; }

Tq4_key_number halves(uint32_t h, uint32_t l) {
    Tq4_key_number number;
    number.rid.h = h;
    number.rid.l = l;
    return number;
}

// Signed bytes: those from 128 on count negative, deliberately, as peers compute it.
template <bool nocase> uint64_t hashed_byte(uint8_t byte) {
    if constexpr (nocase) byte = static_cast<uint8_t>(std::tolower(byte));
    return static_cast<uint64_t>(static_cast<int8_t>(byte));
}

constexpr uint64_t power33(int n) { return n ? 33 * power33(n - 1) : 1; }

template <bool nocase> [[gnu::noinline]] uint64_t hash_bytes(Tq4_bytes text) { // one saves no registers for the other
    constexpr auto hashed = hashed_byte<nocase>;
    uint64_t h = 0;
    std::size_t at = 0;
    // Four steps of h * 33 + c at once: one chain of multiplications for four bytes.
    for (; text.size - at >= 4; at += 4) {
        const uint8_t *c = text.data + at;
        h = h * power33(4) + hashed(c[0]) * power33(3) + hashed(c[1]) * power33(2) + hashed(c[2]) * 33 + hashed(c[3]);
    }
    for (; at < text.size; ++at) h = h * 33 + hashed(text.data[at]);
    return h;
}

} // namespace

uint64_t Tq4_key_hash_bytes(Tq4_bytes text, int nocase) {
    return nocase ? hash_bytes<true>(text) : hash_bytes<false>(text);
}

extern "C" {

unsigned long Tq4_key_HashString(const char *text, int nocase) {
    return text ? Tq4_key_hash_bytes(Tq4_text_bytes(text), nocase) : 0;
}

unsigned long Tq4_key_HashLong(unsigned long l) { return l; }

unsigned long Tq4_key_HashLS(unsigned long l, const char *text, int nocase) {
    return Tq4_key_hash_text_number(Tq4_key_HashString(text, nocase), l);
}

} // extern "C"

// The new text is complete before the old one goes: it may be the key's own.
void Tq4_key_obj::SetHostsText(Text text) {
    if (!text.data) return sid.Release();
    auto string = static_cast<Tq4_string>(Tq4_cxx_support->new_string());
    (*string)->Memcpy(string, text.data, text.len);
    sid.Hold(string);
}

void Tq4_key_obj::Set(uint32_t type, Tq4_key_number number, Text text, int nocase) {
    if (m_indexed) Tq4_key_leaves_index(*this);
    m_type = type;
    iid = number;
    SetText(text);
    cf = nocase != 0;
}

void Tq4_key_obj::SetNoCase(int flag) {
    if (m_indexed) Tq4_key_leaves_index(*this);
    cf = flag != 0;
}

void Tq4_key_obj::SetS(const char *text, int len, int nocase) {
    if (len < -1) len = 0; // as in a new string, where so much finds no room
    Set(Tq4_key_type_String, {}, {text, static_cast<unsigned long>(static_cast<long>(len))}, nocase);
}
void Tq4_key_obj::SetI(unsigned i, const char *label) { Set(Tq4_key_type_I, halves(0, i), {label, TQ4_ALL_ONES}, 0); }
void Tq4_key_obj::SetL(unsigned long l, const char *label) { Set(Tq4_key_type_L, {.id = l}, {label, TQ4_ALL_ONES}, 0); }
void Tq4_key_obj::SetII(unsigned h, unsigned l, const char *label) {
    Set(Tq4_key_type_II, halves(h, l), {label, TQ4_ALL_ONES}, 0);
}
void Tq4_key_obj::SetIS(unsigned i, const char *text, int nocase) {
    Set(Tq4_key_type_IS, halves(0, i), {text, TQ4_ALL_ONES}, nocase);
}
void Tq4_key_obj::SetLS(unsigned long l, const char *text, int nocase) {
    Set(Tq4_key_type_LS, {.id = l}, {text, TQ4_ALL_ONES}, nocase);
}
void Tq4_key_obj::SetIIS(unsigned h, unsigned l, const char *text, int nocase) {
    Set(Tq4_key_type_IIS, halves(h, l), {text, TQ4_ALL_ONES}, nocase);
}

void Tq4_key_obj::Copy(const Tq4_key_obj *source) {
    if (source == this) return;
    if (!source) return Reset();
    const Tq4_bytes bytes = source->text();
    Set(source->m_type, source->iid, {reinterpret_cast<const char *>(bytes.data), bytes.size}, source->cf);
}

const char *Tq4_key_obj::GetS() const {
    if (Tq4_string string = sid.string()) return (*string)->c_str(string);
    return reinterpret_cast<const char *>(sid.view().data);
}

bool Tq4_key_obj::Equal(const Tq4_key_obj &other) const { return EqualUnder(cf, other); }

bool Tq4_key_obj::EqualUnder(int own_cf, const Tq4_key_obj &other) const {
    if (this == &other) return true;
    if (m_type != other.m_type) return false;
    const Kind &kind = kind_of(m_type);
    return kind.number(iid) == kind.number(other.iid) && (!kind.has_text || text_is(other.text(), own_cf || other.cf));
}

// No text is only like no text.
bool Tq4_key_obj::same_text(Tq4_bytes a, Tq4_bytes b, bool nocase) {
    if (!a.data || !b.data) return a.data == b.data;
    if (a.size != b.size) return false;
    if (!nocase) return std::memcmp(a.data, b.data, a.size) == 0;
    for (std::size_t i = 0; i < a.size; ++i)
        if (Tq4_ascii_lower(a.data[i]) != Tq4_ascii_lower(b.data[i])) return false;
    return true;
}

uint64_t Tq4_key_obj::HashUnder(int nocase) const {
    const Kind &kind = kind_of(m_type);
    return kind.hash(iid, kind.has_text ? Tq4_key_hash_bytes(text(), nocase) : 0);
}

uint64_t Tq4_key_obj::FullHash(bool folded) const {
    const Kind &kind = kind_of(m_type);
    const uint64_t number = kind.number(iid);
    return kind.has_text ? Tq4_key_full_hash(m_type, number, text(), folded) : Tq4_key_full_hash(m_type, number);
}

static void dump_number(Tq4_byte_writer &to, Wire wire, Tq4_key_number number) {
    switch (wire) {
    case Wire::word32:
        return to.Put(number.rid.l);
    case Wire::halves: // the low half first, unlike in memory
        to.Put(number.rid.l);
        return to.Put(number.rid.h);
    case Wire::word64:
        to.Put(static_cast<uint8_t>(sizeof number.id));
        return to.Put(number.id);
    }
}

// The length field has 16 bits: a longer string would travel as another key.
void Tq4_key_obj::DumpTo(Tq4_byte_writer &to) const {
    if (sid.string()) to.Settle(2 * sizeof(uint8_t) + sizeof iid.id + sizeof(uint16_t));
    const Tq4_bytes bytes = text();
    if (bytes.size > UINT16_MAX) return to.Refuse();
    const unsigned flags = (m_type & Tq4_key_kind_mask) | (iid.id ? Tq4_key_has_number : 0u) |
                           (bytes.data ? Tq4_key_has_string : 0u) | (bytes.size ? Tq4_key_has_bytes : 0u) |
                           (cf ? Tq4_key_ignores_case : 0u);
    to.Put(static_cast<uint8_t>(flags));
    if (iid.id) dump_number(to, kind_of(m_type).wire, iid);
    if (!bytes.size) return;
    const auto length = static_cast<uint16_t>(bytes.size);
    to.Put(length);
    to.PutBytes({bytes.data, length});
}

long Tq4_key_obj::Dump(Tq4_string out) const {
    if (!out) return 0;
    Tq4_byte_writer to(&Tq4_record<Tq4_string_obj>(out)->m_buf);
    DumpTo(to);
    return to.Finish();
}

namespace {

// Reads a key's number. False when the input ends inside it.
bool import_number(Tq4_byte_reader &in, Wire wire, Tq4_key_number &number) {
    switch (wire) {
    case Wire::word32:
        return in.Read(number.rid.l);
    case Wire::halves:
        return in.left() >= sizeof number && in.Read(number.rid.l) && in.Read(number.rid.h);
    case Wire::word64:
        break;
    }
    uint8_t width = 0;
    uint32_t narrow = 0;
    if (!in.Read(width) || in.left() < width) return false;
    if (width == sizeof number.id) return in.Read(number.id);
    if (width == sizeof narrow) {
        in.Read(narrow);
        number.id = narrow;
    }
    return true; // any other width is consumed alone, deliberately: nothing is skipped
}

} // namespace

bool Tq4_key_read(Tq4_byte_reader &in, Tq4_key_wire &key) {
    uint8_t flags = 0;
    uint16_t length = 0;
    if (!in.Read(flags)) return false;
    key.type = flags & Tq4_key_kind_mask;
    if (flags & Tq4_key_has_number && !import_number(in, kind_of(key.type).wire, key.number)) return false;
    key.nocase = flags & Tq4_key_ignores_case;
    if (!(flags & Tq4_key_has_string)) return true;
    key.text = {reinterpret_cast<const uint8_t *>(""), 0};
    if (!(flags & Tq4_key_has_bytes)) return true;
    if (!in.Read(length) || in.left() < length) return false;
    key.text = in.Take(length);
    return true;
}

int Tq4_key_obj::Import(const char *buf, int len) {
    Tq4_byte_reader in(buf, len);
    Tq4_key_wire wire;
    const bool complete = Tq4_key_read(in, wire);
    Set(wire.type, wire.number, {reinterpret_cast<const char *>(wire.text.data), wire.text.size}, wire.nocase);
    if (!buf) return len > 0 ? 0 : len;
    return complete ? len - static_cast<int>(in.left()) : len;
}

// Most keys are texts and nothing else.
void Tq4_key_obj::ImportInEmpty(Tq4_byte_reader &in) {
    constexpr std::size_t before_text = sizeof(uint8_t) + sizeof(uint16_t);
    constexpr unsigned text_only = unsigned{Tq4_key_type_String} | Tq4_key_has_string | Tq4_key_has_bytes;
    const uint8_t *bytes = in.at();
    if (in.left() <= before_text || (bytes[0] & ~unsigned{Tq4_key_ignores_case}) != text_only) return ImportRest(in);
    const std::size_t length = static_cast<unsigned>(bytes[1] << 8 | bytes[2]), behind = in.left() - before_text;
    if (length > behind) return ImportRest(in);
    FillText({bytes + before_text, length}, bytes[0] & Tq4_key_ignores_case, behind);
    in.Take(before_text + length);
}

void Tq4_key_obj::ImportRest(Tq4_byte_reader &in) {
    const auto *bytes = reinterpret_cast<const char *>(in.at());
    in.Take(static_cast<std::size_t>(Import(bytes, static_cast<int>(in.left()))));
}

namespace {

// The key as a cipher key: the number in network order, then, for a kind that has one, the text.
crypto_quick_key_t cipher_key(const Tq4_key_obj &key, Tq4_bytes text) {
    const Kind &kind = kind_of(key.m_type);
    uint8_t raw[sizeof key.iid.id];
    std::size_t width = kind.cipher32 ? sizeof key.iid.rid.l : sizeof key.iid.id;
    host_net_exchange(kind.cipher32 ? static_cast<const void *>(&key.iid.rid.l) : &key.iid.id, raw, width);
    const Tq4_bytes pieces[] = {{raw, width}, kind.has_text ? text : Tq4_bytes{nullptr, 0}};
    crypto_quick_key_t cipher;
    crypto_quick_init_key(&cipher, pieces, std::size(pieces));
    return cipher;
}

} // namespace

long Tq4_key_obj::enc(const char *data, unsigned long len, Tq4_string out) const {
    return out ? Tq4_record<Tq4_string_obj>(out)->scramble(data, len, cipher_key(*this, text())) : 0;
}

long Tq4_key_obj::dec(const char *data, unsigned long len, Tq4_string out) const {
    return out ? Tq4_record<Tq4_string_obj>(out)->unscramble(data, len, cipher_key(*this, text())) : 0;
}

const Tq4_key_ Tq4_key_itf = {
    .Dump = Tq4_op<&Tq4_key_obj::Dump>,
    .Import = Tq4_op<&Tq4_key_obj::Import>,
    .Hash = Tq4_op<&Tq4_key_obj::Hash>,
    .SetNoCase = Tq4_op<&Tq4_key_obj::SetNoCase>,
    .SetS = Tq4_op<&Tq4_key_obj::SetS>,
    .SetI = Tq4_op<&Tq4_key_obj::SetI>,
    .SetL = Tq4_op<&Tq4_key_obj::SetL>,
    .SetII = Tq4_op<&Tq4_key_obj::SetII>,
    .SetIS = Tq4_op<&Tq4_key_obj::SetIS>,
    .SetLS = Tq4_op<&Tq4_key_obj::SetLS>,
    .SetIIS = Tq4_op<&Tq4_key_obj::SetIIS>,
    .GetType = Tq4_op<&Tq4_key_obj::GetType>,
    .GetIH = Tq4_op<&Tq4_key_obj::GetIH>,
    .GetIL = Tq4_op<&Tq4_key_obj::GetIL>,
    .GetL = Tq4_op<&Tq4_key_obj::GetL>,
    .GetS = Tq4_op<&Tq4_key_obj::GetS>,
    .EqualI = Tq4_op<&Tq4_key_obj::EqualI>,
    .EqualL = Tq4_op<&Tq4_key_obj::EqualL>,
    .EqualII = Tq4_op<&Tq4_key_obj::EqualII>,
    .EqualS = Tq4_op<&Tq4_key_obj::EqualS>,
    .EqualLS = Tq4_op<&Tq4_key_obj::EqualLS>,
    .enc = Tq4_op<&Tq4_key_obj::enc>,
    .dec = Tq4_op<&Tq4_key_obj::dec>,
};
TQ4_MODULE(key)
