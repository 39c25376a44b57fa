// callback_data: user data for timers that need an id, an owner and a table.
#include "tq4/cxx_support.h"
#include "tq4/timer.h"

extern "C" Tq4_timer_callback_data *Create_Tq4_timer_callback_data() { return new Tq4_timer_callback_data(); }

extern "C" void Delete_Tq4_timer_callback_data(void *data) {
    auto *record = static_cast<Tq4_timer_callback_data *>(data);
    if (!record) return;
    if (record->t) Tq4_cxx_support->delete_obj(const_cast<void *>(static_cast<const void *>(record->t)));
    delete record;
}
