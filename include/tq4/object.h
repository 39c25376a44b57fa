/* object.h: the object frame: the record behind every handle, identity and ownership.
 *
 * Every object of every module is one Tq4_object. A handle is the address of its itf member, so the first word that
 * a handle leads to is the module's table of operations. The frame keeps no registry and counts no references:
 * whoever calls Create or Dup calls Delete, and after Delete the handle is dangling.
 *
 * Threads: the frame holds no lock; an object belongs to one thread at a time unless its module says otherwise.
 * Running out of memory is fatal to the process.
 */
#ifndef TQ4_OBJECT_H
#define TQ4_OBJECT_H

#include <stdint.h>

#include "tq4/api.h"

TQ4_BEGIN_DECLS

/* A 64-bit identifier in two halves, printed "[%08x:%08x]". The library never makes one up: ids come from callers. */
typedef struct Tq4_id {
    uint32_t h; /* high half */
    uint32_t l; /* low half */
} Tq4_id;

/* Identity and ownership of one object, made when SetOwner or SetId is first called on it. */
typedef struct Tq4_object_info {
    Tq4_id id;   /* zero until set */
    void *owner; /* borrowed; whatever the caller set, never dereferenced by the frame */
} Tq4_object_info;

typedef struct Tq4_object_itf Tq4_object_itf;

/* The record behind every handle. Callers reach it only through the frame's functions. */
typedef struct Tq4_object {
    Tq4_object_info *info;      /* owned; null until SetOwner or SetId */
    const Tq4_object_itf *oitf; /* the module's object-level operations */
    const void *itf;            /* the module's own operations; a handle is the address of this member */
    void *real_obj;             /* the module's private record; owned */
} Tq4_object;

/* What can be done with an object of any module. */
struct Tq4_object_itf {
    /* Makes an object. What param means is the module's; null is always accepted. */
    void *(*Create)(const void *param);
    /* Destroys the object; null is ignored. An object that lies in its owner, such as a table's key or value, is only
     * emptied: its handle is valid until the owner ends it. */
    void (*Delete)(void *handle);
    /* Returns the object to its freshly created state. */
    void (*Reset)(void *handle);
    /* Makes the destination's content equal to the source's. */
    void (*Copy)(void *destination, const void *source);
    /* 1 when the contents are equal, as the module understands it, else 0. */
    int (*Equal)(const void *a, const void *b);
    /* A new object with the same content, without the id and the owner; null for null. */
    void *(*Dup)(const void *handle);
    /* Tq4_object_Owner and Tq4_object_Id in every module. */
    void *(*Owner)(const void *handle);
    Tq4_id *(*Id)(const void *handle);
};

/* The allocator of records that all modules use; not a module of its own. Create gives a zeroed Tq4_object (not a
 * handle) and ignores its parameter. Delete takes such a record, frees its info and itself, and stops the process
 * with "0 == obj->itf" when itf is still set; null is ignored. Reset and Copy do nothing, Equal gives 0, Dup, Owner
 * and Id give null. */
extern TQ4_API const Tq4_object_itf *const Tq4_object_oitf;

/* The record that holds the handle's itf member; null for null. Constant time. */
TQ4_API Tq4_object *Tq4_object_itf2object(const void *handle);

/* Makes an info with a zero id and no owner; the caller frees it with Tq4_object_info_Delete (null is ignored). */
TQ4_API Tq4_object_info *Tq4_object_info_Create(void);
TQ4_API void Tq4_object_info_Delete(Tq4_object_info *info);

/* Stores the owner pointer, as it is. A null handle is ignored. */
TQ4_API void Tq4_object_SetOwner(const void *handle, void *owner);
/* Copies both halves of the id; a null id counts as zero. A null handle is ignored. */
TQ4_API void Tq4_object_SetId(const void *handle, const Tq4_id *id);
/* The owner; null for a null handle or when neither an owner nor an id was ever set. */
TQ4_API void *Tq4_object_Owner(const void *handle);
/* The object's own id, valid while the object lives; null (not a zero id) when neither was ever set. */
TQ4_API Tq4_id *Tq4_object_Id(const void *handle);

/* Both null: 1. One null: 0. Objects of different modules: 0. Otherwise what the module's Equal says, which is asked
 * also when both are the same handle. */
TQ4_API int Tq4_object_Equal(const void *a, const void *b);
/* A duplicate by the object's own module; null for null. The caller deletes it. */
TQ4_API void *Tq4_object_Dup(const void *handle);

/* Ids on the heap: Create gives a zero id that the caller frees with Delete (null is ignored). Reset of null does
 * nothing. Equal is 1 when both halves match; two nulls are equal, a null and an id are not. */
TQ4_API Tq4_id *Tq4_id_Create(void);
TQ4_API void Tq4_id_Delete(Tq4_id *id);
TQ4_API void Tq4_id_Reset(Tq4_id *id);
TQ4_API int Tq4_id_Equal(const Tq4_id *a, const Tq4_id *b);

TQ4_END_DECLS

#endif
