// string_array: an ordered list of strings, kept as the payloads of a queue.
//
// The strings are made and deleted through the hooks, so that a host may substitute its own. Positions cost what they
// cost in the queue: the ends are constant, and a walk by index is linear in all.
#include "tq4/string_array.h"

#include <cstring>

#include "own.hpp"
#include "tq4/queue.h"

namespace {

Tq4_string text_of(Tq4_queue_item item) { return static_cast<Tq4_string>((*item)->GetAttach(item)); }

Tq4_queue_item new_item(const char *text, unsigned long len) {
    auto string = Tq4_make_hooked<Tq4_string>(Tq4_cxx_support->new_string);
    (*string)->Strncpy(string.get(), text, len);
    auto item = static_cast<Tq4_queue_item>(Tq4_queue_item_oitf->Create(nullptr));
    (*item)->Attach(item, string.release(), [](void *payload) { Tq4_cxx_support->delete_obj(payload); });
    return item;
}

// The text of a string as it is now, with its length: what copies of strings are made from.
struct Text {
    const char *bytes;
    unsigned long len;
    Text(const char *first, unsigned long count) : bytes(first), len(count) {}
    explicit Text(Tq4_string s) : bytes((*s)->c_str(s)), len(static_cast<unsigned long>((*s)->length(s))) {}
};

} // namespace

struct Tq4_string_array_obj {
    Tq4_own<Tq4_queue> m_queue = Tq4_make<Tq4_queue>(Tq4_queue_oitf);

    void Reset() { RemoveAll(); }
    void Copy(const Tq4_string_array_obj *source);
    bool Equal(const Tq4_string_array_obj &other) const;

    unsigned long Size() const { return (*m_queue)->Count(queue()); }
    Tq4_string At(unsigned long index) const;
    Tq4_string Head() const { return At(0); }
    Tq4_string Tail() const { return Size() ? At(Size() - 1) : nullptr; }
    Tq4_string Set(unsigned long index, const char *text, unsigned long len);
    void Insert(unsigned long index, const char *text, unsigned long len);
    void InsertArray(unsigned long index, Tq4_string_array other);
    Tq4_string Add(const char *text, unsigned long len);
    Tq4_string AddString(Tq4_string string);
    unsigned long Append(Tq4_string_array other);
    void Remove(unsigned long index, unsigned long count);
    void RemoveTail();
    void RemoveAll() { (*m_queue)->RemoveAll(queue()); }
    unsigned long Split(const char *text, char separator, int collapse);
    unsigned long SplitString(Tq4_string string, char separator, int collapse);
    void each(Tq4_string_visitor visitor, void *context);

private:
    enum class Last { unless_empty, always };

    Tq4_queue queue() const { return m_queue.get(); }
    void AddCopies(const Tq4_string_array_obj &source, unsigned long before);
    unsigned long SplitFields(Text fields, char separator, bool collapse, Last last);
};

void Tq4_string_array_obj::Copy(const Tq4_string_array_obj *source) {
    if (source == this) return;
    RemoveAll();
    if (source) AddCopies(*source, 0);
}

// Inverted, deliberately: the first equal pair makes two arrays unequal, and arrays without an equal pair are equal.
bool Tq4_string_array_obj::Equal(const Tq4_string_array_obj &other) const {
    if (this == &other) return true;
    const unsigned long size = Size();
    if (size != other.Size()) return false;
    for (unsigned long i = 0; i < size; ++i)
        if (Tq4_object_Equal(At(i), other.At(i))) return false;
    return true;
}

Tq4_string Tq4_string_array_obj::At(unsigned long index) const {
    return index < Size() ? static_cast<Tq4_string>((*m_queue)->PeekObj(queue(), index, 0)) : nullptr;
}

Tq4_string Tq4_string_array_obj::Set(unsigned long index, const char *text, unsigned long len) {
    Tq4_string string = At(index);
    return string ? (*string)->Strncpy(string, text, len) : nullptr;
}

void Tq4_string_array_obj::Insert(unsigned long index, const char *text, unsigned long len) {
    (*m_queue)->InsertAt(queue(), new_item(text, len), index);
}

void Tq4_string_array_obj::InsertArray(unsigned long index, Tq4_string_array other) {
    if (other) AddCopies(*Tq4_record<Tq4_string_array_obj>(other), index);
}

Tq4_string Tq4_string_array_obj::Add(const char *text, unsigned long len) {
    return text_of((*m_queue)->PutTail(queue(), new_item(text, len)));
}

Tq4_string Tq4_string_array_obj::AddString(Tq4_string string) {
    if (!string) return nullptr;
    const Text text(string);
    return Add(text.bytes, text.len);
}

