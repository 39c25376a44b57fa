// own.hpp: owned handles.
//
// Tq4_own<Tq4_lock> deletes its object through the object's own module. Tq4_hooked<Tq4_string> is for objects that a
// host may substitute (strings, string arrays, values, tables, keys, states): it deletes through the hook, and whoever
// fills it makes the object through the hook too. Both are unique_ptrs, so (*own)->Op(own.get(), ...) calls.
#pragma once

#include <memory>
#include <type_traits>

#include "module.hpp"
#include "tq4/cxx_support.h"

struct Tq4_module_delete {
    void operator()(const void *handle) const { Tq4_object_of(handle)->oitf->Delete(const_cast<void *>(handle)); }
};
struct Tq4_hook_delete {
    void operator()(const void *handle) const { Tq4_cxx_support->delete_obj(const_cast<void *>(handle)); }
};

template <class Handle> using Tq4_own = std::unique_ptr<std::remove_pointer_t<Handle>, Tq4_module_delete>;
template <class Handle> using Tq4_hooked = std::unique_ptr<std::remove_pointer_t<Handle>, Tq4_hook_delete>;

// A new object of a module, owned: Tq4_make<Tq4_lock>(Tq4_lock_oitf).
template <class Handle> Tq4_own<Handle> Tq4_make(const Tq4_object_itf *module, const void *param = nullptr) {
    return Tq4_own<Handle>(static_cast<Handle>(module->Create(param)));
}
// A new object from a hook, owned: Tq4_make_hooked<Tq4_string>(Tq4_cxx_support->new_string).
template <class Handle> Tq4_hooked<Handle> Tq4_make_hooked(Tq4_new_hook hook) {
    return Tq4_hooked<Handle>(static_cast<Handle>(hook()));
}
