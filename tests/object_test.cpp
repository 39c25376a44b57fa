// What the object frame promises: identity, ownership, equality and the life of a record, for objects of any module.
#include "support/test.hpp"

namespace {

struct Object : testing::Test {
    Tq4_own<Tq4_string> owned = Tq4_make<Tq4_string>(Tq4_string_oitf, "text");
    Tq4_own<Tq4_string> other = Tq4_make<Tq4_string>(Tq4_string_oitf, "text");
    Tq4_string a = owned.get(), b = other.get();
};

TEST_F(Object, IdentityAndOwnerAppearWhenFirstSetAndStayApart) {
    EXPECT_TRUE(!Tq4_object_Id(a) && !Tq4_object_Owner(a)) << "not a zero id";
    Tq4_object_SetOwner(a, this);
    EXPECT_EQ(Tq4_string_oitf->Owner(a), this);
    ASSERT_NE(Tq4_string_oitf->Id(a), nullptr);
    EXPECT_EQ(Tq4_object_Id(a)->h | Tq4_object_Id(a)->l, 0u);
    const Tq4_id id = {.h = 0x01234567, .l = 0x89abcdef};
    Tq4_object_SetId(a, &id);
    Tq4_object_SetOwner(a, b);
    EXPECT_TRUE(Tq4_id_Equal(Tq4_object_Id(a), &id)) << "a later owner keeps the id";
    EXPECT_NE(Tq4_object_Id(a), &id) << "copied, not kept";
    EXPECT_EQ(Tq4_object_Owner(a), b);
    const Tq4_own<Tq4_string> duplicate(static_cast<Tq4_string>(Tq4_object_Dup(a)));
    EXPECT_TRUE(Tq4_object_Equal(a, duplicate.get()) && !Tq4_object_Id(duplicate.get())) << "a duplicate has neither";
}

TEST_F(Object, EqualAsksTheModuleThatBothShareAndNoOther) {
    EXPECT_EQ(Tq4_object_Equal(a, b), 1);
    EXPECT_EQ(Tq4_object_Equal(a, (*b)->Strcat(b, "!")), 0);
    const auto array = Tq4_make<Tq4_string_array>(Tq4_string_array_oitf);
    const auto empty = Tq4_make<Tq4_string>(Tq4_string_oitf);
    EXPECT_EQ(Tq4_object_Equal(array.get(), empty.get()) + Tq4_object_Equal(a, nullptr), 0);
    EXPECT_EQ(Tq4_object_Equal(nullptr, nullptr), 1);
}

TEST_F(Object, NullHandlesGiveNullOrZero) {
    Tq4_object_SetId(nullptr, Tq4_object_Id(a));
    Tq4_object_SetOwner(nullptr, this);
    Tq4_string_oitf->Delete(nullptr);
    Tq4_string_oitf->Reset(nullptr);
    Tq4_string_oitf->Copy(nullptr, a);
    EXPECT_TRUE(!Tq4_object_itf2object(nullptr) && !Tq4_object_Id(nullptr) && !Tq4_object_Owner(nullptr));
    EXPECT_TRUE(!Tq4_object_Dup(nullptr) && !Tq4_string_oitf->Dup(nullptr) && !(*a)->length(nullptr));
}

TEST_F(Object, TheAllocatorOfRecordsIsNoModule) {
    auto record = static_cast<Tq4_object *>(Tq4_object_oitf->Create("ignored"));
    EXPECT_TRUE(!record->info && !record->oitf && !record->itf && !record->real_obj);
    Tq4_object_oitf->Reset(record);
    Tq4_object_oitf->Copy(record, record);
    EXPECT_TRUE(!Tq4_object_oitf->Equal(record, record) && !Tq4_object_oitf->Dup(record));
    EXPECT_TRUE(!Tq4_object_oitf->Owner(record) && !Tq4_object_oitf->Id(record));
    record->oitf = Tq4_string_oitf;
    Tq4_string_oitf->Delete(&record->itf); // as a first Delete leaves it: itf is null, and a second does nothing
    record->info = Tq4_object_info_Create();
    EXPECT_TRUE(record->info->id.h == 0 && record->info->id.l == 0 && !record->info->owner);
    Tq4_object_oitf->Delete(record); // frees the info too
    Tq4_object_oitf->Delete(nullptr);
}

TEST_F(Object, FreeingARecordThatIsStillInUseStopsTheProcess) {
    EXPECT_DEATH(Tq4_object_oitf->Delete(Tq4_object_itf2object(a)), "Tq4_c_object.*0 == obj->itf");
}

TEST(Modules, CopyAndCompareTheirObjectsAndTakeNull) {
    for (const Tq4_object_itf *module :
         {Tq4_string_oitf,      Tq4_string_array_oitf, Tq4_zip_oitf,       Tq4_key_oitf,     Tq4_value_oitf,
          Tq4_value_table_oitf, Tq4_strmap_oitf,       Tq4_strmap2_oitf,   Tq4_intmap_oitf,  Tq4_lock_oitf,
          Tq4_mutex_oitf,       Tq4_event_oitf,        Tq4_semaphore_oitf, Tq4_thread_oitf,  Tq4_stream_oitf,
          Tq4_finder_oitf,      Tq4_log_oitf,          Tq4_config_oitf,    Tq4_timer_oitf,   Tq4_dispatch_oitf,
          Tq4_reorder_oitf,     Tq4_fsm_oitf,          Tq4_file_oitf,      Tq4_sockaddr_oitf}) {
        void *one = module->Create(nullptr), *other = module->Dup(one);
        module->Copy(other, one);
        module->Copy(one, nullptr);
        EXPECT_EQ(module->Equal(one, one), module != Tq4_value_oitf) << "only an empty value is unequal to itself";
        module->Reset(other);
        module->Delete(one);
        module->Delete(other);
    }
}

} // namespace
