// nested.hpp: an object that lies in its owner's memory.
//
// Objects that a host may substitute are made through hooks. While a hook is the library's own, its object need not be
// an allocation of its own: the record and its Tq4_object lie in the owner, and nobody sees a difference. Where the
// host has replaced the hook, the object is the one that the hook gives. Either is destroyed through the delete hook,
// unless that is the library's own too. Delete only empties the record, whoever calls it: the object lives, and its
// handle is valid, as long as the owner.
//
// Nesting says which object it is: its hook, its tables, and the hook's default.
#pragma once

#include <new>

#include "cxx_defaults.hpp"
#include "module.hpp"

template <class Handle, class Record, class Nesting> class Tq4_nested {
    union {
        Record m_record;
    };
    Tq4_object m_object; // without oitf: real_obj is the handle of the host's object

    bool lies_here() const { return m_object.oitf != nullptr; }

public:
    Tq4_nested() {
        const Tq4_new_hook hook = Tq4_cxx_support->*Nesting::hook;
        if (hook == Tq4_cxx_defaults.*Nesting::hook) {
            new (&m_record) Record;
            m_object = {nullptr, Nesting::oitf(), Nesting::itf(), &m_record};
        } else {
            m_object = {nullptr, nullptr, nullptr, hook()};
        }
    }
    ~Tq4_nested() {
        if (!lies_here() || Tq4_cxx_support->delete_obj != Tq4_cxx_defaults.delete_obj)
            Tq4_cxx_support->delete_obj(const_cast<void *>(static_cast<const void *>(handle())));
        if (!lies_here()) return;
        if (m_object.info) Tq4_object_info_Delete(m_object.info);
        m_record.~Record();
    }
    Tq4_nested(const Tq4_nested &) = delete;
    Tq4_nested &operator=(const Tq4_nested &) = delete;

    Handle handle() const {
        return static_cast<Handle>(lies_here() ? const_cast<void *>(static_cast<const void *>(&m_object.itf))
                                               : m_object.real_obj);
    }
    Record &record() const {
        return lies_here() ? const_cast<Record &>(m_record) : Tq4_record_of<Record>(m_object.real_obj);
    }
};