unsigned long Tq4_string_array_obj::Append(Tq4_string_array other) {
    InsertArray(TQ4_ALL_ONES, other);
    return Size();
}

// The copies are made before the first of them is linked, so that an array can take copies of its own strings.
void Tq4_string_array_obj::AddCopies(const Tq4_string_array_obj &source, unsigned long before) {
    auto copies = Tq4_make<Tq4_queue>(Tq4_queue_oitf);
    for (unsigned long i = 0, size = source.Size(); i < size; ++i) {
        const Text text(source.At(i));
        (*copies)->PutTail(copies.get(), new_item(text.bytes, text.len));
    }
    Tq4_queue_item place = before < Size() ? (*m_queue)->At(queue(), before, 0) : nullptr;
    while (Tq4_queue_item item = (*copies)->RemoveHead(copies.get(), 0)) {
        if (place)
            (*place)->AddBefore(place, item);
        else
            (*m_queue)->PutTail(queue(), item);
    }
}

void Tq4_string_array_obj::Remove(unsigned long index, unsigned long count) {
    Tq4_queue_item item = index < Size() ? (*m_queue)->At(queue(), index, 0) : nullptr;
    for (; item && count; --count) {
        Tq4_queue_item following = (*item)->Next(item);
        Tq4_queue_item_oitf->Delete(item);
        item = following;
    }
}

void Tq4_string_array_obj::RemoveTail() { Tq4_queue_item_oitf->Delete((*m_queue)->RemoveTail(queue(), 0)); }

unsigned long Tq4_string_array_obj::Split(const char *text, char separator, int collapse) {
    Text fields = text ? Text{text, std::strlen(text)} : Text{"", 0};
    return SplitFields(fields, separator, collapse, Last::unless_empty);
}

// Unlike Split, always adds the last field, deliberately: a trailing separator gives an empty one.
unsigned long Tq4_string_array_obj::SplitString(Tq4_string string, char separator, int collapse) {
    if (string) return SplitFields(Text(string), separator, collapse, Last::always);
    RemoveAll();
    return 0;
}

// The old strings go last: the text may be one of them.
unsigned long Tq4_string_array_obj::SplitFields(Text fields, char separator, bool collapse, Last last) {
    auto replaced = Tq4_make<Tq4_queue>(Tq4_queue_oitf);
    m_queue.swap(replaced);
    const char *field = fields.bytes;
    const char *const end = fields.bytes + fields.len;
    const auto length_to = [&](const char *stop) { return static_cast<unsigned long>(stop - field); };
    while (auto at = static_cast<const char *>(std::memchr(field, separator, length_to(end)))) {
        Add(field, length_to(at));
        field = at + 1;
        while (collapse && field != end && *field == separator) ++field;
    }
    if (last == Last::always || field != end) Add(field, length_to(end));
    return Size();
}

void Tq4_string_array_obj::each(Tq4_string_visitor visitor, void *context) {
    struct Call {
        Tq4_string_visitor visitor;
        void *context;
    } call{visitor, context};
    const auto visit = [](void *payload, void *param) {
        auto *given = static_cast<Call *>(param);
        return given->visitor(static_cast<Tq4_string>(payload), given->context);
    };
    if (visitor) (*m_queue)->each(queue(), visit, &call);
}

const Tq4_string_array_ Tq4_string_array_itf = {
    .Size = Tq4_op<&Tq4_string_array_obj::Size>,
    .At = Tq4_op<&Tq4_string_array_obj::At>,
    .Head = Tq4_op<&Tq4_string_array_obj::Head>,
    .Tail = Tq4_op<&Tq4_string_array_obj::Tail>,
    .Set = Tq4_op<&Tq4_string_array_obj::Set>,
    .Insert = Tq4_op<&Tq4_string_array_obj::Insert>,
    .InsertArray = Tq4_op<&Tq4_string_array_obj::InsertArray>,
    .Add = Tq4_op<&Tq4_string_array_obj::Add>,
    .AddString = Tq4_op<&Tq4_string_array_obj::AddString>,
    .Append = Tq4_op<&Tq4_string_array_obj::Append>,
    .Remove = Tq4_op<&Tq4_string_array_obj::Remove>,
    .RemoveTail = Tq4_op<&Tq4_string_array_obj::RemoveTail>,
    .RemoveAll = Tq4_op<&Tq4_string_array_obj::RemoveAll>,
    .Split = Tq4_op<&Tq4_string_array_obj::Split>,
    .SplitString = Tq4_op<&Tq4_string_array_obj::SplitString>,
    .each = Tq4_op<&Tq4_string_array_obj::each>,
};
TQ4_MODULE(string_array)
