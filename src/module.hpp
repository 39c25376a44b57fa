// module.hpp: how a record becomes a module.
//
// A module writes a record (its fields and operations as members), a table of operations, and TQ4_MODULE(name).
// Everything that all modules share stands here once: the handle arithmetic, the answer to a null handle, chaining,
// and the object-level operations.
//
// The module's record lies behind its Tq4_object in one allocation; real_obj points at it. An object whose record lies
// elsewhere is part of another object's memory (nested.hpp): its Delete frees nothing and leaves the owner an empty
// object, whose handle stays valid.
#pragma once

#include <cstddef>
#include <cstdlib>
#include <new>
#include <type_traits>

#include "object_memory.hpp"
#include "tq4/object.h"

inline Tq4_object *Tq4_object_of(const void *handle) {
    auto *at = static_cast<const char *>(handle) - offsetof(Tq4_object, itf);
    return const_cast<Tq4_object *>(reinterpret_cast<const Tq4_object *>(at));
}

// The record behind a handle; null for null.
template <class Record> Record *Tq4_record(const void *handle) {
    return handle ? static_cast<Record *>(Tq4_object_of(handle)->real_obj) : nullptr;
}

// The same for a handle that is not null.
template <class Record> Record &Tq4_record_of(const void *handle) {
    return *static_cast<Record *>(Tq4_object_of(handle)->real_obj);
}

// The handle of the object that a module's record belongs to; the record lies behind its Tq4_object.
template <class Handle, class Record> Handle Tq4_handle_of(Record *record) {
    Tq4_object *object = reinterpret_cast<Tq4_object *>(record) - 1;
    return reinterpret_cast<Handle>(&object->itf);
}

// A member function of a record as a slot: converts to the slot's own function type. A null handle yields the zero of
// the result type; a method that returns nothing in a slot that returns the handle chains.
template <auto Method> struct Tq4_op_of;

template <class Record, auto Method, class Result> struct Tq4_op_base {
    template <class R, class H, class... A> using slot = R (*)(H, A...);
    template <class R, class H, class... A> constexpr operator slot<R, H, A...>() const {
        return [](H handle, A... args) -> R {
            if (!handle) return R();
            Record *record = static_cast<Record *>(Tq4_object_of(handle)->real_obj);
            if constexpr (std::is_void_v<Result> && !std::is_void_v<R>) {
                static_assert(std::is_same_v<R, H>, "a method without a result chains the handle");
                (record->*Method)(args...);
                return handle;
            } else {
                return (record->*Method)(args...);
            }
        };
    }
};

template <class Record, class Result, class... Args, Result (Record::*Method)(Args...)> struct Tq4_op_of<Method>
    : Tq4_op_base<Record, Method, Result> {};

template <class Record, class Result, class... Args, Result (Record::*Method)(Args...) const> struct Tq4_op_of<Method>
    : Tq4_op_base<const Record, Method, Result> {};

template <auto Method> inline constexpr Tq4_op_of<Method> Tq4_op{};

// The creation parameter on its way into a record's constructor, which names the type it expects.
struct Tq4_param {
    const void *value;
    template <class T> operator const T *() const { return static_cast<const T *>(value); }
};

