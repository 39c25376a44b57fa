// Tq4_c_object: the object frame.
//
// Behind every handle stands one Tq4_object; the handle is the address of its itf member, so the step from handle to
// record is a subtraction. A module's own record follows the Tq4_object in the same allocation. Identity and ownership
// cost a second allocation, made only for objects that are given one.
#include <cstdio>
#include <cstdlib>

#include "assert.hpp"
#include "module.hpp"

static_assert(offsetof(Tq4_object, itf) == 2 * sizeof(void *));
static_assert(sizeof(Tq4_object) % alignof(std::max_align_t) == 0, "the module's record follows at once");

void Tq4_assert_failed(const char *file, const char *function, const char *expression) {
    std::fprintf(stderr, "%s: %s: assertion failed: %s\n", file, function, expression);
    std::abort();
}

namespace {

Tq4_object_info &info_of(const void *handle) {
    Tq4_object *object = Tq4_object_of(handle);
    if (!object->info) object->info = Tq4_object_info_Create();
    return *object->info;
}

void Delete_record(void *record) {
    auto *obj = static_cast<Tq4_object *>(record);
    if (!obj) return;
    TQ4_ASSERT(0 == obj->itf);
    if (obj->info) Tq4_object_info_Delete(obj->info);
    std::free(obj);
}

constinit const Tq4_object_itf Tq4_object_obj_itf = {
    .Create = [](const void *) -> void * { return new (Tq4_object_memory(sizeof(Tq4_object))) Tq4_object{}; },
    .Delete = Delete_record,
    .Reset = [](void *) {},
    .Copy = [](void *, const void *) {},
    .Equal = [](const void *, const void *) { return 0; },
    .Dup = [](const void *) -> void * { return nullptr; },
    .Owner = [](const void *) -> void * { return nullptr; },
    .Id = [](const void *) -> Tq4_id * { return nullptr; },
};

} // namespace

extern "C" {

constinit const Tq4_object_itf *const Tq4_object_oitf = &Tq4_object_obj_itf;

Tq4_object *Tq4_object_itf2object(const void *handle) { return handle ? Tq4_object_of(handle) : nullptr; }

Tq4_object_info *Tq4_object_info_Create() { return new Tq4_object_info{}; }
void Tq4_object_info_Delete(Tq4_object_info *info) { delete info; }

void Tq4_object_SetOwner(const void *handle, void *owner) {
    if (handle) info_of(handle).owner = owner;
}

void Tq4_object_SetId(const void *handle, const Tq4_id *id) {
    if (handle) info_of(handle).id = id ? *id : Tq4_id{};
}

void *Tq4_object_Owner(const void *handle) {
    const Tq4_object_info *info = handle ? Tq4_object_of(handle)->info : nullptr;
    return info ? info->owner : nullptr;
}

Tq4_id *Tq4_object_Id(const void *handle) {
    Tq4_object_info *info = handle ? Tq4_object_of(handle)->info : nullptr;
    return info ? &info->id : nullptr;
}

int Tq4_object_Equal(const void *a, const void *b) {
    if (!a || !b) return a == b;
    const Tq4_object *first = Tq4_object_of(a);
    return first->itf == Tq4_object_of(b)->itf ? first->oitf->Equal(a, b) : 0;
}

void *Tq4_object_Dup(const void *handle) { return handle ? Tq4_object_of(handle)->oitf->Dup(handle) : nullptr; }

Tq4_id *Tq4_id_Create() { return new Tq4_id{}; }
void Tq4_id_Delete(Tq4_id *id) { delete id; }
void Tq4_id_Reset(Tq4_id *id) {
    if (id) *id = {};
}
int Tq4_id_Equal(const Tq4_id *a, const Tq4_id *b) {
    if (!a || !b) return a == b;
    return a->h == b->h && a->l == b->l;
}

} // extern "C"
