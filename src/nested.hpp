// nested.hpp: an object that lies in its owner's memory.
//
// Objects that a host may substitute are made through hooks. While a hook is the library's own, its object need not be
// an allocation of its own: the record and its Tq4_object lie in the owner, and nobody sees a difference. Where the
// host has replaced the hook, the object is the one that the hook gives. Either is destroyed through the delete hook,
// unless that is the library's own too. Delete only empties the record, whoever calls it: the object lives, and its
// handle is valid, as long as the owner.
//
// Nesting says which object it is: its hook, its tables, and the hook's default. The owner keeps the Tq4_object where
// it likes and shows it to each operation. Only handles lead there, so that what reads the record does not touch it.
#pragma once

#include <new>

#include "cxx_defaults.hpp"
#include "module.hpp"

template <class Handle, class Record, class Nesting> class Tq4_nested {
    union {
        Record m_record;
    };
    const bool m_lies_here;

public:
    explicit Tq4_nested(Tq4_object &object)
        : m_lies_here(Tq4_cxx_support->*Nesting::hook == Tq4_cxx_defaults.*Nesting::hook) {
        if (m_lies_here)
            object = {nullptr, Nesting::oitf(), Nesting::itf(), new (&m_record) Record};
        else
            object = {nullptr, nullptr, nullptr, (Tq4_cxx_support->*Nesting::hook)()};
    }
    ~Tq4_nested() {} // by End
    void End(Tq4_object &object) {
        if (!m_lies_here || Tq4_cxx_support->delete_obj != Tq4_cxx_defaults.delete_obj)
            Tq4_cxx_support->delete_obj(const_cast<void *>(static_cast<const void *>(handle(object))));
        if (!m_lies_here) return;
        if (object.info) Tq4_object_info_Delete(object.info);
        m_record.~Record();
    }
    Tq4_nested(const Tq4_nested &) = delete;
    Tq4_nested &operator=(const Tq4_nested &) = delete;

    Handle handle(Tq4_object &object) const {
        return static_cast<Handle>(m_lies_here ? static_cast<void *>(&object.itf) : object.real_obj);
    }
    Record &record(const Tq4_object &object) const {
        return m_lies_here ? const_cast<Record &>(m_record) : Tq4_record_of<Record>(object.real_obj);
    }
};
