// cxx_support: the replaceable hooks through which nested objects are made and destroyed.
//
// One mutable table. It is the one file that names the modules whose objects others nest; everybody else goes through
// the table.
#include "tq4/cxx_support.h"

#include "cxx_defaults.hpp"
#include "module.hpp"
#include "tq4/fsm.h"
#include "tq4/string.h"
#include "tq4/string_array.h"
#include "tq4/value_table.h"

namespace {

void cxx_delete(void *handle) {
    if (handle) Tq4_object_of(handle)->oitf->Delete(handle);
}

void *cxx_new_string() { return Tq4_string_oitf->Create(nullptr); }
void *cxx_new_array() { return Tq4_string_array_oitf->Create(nullptr); }
void *cxx_new_value() { return Tq4_value_oitf->Create(nullptr); }
void *cxx_new_table() { return Tq4_value_table_oitf->Create(nullptr); }
void *cxx_new_key() { return Tq4_key_oitf->Create(nullptr); }
void *cxx_new_state() { return Tq4_fsm_state_oitf->Create(nullptr); }

// A setter for each slot: replaces the hook it is named for.
extern Tq4_cxx_support_ api_Tq4_cxx_support;
template <auto Slot, class Hook> void set_hook(Hook hook) { api_Tq4_cxx_support.*Slot = hook; }

constexpr Tq4_cxx_support_ defaults = {
    .delete_obj = cxx_delete,
    .new_string = cxx_new_string,
    .new_array = cxx_new_array,
    .new_value = cxx_new_value,
    .new_table = cxx_new_table,
    .new_key = cxx_new_key,
    .new_state = cxx_new_state,
    .set_delete = set_hook<&Tq4_cxx_support_::delete_obj>,
    .set_new_string = set_hook<&Tq4_cxx_support_::new_string>,
    .set_new_array = set_hook<&Tq4_cxx_support_::new_array>,
    .set_new_value = set_hook<&Tq4_cxx_support_::new_value>,
    .set_new_table = set_hook<&Tq4_cxx_support_::new_table>,
    .set_new_key = set_hook<&Tq4_cxx_support_::new_key>,
    .set_new_state = set_hook<&Tq4_cxx_support_::new_state>,
};
constinit Tq4_cxx_support_ api_Tq4_cxx_support = defaults;

} // namespace

constinit const Tq4_cxx_support_ Tq4_cxx_defaults = defaults;

extern "C" constinit Tq4_cxx_support_ *const Tq4_cxx_support = &api_Tq4_cxx_support;
