// Every operation table as it is in the running library: no slot is empty. Where the slots stand is recorded in
// checks/slots.txt.
#include "support/test.hpp"

namespace {

template <class Table> bool filled(const Table &table) {
    void *slots[sizeof table / sizeof(void *)];
    std::memcpy(slots, &table, sizeof table);
    return std::count(std::begin(slots), std::end(slots), nullptr) == 0;
}
void expect(std::pair<const char *, bool> table) { EXPECT_TRUE(table.second) << table.first; }
template <class... Table> void expect_all(Table... tables) { (expect(tables), ...); }

#define TQ4_FILLED(module) std::pair(#module, filled(**Tq4_make<Tq4_##module>(Tq4_##module##_oitf)))

TEST(Slots, AreFilled) {
    const Tq4_pool_CreateParams pool{.Create = [](void *param) { return param; }};
    expect_all(TQ4_FILLED(string), TQ4_FILLED(string_array), TQ4_FILLED(zip), TQ4_FILLED(key), TQ4_FILLED(value),
               TQ4_FILLED(value_table), TQ4_FILLED(strmap), TQ4_FILLED(strmap2), TQ4_FILLED(intmap), TQ4_FILLED(queue),
               TQ4_FILLED(queue_item), TQ4_FILLED(lock), TQ4_FILLED(mutex), TQ4_FILLED(event), TQ4_FILLED(semaphore),
               TQ4_FILLED(thread), TQ4_FILLED(stream), TQ4_FILLED(file), TQ4_FILLED(finder), TQ4_FILLED(log),
               TQ4_FILLED(config), TQ4_FILLED(sockaddr), TQ4_FILLED(dispatch), TQ4_FILLED(reorder), TQ4_FILLED(timer),
               std::pair("pool", filled(**Tq4_make<Tq4_pool>(Tq4_pool_oitf, &pool))),
               std::pair("object", filled(*Tq4_object_oitf)), std::pair("cxx_support", filled(*Tq4_cxx_support)),
               std::pair("debug", filled(*Tq4_debug_api)), std::pair("system", filled(*Tq4_system_api)),
               std::pair("file_api", filled(*Tq4_file_api)), std::pair("sock_api", filled(*Tq4_sock_api)),
               std::pair("app", filled(*Tq4_app)), TQ4_FILLED(fsm), TQ4_FILLED(fsm_state), TQ4_FILLED(socket),
               TQ4_FILLED(http_client), TQ4_FILLED(udcp));
}

} // namespace
