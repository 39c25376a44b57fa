/* cxx_support.h: the hooks by which the library makes and destroys the objects it nests in others.
 *
 * A host written in an object-oriented language replaces them to substitute its own objects. The table is one mutable
 * global: a replacement is seen by every later caller in the process, and the default comes back only by setting it
 * again. Set hooks once at start-up, before other threads use the library. Setting null is not supported.
 */
#ifndef TQ4_CXX_SUPPORT_H
#define TQ4_CXX_SUPPORT_H

#include "tq4/api.h"

TQ4_BEGIN_DECLS

typedef void (*Tq4_delete_hook)(void *handle);
/* Gives a new handle of the module that the slot is named for; the caller owns it. */
typedef void *(*Tq4_new_hook)(void);

typedef struct Tq4_cxx_support_ {
    /* Default: ignores null, else the Delete of the handle's own module. */
    Tq4_delete_hook delete_obj;
    /* Defaults: Create(null) of the string, string array, value, value table, key and state modules. */
    Tq4_new_hook new_string;
    Tq4_new_hook new_array;
    Tq4_new_hook new_value;
    Tq4_new_hook new_table;
    Tq4_new_hook new_key;
    Tq4_new_hook new_state;
    /* Each replaces the hook it is named for. */
    void (*set_delete)(Tq4_delete_hook hook);
    void (*set_new_string)(Tq4_new_hook hook);
    void (*set_new_array)(Tq4_new_hook hook);
    void (*set_new_value)(Tq4_new_hook hook);
    void (*set_new_table)(Tq4_new_hook hook);
    void (*set_new_key)(Tq4_new_hook hook);
    void (*set_new_state)(Tq4_new_hook hook);
} Tq4_cxx_support_;

extern TQ4_API Tq4_cxx_support_ *const Tq4_cxx_support;

TQ4_END_DECLS

#endif
