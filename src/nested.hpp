// nested.hpp: an object that lies in its owner's memory.
//
// Objects that a host may substitute are made through hooks. While a hook is the library's own, its object need not be
// an allocation of its own: the record and its Tq4_object lie in the owner, and nobody sees a difference. Where the
// host has replaced the hook, the object is the one that the hook gives. Either is destroyed through the delete hook,
// unless that is the library's own too. Delete only empties the record, whoever calls it: the object lives, and its
// handle is valid, as long as the owner.
//
// Nesting says which object it is: its hook, its tables, and the hook's default. The owner keeps the object and
// passes it to each operation. Only handles lead to it, so reading the record does not touch it.
#pragma once

#include <new>

#include "cxx_defaults.hpp"
#include "module.hpp"

// The object of a record that lies in its owner's memory, or the host's object in its place.
class Tq4_lent_object {
    Tq4_object m_object = {}; // without oitf: real_obj is the handle of the host's

public:
    void Lend(const Tq4_object_itf *oitf, const void *itf, void *record) { m_object = {nullptr, oitf, itf, record}; }
    void TakeHosts(void *handle) { m_object = {nullptr, nullptr, nullptr, handle}; }

    bool is_hosts() const { return !m_object.oitf; }
    // The handle of one that is not the host's, without a look at it.
    void *own_handle() { return &m_object.itf; }
    void *handle() { return is_hosts() ? m_object.real_obj : own_handle(); }
    template <class Record> Record &hosts_record() const { return Tq4_record_of<Record>(m_object.real_obj); }

    // By the delete hook, unless nobody but the library would see it. A record that was lent is its owner's to destroy.
    void End() {
        if (is_hosts() || Tq4_cxx_support->delete_obj != Tq4_cxx_defaults.delete_obj)
            Tq4_cxx_support->delete_obj(handle());
        if (!is_hosts() && m_object.info) Tq4_object_info_Delete(m_object.info);
    }
};

template <class Handle, class Record, class Nesting> class Tq4_nested {
    union {
        Record m_record;
    };
    const bool m_lies_here;

public:
    explicit Tq4_nested(Tq4_lent_object &object)
        : m_lies_here(Tq4_cxx_support->*Nesting::hook == Tq4_cxx_defaults.*Nesting::hook) {
        if (m_lies_here)
            object.Lend(Nesting::oitf(), Nesting::itf(), new (&m_record) Record);
        else
            object.TakeHosts((Tq4_cxx_support->*Nesting::hook)());
    }
    ~Tq4_nested() {} // by End
    void End(Tq4_lent_object &object) {
        object.End();
        if (m_lies_here) m_record.~Record();
    }
    Tq4_nested(const Tq4_nested &) = delete;
    Tq4_nested &operator=(const Tq4_nested &) = delete;

    Handle handle(Tq4_lent_object &object) const { return static_cast<Handle>(object.handle()); }
    Record &record(const Tq4_lent_object &object) const {
        return m_lies_here ? const_cast<Record &>(m_record) : object.hosts_record<Record>();
    }
};
