// What the hooks promise: defaults that make and destroy the library's own objects, each replaceable by itself.
#include "tq4/cxx_support.h"

#include <cstring>

#include <gtest/gtest.h>

namespace {

// Runs on the real, global table and puts it back.
struct CxxSupport : testing::Test {
    Tq4_cxx_support_ saved = *Tq4_cxx_support;
    ~CxxSupport() override { *Tq4_cxx_support = saved; }
};

TEST_F(CxxSupport, EachSetterReplacesItsOwnHookAndNoOther) {
    using Hooks = Tq4_cxx_support_;
    static int made;
    const Tq4_new_hook mine = []() -> void * { return &made; };
    const struct {
        void (*Hooks::*set)(Tq4_new_hook);
        Tq4_new_hook Hooks::*hook;
    } makers[] = {
        {&Hooks::set_new_string, &Hooks::new_string}, {&Hooks::set_new_array, &Hooks::new_array},
        {&Hooks::set_new_value, &Hooks::new_value},   {&Hooks::set_new_table, &Hooks::new_table},
        {&Hooks::set_new_key, &Hooks::new_key},       {&Hooks::set_new_state, &Hooks::new_state},
    };
    for (auto [set, hook] : makers) {
        (Tq4_cxx_support->*set)(mine);
        EXPECT_EQ((Tq4_cxx_support->*hook)(), &made);
        (Tq4_cxx_support->*set)(saved.*hook);
        EXPECT_EQ(std::memcmp(Tq4_cxx_support, &saved, sizeof saved), 0);
    }

    Tq4_cxx_support->delete_obj(nullptr);
    static void *deleted;
    Tq4_cxx_support->set_delete([](void *handle) { deleted = handle; });
    Tq4_cxx_support->delete_obj(&made);
    EXPECT_EQ(deleted, &made);
}

} // namespace