// The object-level operations of every module, from what its record can do: a constructor that takes a pointer to its
// parameter or nothing, Reset(), Copy(const Record *) where null empties, and Equal(const Record &) const. A record
// whose duplicate is more than a copy of a fresh object has Duplicate(const Record &), called on the fresh one. A
// record that may outlive Delete has Retire(): false keeps the object, and the record calls Destroy itself when it is
// done. A record that cannot be made from every parameter has the static Accepts(const P *), after whose false Create
// gives null, and Params() const, what its duplicates are made from.
template <class Record> struct Tq4_object_ops {
    static_assert(alignof(Record) <= alignof(std::max_align_t));

    static Record *Construct(void *room, const void *param) {
        if constexpr (std::is_constructible_v<Record, Tq4_param>)
            return new (room) Record(Tq4_param{param});
        else
            return new (room) Record();
    }
    static void *Create(const Tq4_object_itf *oitf, const void *itf, Record *(*construct)(void *, const void *),
                        const void *param) {
        if constexpr (requires { Record::Accepts(Tq4_param{param}); })
            if (!Record::Accepts(Tq4_param{param})) return nullptr;
        auto *object = static_cast<Tq4_object *>(Tq4_object_memory(sizeof(Tq4_object) + sizeof(Record)));
        new (object) Tq4_object{.info = nullptr, .oitf = oitf, .itf = itf, .real_obj = object + 1};
        construct(object + 1, param);
        return &object->itf;
    }
    static void Delete(void *handle, void (*destroy)(Record *)) {
        if (!handle) return;
        Tq4_object *object = Tq4_object_of(handle);
        if (!object->itf) return; // deleted before, and the memory is still intact
        auto *record = static_cast<Record *>(object->real_obj);
        if constexpr (requires { record->Retire(); })
            if (!record->Retire()) return;
        if (object->real_obj == object + 1) return Destroy(record, destroy);
        record->Reset();
        Forget(object);
    }
    static void Destroy(Record *record, void (*destroy)(Record *)) {
        Tq4_object *object = static_cast<Tq4_object *>(static_cast<void *>(record)) - 1;
        destroy(record);
        object->real_obj = nullptr;
        object->itf = nullptr;
        Forget(object);
        Tq4_object_memory_free(object, sizeof(Tq4_object) + sizeof(Record));
    }
    static void Forget(Tq4_object *object) { // who it is and whose
        if (object->info) Tq4_object_info_Delete(object->info);
        object->info = nullptr;
    }
    static void Reset(void *handle) {
        if (handle) Tq4_record<Record>(handle)->Reset();
    }
    static void Copy(void *destination, const void *source) {
        if (destination) Tq4_record<Record>(destination)->Copy(Tq4_record<const Record>(source));
    }
    static int Equal(const void *a, const void *b) {
        if (!a || !b) return a == b;
        return Tq4_record<const Record>(a)->Equal(*Tq4_record<const Record>(b));
    }
    static void *Dup(const void *handle, void *(*create)(const void *)) {
        if (!handle) return nullptr;
        auto *source = Tq4_record<const Record>(handle);
        void *duplicate;
        if constexpr (requires { source->Params(); })
            duplicate = create(source->Params());
        else
            duplicate = create(nullptr);
        if constexpr (requires(Record & r) { r.Duplicate(*source); })
            Tq4_record<Record>(duplicate)->Duplicate(*source);
        else
            Tq4_record<Record>(duplicate)->Copy(source);
        return duplicate;
    }
};

// One line declares a module: its constructor and destructor, its object-level table and the exported pointer to it.
// Needs the record Tq4_xxx_obj and the table Tq4_xxx_itf before it.
#define TQ4_MODULE(xxx)                                                                                                \
    extern const Tq4_object_itf Tq4_##xxx##_obj_itf;                                                                   \
    static Tq4_##xxx##_obj *Create_Tq4_##xxx##_obj(void *room, const void *param) {                                    \
        return Tq4_object_ops<Tq4_##xxx##_obj>::Construct(room, param);                                                \
    }                                                                                                                  \
    static void Delete_Tq4_##xxx##_obj(Tq4_##xxx##_obj *record) { record->~Tq4_##xxx##_obj(); }                        \
    static void *Tq4_##xxx##_itf_Create(const void *param) {                                                           \
        return Tq4_object_ops<Tq4_##xxx##_obj>::Create(&Tq4_##xxx##_obj_itf, &Tq4_##xxx##_itf, Create_Tq4_##xxx##_obj, \
                                                       param);                                                         \
    }                                                                                                                  \
    static void Tq4_##xxx##_itf_Delete(void *handle) {                                                                 \
        Tq4_object_ops<Tq4_##xxx##_obj>::Delete(handle, Delete_Tq4_##xxx##_obj);                                       \
    }                                                                                                                  \
    static void Tq4_##xxx##_itf_Reset(void *handle) { Tq4_object_ops<Tq4_##xxx##_obj>::Reset(handle); }                \
    static void Tq4_##xxx##_itf_Copy(void *destination, const void *source) {                                          \
        Tq4_object_ops<Tq4_##xxx##_obj>::Copy(destination, source);                                                    \
    }                                                                                                                  \
    static int Tq4_##xxx##_itf_Equal(const void *a, const void *b) {                                                   \
        return Tq4_object_ops<Tq4_##xxx##_obj>::Equal(a, b);                                                           \
    }                                                                                                                  \
    static void *Tq4_##xxx##_itf_Dup(const void *handle) {                                                             \
        return Tq4_object_ops<Tq4_##xxx##_obj>::Dup(handle, Tq4_##xxx##_itf_Create);                                   \
    }                                                                                                                  \
    constinit const Tq4_object_itf Tq4_##xxx##_obj_itf = {                                                             \
        .Create = Tq4_##xxx##_itf_Create,                                                                              \
        .Delete = Tq4_##xxx##_itf_Delete,                                                                              \
        .Reset = Tq4_##xxx##_itf_Reset,                                                                                \
        .Copy = Tq4_##xxx##_itf_Copy,                                                                                  \
        .Equal = Tq4_##xxx##_itf_Equal,                                                                                \
        .Dup = Tq4_##xxx##_itf_Dup,                                                                                    \
        .Owner = Tq4_object_Owner,                                                                                     \
        .Id = Tq4_object_Id,                                                                                           \
    };                                                                                                                 \
    extern "C" constinit const Tq4_object_itf *const Tq4_##xxx##_oitf = &Tq4_##xxx##_obj_itf;
